// The sub-command store is a program of its own beside the tool, because it needs a library that the tool does not.
#pragma once

#include <string>
#include <vector>

namespace epm::tool {

/// Becomes that program: an action, which is list, show, check or export, then the file and what the action needs.
/// Throws a Failure where it is not installed.
[[noreturn]] void run_store_program(const std::vector<std::string>& arguments);

} // namespace epm::tool
