// The sections of a library file that tools read, found in the file's bytes. The file may be anybody's: only a 64-bit
// little-endian ELF file is looked into, and every place that it names is held against its end.
#pragma once

#include "tool/input.hpp"

#include <cstddef>
#include <string_view>

namespace epm::tool {

struct Section {
    std::string_view name;
    std::size_t offset; ///< in the file
    ByteView bytes;
};

enum class Match { whole, start };

/// The first section of this name, or whose name begins so. Throws Damage where the file is damaged, a Failure where it
/// has no such section.
Section section_named(ByteView file, std::string_view name, Match match = Match::whole);

/// A little-endian number of at most 4 bytes, which must be there.
std::uint32_t little_endian(ByteView bytes, std::size_t at, std::size_t width);

} // namespace epm::tool
