// Figures of a running program in the text format of Prometheus, in a file that is rewritten in one step, for a
// collector of text files.
#pragma once

#include <chrono>
#include <string>

namespace bus {

class Metrics {
public:
    /// An empty path writes nothing.
    explicit Metrics(std::string path) : path_(std::move(path)) {}

    bool is_due() const { return !path_.empty() && std::chrono::steady_clock::now() >= next_; }
    /// Begins a metric; those that end with _total count, others may fall.
    void begin(const std::string& name, const std::string& help);
    /// The labels are as in the format, without the braces.
    void sample(const std::string& labels, double value);
    /// Writes all samples since the last write. A failure is reported once.
    void write();

private:
    const std::string path_;
    std::string text_, name_;
    std::chrono::steady_clock::time_point next_;
    bool has_failed_ = false;
};

} // namespace bus
