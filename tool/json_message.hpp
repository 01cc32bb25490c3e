// Messages as JSON. A record is an object with a member for each field; members whose name begins with $ hold what else
// is in the message, so that the same bytes come out again. docs/json.md describes the form.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <string>
#include <string_view>

namespace epm::tool {

namespace json_member {
inline constexpr const char* variant = "$variant"; ///< of a record or an enumeration, where it is not the newest
inline constexpr const char* flags = "$flags";     ///< flag byte, where it has bits that nothing else shows
inline constexpr const char* ra_block = "$ra";
inline constexpr const char* state = "$state"; ///< state flags by field; the record is tracked
inline constexpr const char* rest = "$rest";   ///< bytes that the reader passes over
inline constexpr const char* hex = "$hex";     ///< a text that is not UTF-8
inline constexpr const char* type = "type";    ///< of an imported value with a type, beside the next
inline constexpr const char* value = "value";
} // namespace json_member

/// Throws Damage if the message is damaged.
std::string to_json(const Type& type, ByteView message);
/// Throws a Failure with the place, a JSON pointer, of what does not belong to the type or does not fit.
Bytes from_json(const Type& type, std::string_view document);

} // namespace epm::tool
