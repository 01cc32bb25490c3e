// The trace catalogue of a library file, shown.
#pragma once

#include "tool/input.hpp"

#include <optional>
#include <ostream>

namespace epm::tool {

/// All messages, or the one of an index. Of a damaged catalogue everything up to the fault, and then throws it.
void show_traces(ByteView library, std::optional<std::uint32_t> index, bool is_json, std::ostream& out);

} // namespace epm::tool
