// The public half of a user's NKey, which the server asks for and the seed file does not hold.
#pragma once

#include <optional>
#include <string>

namespace bus {

/// Returns nothing for a text that is no seed of a user.
std::optional<std::string> public_nkey(const std::string& seed);

} // namespace bus
