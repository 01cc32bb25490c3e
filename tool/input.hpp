// What the tool reads: a file or standard input, whole, as bytes or as hexadecimal digits.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace epm::tool {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// Longer messages, documents and libraries are refused, so that what is made of them stays small as well.
inline constexpr std::size_t most_message = 16u << 20;
inline constexpr std::size_t most_library = 256u << 20;

/// `-` is standard input. Throws a Failure.
Bytes read_file(const std::string& name, std::size_t most);

/// Pairs of digits. White space is passed over, and the rest of a line behind `#`. Throws Damage at an offset in the
/// text.
Bytes from_hex(std::string_view text);

std::string to_hex(ByteView bytes);

/// Printable ASCII as it is, any other byte, the quotation mark and the backslash as a backslash and two digits.
std::string escaped(ByteView bytes);

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace epm::tool
