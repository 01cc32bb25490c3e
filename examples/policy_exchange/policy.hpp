// The policy file: one statement on a line, as an operator writes it, and what a statement says once it is read. What
// becomes of it is not known here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace exchange {

struct AccessEntry {
    std::string list;
    uint32_t sequence = 0;
    std::string name;
    bool is_ipv4 = false;
    bool is_create = false;
    std::optional<uint32_t> p_sequence, is_dacl, process_index, is_domain, ip_addr; // where the line gives them
};

struct Application {
    std::string list;
    uint64_t interface_id = 0;
    std::optional<uint32_t> priority, flag;
};

struct PreAuthentication {
    bool is_create = false;
};

struct Download {
    std::string list;
    bool is_success = false;
};

using Statement = std::variant<AccessEntry, Application, PreAuthentication, Download>;

/// The format of a policy file, for people.
extern const char policy_format[];

/// Reads one line. Nothing comes back for a line that says nothing, and, with a reason, for a line that is refused.
std::optional<Statement> read_statement(const std::string& line, std::string& reason);

} // namespace exchange
