// Writes the text format: a help line and a type line for each metric, then its samples.
#include "metrics.hpp"

#include "files.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace bus {

void Metrics::begin(const std::string& name, const std::string& help) {
    name_ = "policy_bus_" + name;
    text_ +=
        "# HELP " + name_ + ' ' + help + "\n# TYPE " + name_ + (name.ends_with("_total") ? " counter\n" : " gauge\n");
}

void Metrics::sample(const std::string& labels, double value) {
    char number[32];
    std::snprintf(number, sizeof number, "%.17g", value);
    text_ += name_ + '{' + labels + "} " + number + '\n';
}

void Metrics::write() {
    next_ = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    if (!path_.empty() && !replace_file(path_, text_, false) && !has_failed_) {
        has_failed_ = true;
        std::fprintf(stderr, "policy_bus: %s: %s\n", path_.c_str(), std::strerror(errno));
    }
    text_.clear();
}

} // namespace bus
