// What programs of the exchange tell people alike: refused lines of a policy file, how far a long run is, what a status
// means, and what a variant was not given.
#pragma once

#include "message.hpp"

#include <chrono>
#include <fstream>
#include <functional>

namespace exchange {

/// "status 90 (a message of the wrong length, ...)"
std::string status_text(uint32_t st);

/// Shows on a terminal how far a long run is.
class Progress {
public:
    explicit Progress(std::string unit);
    void at(uint64_t count);
    void clear();

private:
    const std::string unit_;
    const bool is_terminal_;
    std::chrono::steady_clock::time_point next_;
    bool is_shown_ = false;
};

/// Opens a file for reading, or reports why it cannot be read.
bool open_file(const char* file_name, std::ifstream& file);

/// Passes on each statement of a policy file with its line, and reports each line that is refused. Returns false when
/// a line was refused or the file could not be read to its end.
bool read_policy(const char* file_name, std::istream& file,
                 const std::function<void(uint32_t line, const Statement& statement)>& use);

/// The end of a summary: what could not be sent because of a peer's variant.
void show_not_given(uint64_t not_sent, const LeftOut& left_out);

} // namespace exchange
