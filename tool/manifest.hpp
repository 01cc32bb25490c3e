// The type compatibility manifest of a library file, shown.
#pragma once

#include "tool/input.hpp"

#include <ostream>

namespace epm::tool {

/// Of a damaged manifest everything up to the fault, and then throws it.
void show_manifest(ByteView library, bool is_json, std::ostream& out);

} // namespace epm::tool
