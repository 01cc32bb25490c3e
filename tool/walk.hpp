// Walks over a marshalled message from its first byte to its last and reports what each byte belongs to, using only the
// catalogue. It accepts what the library's reader accepts, but says where a message is damaged and builds no record.
// The bytes may come from anybody, so every length is checked against the bytes that are there. What listens to a walk
// gets the parts, one for each range of bytes, or the structure: records, fields and values.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <functional>

namespace epm::tool {

using catalogue::Foreign;

/// As the platform's runtime writes it.
inline constexpr std::size_t ra_block_length = 9;

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

/// Hears of a message in the order of its bytes; of the parts, in the order of their offsets and without a gap.
class Listener {
public:
    virtual ~Listener() = default;

    virtual void part(const Part&) {}

    struct Header {
        std::int8_t variant;
        std::uint8_t flags;
        ByteView ra_block; ///< empty without its flag
    };
    virtual void begin(const Record&, const Header&) {}
    virtual void end(const Record&, ByteView /*passed_over*/) {}

    /// Of fields that the message holds, except lengths. Values, or whole records, stand between the two calls.
    virtual void begin(const Field&) {}
    virtual void end(const Field&) {}
    /// Also of an arm that the message does not hold.
    virtual void state_flags(const Field&, ByteView) {}

    virtual void text(ByteView) {} ///< of a text or of fixed characters
    virtual void run(ByteView) {}
    virtual void enumerator(const Enum&, std::int8_t /*variant*/, std::uint32_t /*number*/) {}
    /// `front` is what stands in front of an imported value, and is not its length: a variant, a family, a type.
    virtual void imported(const Foreign&, std::int64_t /*front*/, ByteView /*value*/) {}
};

/// Throws Damage after the last sound part.
void walk(const Type& type, ByteView message, Listener& listener);
/// Passes the parts to `tell`.
void walk(const Type& type, ByteView message, const std::function<void(const Part&)>& tell);

/// The number that big-endian bytes stand for.
std::uint64_t number(ByteView bytes);
/// As people write them; an address of no family is empty.
std::string mac_text(ByteView bytes);
std::string address_text(ByteView bytes);

/// The bytes that the reader skips without looking at them, up to the end or to where the message is damaged.
std::vector<Part> passed_over(const Type& type, ByteView message);

} // namespace epm::tool
