// The rules by which two descriptions are compared, and what a rule finds. docs/compat.md explains each rule.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace epm::tool::compat {

enum class Level { abi, wire, xml, trace };

inline constexpr const char* level_names[] = {"abi", "wire", "xml", "trace"};
inline constexpr std::size_t level_count = std::size(level_names);

struct Rule {
    std::string_view id; ///< its level, a dot and a word
    bool breaks;         ///< otherwise what it finds is only worth a note

    constexpr Level level() const {
        std::size_t n = 0;
        while (!id.starts_with(level_names[n]) || id[std::string_view(level_names[n]).size()] != '.') ++n;
        return static_cast<Level>(n);
    }
};

inline constexpr Rule rules[] = {
    {"abi.enumerator", true},
    {"abi.enumerator-name", false},
    {"abi.export-added", false},
    {"abi.export-lost", true},
    {"abi.flag-place", true},
    {"abi.import", true},
    {"abi.import-weak", false},
    {"abi.imported", true},
    {"abi.length", true},
    {"abi.links", true},
    {"abi.needed", true},
    {"abi.offset", true},
    {"abi.signature", true},
    {"abi.soname", true},
    {"abi.title", false},
    {"abi.type-order", false},
    {"abi.variant-added", false},
    {"abi.variant-withdrawn", true},
    {"abi.version-node", true},
    {"wire.arm-tag", true},
    {"wire.capacity", true},
    {"wire.compatibility-changed", false},
    {"wire.compatibility-kept", true},
    {"wire.enumerator-added", true},
    {"wire.enumerator-number", true},
    {"wire.enumerator-removed", true},
    {"wire.enumerator-renamed", false},
    {"wire.enumerator-variant", true},
    {"wire.field-inserted", true},
    {"wire.field-moved", true},
    {"wire.field-removed", true},
    {"wire.field-renamed", false},
    {"wire.field-retyped", true},
    {"wire.field-variant", true},
    {"wire.identity", true},
    {"wire.identity-reused", true},
    {"wire.imported-framing", true},
    {"wire.kind", true},
    {"wire.length-field", true},
    {"wire.same-bytes", false},
    {"wire.type-added", false},
    {"wire.type-lost", true},
    {"wire.type-renamed", false},
    {"wire.variant-added", false},
    {"wire.variant-skipped", true},
    {"wire.variant-withdrawn", false},
    {"xml.capacity", true},
    {"xml.enumerator-lost", true},
    {"xml.enumerator-renamed", true},
    {"xml.field-lost", true},
    {"xml.field-renamed", true},
    {"xml.text-added", true},
    {"xml.type-lost", true},
    {"xml.type-renamed", true},
    {"xml.value-form", true},
    {"trace.digest-changed", true},
    {"trace.digest-kept", true},
    {"trace.identifier-changed", true},
    {"trace.identifier-reused", true},
    {"trace.indices", false},
};

constexpr const Rule* find_rule(std::string_view id) {
    for (const Rule& rule : rules)
        if (rule.id == id) return &rule;
    return nullptr;
}

/// The rule of this name, which must exist.
consteval const Rule& rule(std::string_view id) {
    return *find_rule(id);
}

struct Finding {
    const Rule* rule;
    std::string type;  ///< empty: the library as a whole
    std::string field; ///< or enumerator; empty: the type as a whole
    std::string sentence;
    std::vector<std::string> details; ///< each thing that the sentence sums up
    bool is_accepted = false;

    bool counts() const { return rule->breaks && !is_accepted; }
};

using Findings = std::vector<Finding>;

} // namespace epm::tool::compat
