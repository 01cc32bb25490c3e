// The policy file: one statement per line, as an operator writes it, and the content of a statement after reading it.
// What happens with a statement is decided elsewhere.
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
    std::optional<uint32_t> p_sequence, is_dacl, process_index, is_domain, ip_addr; // if the line has them
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

/// Reads one line. Returns nothing for an empty line or a comment, and nothing with a reason for a line that it
/// refuses.
std::optional<Statement> read_statement(const std::string& line, std::string& reason);

} // namespace exchange
