// What the tool reads and writes: a file, whole, or standard input; and bytes as words.
#pragma once

#include <cstdint>
#include <optional>
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
/// A file is there as a whole or, after a failure, as it was before: the content goes into a new file beside it, which
/// takes its name. What is no ordinary file is written itself. Throws a Failure.
void write_file(const std::string& name, std::string_view content);

/// Nothing for what is not pairs of hexadecimal digits throughout.
std::optional<Bytes> bytes_of(std::string_view pairs);

std::string to_hex(ByteView bytes);

/// Printable ASCII as it is, any other byte, the quotation mark and the backslash as a backslash and two digits.
std::string escaped(ByteView bytes);
std::string escaped(std::string_view text);

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace epm::tool
