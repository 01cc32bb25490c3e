// What can be wrong with the tool's input, and the exit statuses for it. Readers throw; the command line adds the
// file's name and prints the message.
#pragma once

#include <cstddef>
#include <string>

namespace epm::tool {

enum ExitStatus { is_good = 0, is_damaged = 1, is_bad_call = 2, has_no_file = 3 };

/// What was read is damaged. The offset is in bytes: of the message, or of the library file.
struct Damage {
    std::size_t offset;
    std::string reason;
};

/// What was read is refused as a whole, or could not be read at all.
struct Failure {
    ExitStatus status;
    std::string reason;
};

} // namespace epm::tool
