// The types of the catalogue with their numbers, records first, and the few operations that most tests need by a
// type's name.
#pragma once

#include "support/domains.hpp"
#include "support/library.hpp"

#include <string>
#include <vector>

namespace epm::test {

using Instance = zur_instance;

struct TypeNumbers {
    std::string name;
    bool is_enum = false;
    std::vector<std::size_t> used; ///< used length by variant
    std::size_t size = 0;
    std::size_t tracked = 0; ///< size with state flags
    const zur_type_info* info = type_info_of(name);
};

/// In type-table order.
inline const std::vector<TypeNumbers>& all_types() {
    static const std::vector<TypeNumbers> all = [] {
        std::vector<TypeNumbers> list;
        for (const Record* r : catalogue::all_records) {
            const catalogue::Layout l = catalogue::lay_out(*r);
            const auto end = l.used.begin() + r->top() + 1;
            list.push_back({r->name, false, {l.used.begin(), end}, l.size(*r), l.size(*r) + l.block_length(*r)});
        }
        for (const Enum* e : catalogue::all_enums)
            list.push_back(
                {e->name, true, std::vector<std::size_t>(static_cast<std::size_t>(e->top()) + 1, 16), 16, 16});
        return list;
    }();
    return all;
}

/// The description of a record; null for an enumeration.
inline const Record* record_named(const std::string& type) {
    for (const Record* r : catalogue::all_records)
        if (type == r->name) return r;
    return nullptr;
}

inline Instance* create(const std::string& type, TestDomain& D) {
    return operation<Instance*(zur_domain*, std::uint32_t)>(type, "create")(D, D.set_id());
}

inline void destroy(const std::string& type, TestDomain& D, Instance* x) {
    operation<void(zur_domain*, std::uint32_t, Instance*)>(type, "destroy")(D, D.set_id(), x);
}

} // namespace epm::test
