// What readers of traces rely on. A recorded trace has the digest of its catalogue and an index, which means nothing in
// another catalogue; so indices may change if the digest does. Identifiers hold across builds.
#include "tool/compat/pairs.hpp"

#include <map>

namespace epm::tool::compat {

namespace {

/// What a message says; equal ones stand for each other.
using Words = std::pair<std::string, std::string>;

std::string at(const Message& message, std::size_t index) {
    return "index " + std::to_string(index) + ", " + message.key + ":" + message.text;
}

void compare_digests(const Pairs& pairs, Findings& findings) {
    const std::vector<Message>&old = pairs.old.messages, &now = pairs.now.messages;
    const auto says_same = [](const Message& a, const Message& b) { return a.key == b.key && a.text == b.text; };
    const auto [a, b] = std::ranges::mismatch(old, now, says_same);
    const bool is_same = a == old.end() && b == now.end(), is_kept = pairs.old.trace_digest == pairs.now.trace_digest;
    const auto first = static_cast<std::size_t>(a - old.begin());
    std::vector<std::string> details;
    if (a != old.end()) details.push_back("was " + at(*a, first));
    if (b != now.end()) details.push_back("now " + at(*b, first));
    if (!is_same && is_kept)
        findings.push_back(
            {&rule("trace.digest-kept"), "", "",
             "The messages have changed, but the catalogue's digest has not: readers show wrong texts for "
             "traces of the other library.",
             details});
    if (is_same && !is_kept)
        findings.push_back(
            {&rule("trace.digest-changed"),
             "",
             "",
             "The catalogue's digest has changed, but no message has: readers do not accept this file for "
             "traces of the old library, although it has their texts.",
             {pairs.old.trace_digest + ", now " + pairs.now.trace_digest}});
    if (!is_same && !is_kept)
        findings.push_back(
            {&rule("trace.indices"), "", "",
             "From this index on messages differ: keep the old library's file for as long as its traces.", details});
}

void compare_identifiers(const Pairs& pairs, Findings& findings) {
    std::map<Words, std::set<std::size_t>> identifiers;
    std::unordered_map<std::size_t, std::set<Words>> words;
    for (const Message& m : pairs.old.messages) {
        identifiers[{m.key, m.text}].insert(m.identifier);
        words[m.identifier].insert({m.key, m.text});
    }
    std::vector<std::string> changed, reused;
    for (std::size_t i = 0; i < pairs.now.messages.size(); ++i) {
        const Message& m = pairs.now.messages[i];
        const auto before = identifiers.find({m.key, m.text});
        if (before != identifiers.end() && !before->second.contains(m.identifier)) changed.push_back(at(m, i));
        const auto meant = words.find(m.identifier);
        if (meant != words.end() && !meant->second.contains({m.key, m.text})) reused.push_back(at(m, i));
    }
    if (!changed.empty())
        findings.push_back({&rule("trace.identifier-changed"), "", "",
                            "Messages have new identifiers: readers of several builds take them for other messages.",
                            std::move(changed)});
    if (!reused.empty())
        findings.push_back(
            {&rule("trace.identifier-reused"), "", "",
             "Messages have the identifier of an old message that said something else: readers of several "
             "builds take one for the other.",
             std::move(reused)});
}

} // namespace

void compare_traces(const Pairs& pairs, Findings& findings) {
    compare_digests(pairs, findings);
    compare_identifiers(pairs, findings);
}

} // namespace epm::tool::compat
