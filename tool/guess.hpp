// Which types a message can be of: each type's reading of the bytes, and what speaks against it.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <ostream>

namespace epm::tool {

struct Guess {
    const Type* type;
    std::size_t rank;          ///< from 1; types that fit equally well have the same
    std::uint32_t choices = 0; ///< numbers that the enumeration has a name for in the message's variant
    std::size_t offset = 0;    ///< where the reading ends, if it does not reach the end
    std::string fault;         ///< empty if these bytes can be of the type
    std::vector<std::string> doubts;
};

/// Those that the bytes can be of come first, those with the fewest doubts first among them. The others follow, those
/// that were read the farthest first.
std::vector<Guess> guesses(ByteView message);

/// Writes the guesses. Returns whether there is a type that the bytes can be of.
bool show_guesses(ByteView message, bool is_json, std::ostream& out);

} // namespace epm::tool
