// Suggests what somebody may have meant by an unknown name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace epm::tool {

/// "; did you mean A, B?" with the names nearest to the word, or with a part nearest to it. Empty if none is near.
std::string suggestion(std::string_view word, const std::vector<std::string>& names);

} // namespace epm::tool
