// Words for the numbers of a status word.
#include "../common/contract.hpp"

#include <cstring>

const char* platform_status_text(uint32_t status) {
    switch (status) {
    case 0: return "good";
    case ZUR_ABSENT: return "what was asked for is not there";
    case ZUR_NO_MEMORY: return "memory was refused";
    case ZUR_BAD_ARGUMENT: return "a wrong argument, or the wrong state-tracking mode";
    case ZUR_BUFFER_TOO_SMALL: return "the text does not fit into the buffer";
    case ZUR_NOT_IN_VARIANT: return "the field or value does not exist in the record's variant";
    case ZUR_WRONG_LENGTH: return "a message of the wrong length, or a buffer too short for one";
    default: return std::strerror(static_cast<int>(status));
    }
}
