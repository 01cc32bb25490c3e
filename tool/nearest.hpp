// What somebody may have meant by a name that there is not.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace epm::tool {

/// "; did you mean A, B?" with the names that are nearest to the word or to whose part it is nearest; nothing where
/// none is near.
std::string suggestion(std::string_view word, const std::vector<std::string>& names);

} // namespace epm::tool
