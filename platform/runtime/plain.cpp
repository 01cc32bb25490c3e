// What the stand-in declares plain. It holds for a Domain while nobody has put a write hook of his own into it.
#include "private.hpp"

#include <sys/single_threaded.h>

using namespace platform;

const zur_plain_operations zur_plain_declaration = {ZUR_PLAIN_VERSION,
                                                    ZUR_PLAIN_COUNT,
                                                    ignore_write,
#define ADDRESS(name) reinterpret_cast<zur_plain_function>(&name),
                                                    {ZUR_PLAIN_FUNCTIONS(ADDRESS)},
#undef ADDRESS
                                                    &__libc_single_threaded};
