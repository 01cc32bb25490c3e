// Records with every field set: distinct values that are no field's default, put in through the exported setters and
// read back through the exported getters.
//     Fill fill(D, seed);
//     fill.fill(record, x);      // x is an Instance of the record, fresh, made under the Domain's present agreement
//     fill.check(record, y);     // y holds the same, whatever way it took; true when it does
// Fields above the Instance's variant are passed over. The seed chooses values, lengths, the arm of a union, and
// between all setters of a field. fields() counts the fields that the last run has met, nested ones included.
#pragma once

#include "support/domains.hpp"
#include "support/library.hpp"

#include <string>
#include <vector>

namespace epm::test {

using Instance = zur_instance;
using Bytes = std::vector<std::uint8_t>;

class Fill {
public:
    Fill(TestDomain& domain, unsigned seed) : D_(domain), seed_(seed) {}

    bool fill(const Record& r, Instance* x) { return run(r, x, true); }
    bool check(const Record& r, Instance* x) { return run(r, x, false); }
    std::size_t fields() const { return fields_; }

private:
    bool run(const Record& r, Instance* x, bool is_filling);

    TestDomain& D_;
    unsigned seed_;
    std::size_t fields_ = 0;
};

/// Gives every state flag below a record a value of its own, the next after `last`.
void mark_all(TestDomain& D, const Record& r, Instance* x, std::uint32_t& last);

} // namespace epm::test
