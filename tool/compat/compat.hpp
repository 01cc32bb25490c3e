// Says whether one library may take the place of another, at four levels: programs, peers, documents, traces.
#pragma once

#include "tool/compat/description.hpp"
#include "tool/compat/finding.hpp"

#include <ostream>

namespace epm::tool::compat {

/// Everything that the new library does differently, by level; in a level what breaks comes first.
Findings compare(const Description& old, const Description& now);

/// A line of a file of accepted findings that accepts nothing.
struct Unused {
    std::size_t line;
    std::string text;
};

/// Marks the findings that the file accepts. Each line is a rule, a type and, if only that one is meant, a field; `*`
/// stands for any, `-` for none, and `#` begins a comment. Throws a Failure.
std::vector<Unused> accept(Findings& findings, std::string_view file);

/// The levels at which something breaks that is not accepted, a bit for each: 16 abi, 32 wire, 64 xml, 128 trace.
int exit_status(const Findings& findings);

/// Both libraries as the caller has named them, and what to tell of them.
struct Comparison {
    std::string old_name, new_name;
    const Description &old, &now;
    const Findings& findings;
    const std::vector<Unused>& unused;
};

void write_text(const Comparison& comparison, std::ostream& out);
void write_json(const Comparison& comparison, std::ostream& out);
/// JUnit's XML: a test suite for each level, with a test case for each type and one for the library as a whole.
std::string junit(const Comparison& comparison);

} // namespace epm::tool::compat
