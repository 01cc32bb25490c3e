// Finds the sections of a library file that tools read. The file may come from anybody: only a 64-bit little-endian ELF
// file is accepted, and every place that it names is checked against its end.
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

/// The first section with this name, or whose name begins with it. Throws Damage if the file is damaged, and a Failure
/// if it has no such section.
Section section_named(ByteView file, std::string_view name, Match match = Match::whole);

/// A little-endian number of at most 4 bytes. The bytes must exist.
std::uint32_t little_endian(ByteView bytes, std::size_t at, std::size_t width);

} // namespace epm::tool
