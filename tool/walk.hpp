// A pass over a marshalled message from its first byte to its last, by the catalogue alone: what stands where. It takes
// a message as the library's reader does, but tells where one is damaged; it makes no record of it. The bytes may be
// anybody's: every length is held against the bytes that are there.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <functional>

namespace epm::tool {

/// A range of bytes of the message.
struct Part {
    enum class Kind : std::uint8_t {
        variant,     ///< variant byte of a record or enumeration
        flags,       ///< flag byte of a record
        ra_block,    ///< what the runtime has put between flag byte and jump word
        jump_word,   ///< bytes from here to the record's end
        value,       ///< a field, or an element of one
        count,       ///< elements of a list
        prefix,      ///< what stands in front of an imported object's content: its length, family or type
        state_flags, ///< of one field: its flag, or its whole flag and those of its elements
        passed_over, ///< what the reader does not know and the jump word leads over
        remark,      ///< no bytes: something that the reader accepts and no writer writes
    };
    Kind kind;
    std::size_t offset;
    std::size_t length;
    std::string path;  ///< of the field from the outermost record, whose own name stands for itself
    std::string type;  ///< what the bytes are
    std::string value; ///< as printable ASCII
};

/// Tells the parts in the order of their offsets, with no gap; throws Damage behind the last sound one.
void walk(const Type& type, ByteView message, const std::function<void(const Part&)>& tell);

/// The bytes that the reader takes and does not look into, up to the end or to where the message is damaged.
std::vector<Part> passed_over(const Type& type, ByteView message);

} // namespace epm::tool
