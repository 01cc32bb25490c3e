// Records with every field set: distinct values that are no field's default, put in through the exported setters and
// read back through the exported getters.
//     Fill fill(D, seed);
//     fill.fill(record, x);      // x is an Instance of the record, fresh, made under the Domain's present agreement
//     fill.check(record, y);     // y holds the same, whatever way it took; true when it does
// Fields above the Instance's variant are passed over. The seed chooses values, lengths, the arm of a union, and
// between several ways to set a field. fields() counts the fields that the last run has met, nested ones included.
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
    void record(const Record& r, Instance* x);
    void union_record(const Record& r, Instance* x);
    void field(const Record& r, const Field& f, Instance* x);
    template <class T>
    void value(const Record& r, const Field& f, Instance* x, T wanted);
    void value(const Record& r, const Field& f, Instance* x);
    void object(const Record& r, const Field& f, Instance* x);
    Bytes object_bytes(const std::string& type);
    void text(const Record& r, const Field& f, Instance* x);
    void characters(const Record& r, const Field& f, Instance* x);
    void numbers(const Record& r, const Field& f, Instance* x);
    void run_of_bytes(const Record& r, const Field& f, Instance* x);
    void records(const Record& r, const Field& f, Instance* x);
    void embedded(const Record& r, const Field& f, Instance* x);
    void arm(const Record& r, const Field& f, Instance* x);
    void list(const Record& r, const Field& f, Instance* x);

    /// A new Instance of the record with its fields set; while checking, only the values are drawn.
    Instance* filled(const Record& r);
    void expect_length(const Record& r, const Field& f, Instance* x, std::size_t length);
    template <class T>
    void expect(const Record& r, const Field& f, const T& found, const T& wanted);
    unsigned draw() { return ++drawn_; }
    bool choose(unsigned of = 2) { return (seed_ + fields_) % of == 0; }
    std::string words(std::size_t length);

    TestDomain& D_;
    unsigned seed_;
    unsigned drawn_ = 0;
    std::size_t fields_ = 0;
    bool is_filling_ = false;
    bool is_right_ = true;
};

/// Gives every state flag below a record a value of its own, the next after `last`.
void mark_all(TestDomain& D, const Record& r, Instance* x, std::uint32_t& last);

} // namespace epm::test
