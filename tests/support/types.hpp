// The 58 types and their numbers as they are kept in expected/layouts.txt, which is not made from the catalogue at
// hand, and the few operations that most tests need by a type's name.
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
};

/// In type-table order.
const std::vector<TypeNumbers>& all_types();

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
