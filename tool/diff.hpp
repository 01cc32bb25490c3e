// How two messages of one type differ, field by field.
#pragma once

#include "tool/types.hpp"

#include <ostream>
#include <string>

namespace epm::tool {

struct DiffForm {
    bool is_json = false;
    bool has_state_flags = false; ///< also compare these
};

/// Writes a line for each field that differs, and how many there are. Returns whether one does.
/// Takes the messages as JSON.
bool show_diff(const Type& type, const std::string& a, const std::string& b, DiffForm form, std::ostream& out);

} // namespace epm::tool
