// The sections of a library file that tools read. The stand-in's trace reader finds them; the file may come from
// anybody.
#pragma once

#include "tool/input.hpp"

#include <platform/trace.h>

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
Section section_named(ByteView file, const char* name, Match match = Match::whole);

/// Throws what is wrong with a file as Damage or as a Failure.
[[noreturn]] void throw_fault(const platform_fault& fault);

/// A little-endian number of at most 4 bytes. The bytes must exist.
std::uint32_t little_endian(ByteView bytes, std::size_t at, std::size_t width);

} // namespace epm::tool
