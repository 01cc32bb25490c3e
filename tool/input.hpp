// What the tool reads and writes: a whole file, or standard input; and bytes as words.
#pragma once

#include "catalogue/hex.hpp"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace epm::tool {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// Longer messages, documents and libraries are refused, so that the tool's output stays limited too.
inline constexpr std::size_t most_message = 16u << 20;
inline constexpr std::size_t most_library = 256u << 20;

struct CloseInput {
    void operator()(std::FILE* file) const;
};
using InputFile = std::unique_ptr<std::FILE, CloseInput>;

/// `-` is standard input. Throws a Failure, as the next two do.
InputFile open_input(const std::string& name);
/// Reads to the end, and calls `take` with each block.
void each_block(std::FILE* file, const std::function<void(ByteView)>& take);
Bytes read_file(const std::string& name, std::size_t most);
/// Writes the whole file or, after a failure, leaves it as it was: the content goes into a new file beside it, which is
/// then renamed. A file that is not an ordinary one is written directly. Throws a Failure.
void write_file(const std::string& name, std::string_view content);

/// Returns nothing if the text is not all of a number from -128 to 127.
std::optional<std::int8_t> variant_from(std::string_view text);

/// Returns nothing if the text is not all pairs of hexadecimal digits.
std::optional<Bytes> bytes_of(std::string_view pairs);

using catalogue::to_hex;

/// Keeps printable ASCII. Any other byte, the quotation mark and the backslash become a backslash and two digits.
std::string escaped(ByteView bytes);
std::string escaped(std::string_view text);

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace epm::tool
