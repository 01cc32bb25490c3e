// Walks over a marshalled message from its first byte to its last and reports what each byte belongs to, using only the
// catalogue. It accepts what the library's reader accepts, but says where a message is damaged and builds no record.
// The bytes may come from anybody, so every length is checked against the bytes that are there.
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
        ra_block,    ///< written by the runtime between flag byte and jump word
        jump_word,   ///< bytes from here to the record's end
        value,       ///< a field, or an element of one
        count,       ///< elements of a list
        prefix,      ///< in front of an imported object's content: its length, family or type
        state_flags, ///< of one field: its flag, or its whole flag and those of its elements
        passed_over, ///< unknown to the reader, which follows the jump word past it
        remark,      ///< no bytes: something that the reader accepts but no writer writes
    };
    Kind kind;
    std::size_t offset;
    std::size_t length;
    std::string path;  ///< of the field from the outermost record, whose path is its own name
    std::string type;  ///< what the bytes are
    std::string value; ///< as printable ASCII
};

/// Passes the parts to `tell` in the order of their offsets, without a gap. Throws Damage after the last sound one.
void walk(const Type& type, ByteView message, const std::function<void(const Part&)>& tell);

/// The bytes that the reader skips without looking at them, up to the end or to where the message is damaged.
std::vector<Part> passed_over(const Type& type, ByteView message);

} // namespace epm::tool
