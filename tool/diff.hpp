// How two messages of one type differ, field by field.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <ostream>

namespace epm::tool {

struct DiffForm {
    bool is_json = false;
    bool has_state_flags = false; ///< also compare these
};

/// Writes a line for each field that differs, and how many there are. Returns whether one does.
bool show_diff(const Type& type, ByteView a, ByteView b, DiffForm form, std::ostream& out);

} // namespace epm::tool
