// Shows the trace catalogue of a library file.
#pragma once

#include "tool/input.hpp"

#include <optional>
#include <ostream>

namespace epm::tool {

/// Shows all messages, or the one with an index. Of a damaged catalogue everything up to the fault, then throws it.
void show_traces(ByteView library, std::optional<std::uint32_t> index, bool is_json, std::ostream& out);

} // namespace epm::tool
