// Shows the type compatibility manifest of a library file.
#pragma once

#include "tool/input.hpp"

#include <ostream>

namespace epm::tool {

/// Of a damaged manifest writes everything up to the fault, then throws it.
void show_manifest(ByteView library, bool is_json, std::ostream& out);

} // namespace epm::tool
