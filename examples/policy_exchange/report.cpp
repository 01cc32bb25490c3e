// Writes reports to standard error and summaries to standard output.
#include "report.hpp"

#include <platform/domain.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace exchange {

namespace {

constexpr std::chrono::milliseconds progress_interval(200);

} // namespace

std::string status_text(uint32_t st) {
    return "status " + std::to_string(st) + " (" + platform_status_text(st) + ")";
}

Progress::Progress(std::string unit)
    : unit_(std::move(unit)), is_terminal_(isatty(STDERR_FILENO) != 0),
      next_(std::chrono::steady_clock::now() + progress_interval) {}

void Progress::at(uint64_t count) {
    const auto now = std::chrono::steady_clock::now();
    if (!is_terminal_ || now < next_) return;
    next_ = now + progress_interval;
    is_shown_ = std::fprintf(stderr, "\r%" PRIu64 " %s", count, unit_.c_str()) > 0;
}

void Progress::clear() {
    if (std::exchange(is_shown_, false)) std::fputs("\r\033[K", stderr);
}

bool open_file(const char* file_name, std::ifstream& file) {
    file.open(file_name);
    if (file && (file.peek(), !file.bad())) return true;
    std::fprintf(stderr, "%s: %s\n", file_name, std::strerror(errno));
    return false;
}

bool read_policy(const char* file_name, std::istream& file,
                 const std::function<void(uint32_t line, const Statement& statement)>& use) {
    bool is_good = true;
    Progress progress("lines");
    std::string text, reason;
    for (uint32_t line = 1; std::getline(file, text); ++line) {
        progress.at(line);
        const std::optional<Statement> statement = read_statement(text, reason);
        if (statement) use(line, *statement);
        if (reason.empty()) continue;
        progress.clear();
        std::fprintf(stderr, "%s:%" PRIu32 ": %s\n", file_name, line, reason.c_str());
        is_good = false;
    }
    progress.clear();
    if (!file.bad()) return is_good;
    std::fprintf(stderr, "%s: %s\n", file_name, std::strerror(errno));
    return false;
}

void show_not_given(uint64_t not_sent, const LeftOut& left_out) {
    std::printf("  messages not sent    %" PRIu64 "\n", not_sent);
    std::printf("  fields not given%s\n", left_out.empty() ? "     none" : "");
    for (const auto& [name, count] : left_out) std::printf("    %s: %" PRIu64 "\n", name.c_str(), count);
}

} // namespace exchange
