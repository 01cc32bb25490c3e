// The comparison as a whole: all levels, what is accepted, and the verdict.
#include "tool/compat/compat.hpp"

#include "tool/compat/pairs.hpp"
#include "tool/failure.hpp"
#include "tool/nearest.hpp"

#include <algorithm>
#include <sstream>

namespace epm::tool::compat {

Findings compare(const Description& old, const Description& now) {
    const Pairs pairs(old, now);
    Findings findings;
    for (const auto level : {compare_abi, compare_wire, compare_xml, compare_traces}) level(pairs, findings);
    std::ranges::stable_sort(findings, {},
                             [](const Finding& f) { return std::pair(f.rule->level(), !f.rule->breaks); });
    return findings;
}

std::vector<Unused> accept(Findings& findings, std::string_view file) {
    std::vector<Unused> unused;
    std::istringstream lines{std::string(file)};
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string id, type, field = "*", more;
        if (!(words >> id)) continue;
        const auto refuse = [&](const std::string& reason) {
            throw Failure{is_damaged, "line " + std::to_string(number) + ": " + reason};
        };
        if (!(words >> type)) refuse("a rule without a type");
        words >> field;
        if (words >> more) refuse("more than a rule, a type and a field");
        if (find_rule(id) == nullptr) {
            std::vector<std::string> ids;
            for (const Rule& rule : rules) ids.emplace_back(rule.id);
            refuse("no rule " + id + suggestion(id, ids));
        }
        const auto is_meant = [](const std::string& word, const std::string& name) {
            return word == "*" || word == (name.empty() ? "-" : name);
        };
        bool is_used = false;
        for (Finding& f : findings)
            if (f.rule->breaks && f.rule->id == id && is_meant(type, f.type) && is_meant(field, f.field))
                is_used = f.is_accepted = true;
        if (!is_used) unused.push_back({number, id + " " + type + (field != "*" ? " " + field : "")});
    }
    return unused;
}

int exit_status(const Findings& findings) {
    int status = 0;
    for (const Finding& f : findings)
        if (f.counts()) status |= 16 << static_cast<int>(f.rule->level());
    return status;
}

} // namespace epm::tool::compat
