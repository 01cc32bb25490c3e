// The families of operations: what each stamps for a type and for a field, and over how many files its exports are
// spread.
#pragma once

#include "stamp/operation.hpp"

namespace epm::stamp {

struct Family {
    const char* name;
    std::vector<const char*> includes;
    std::size_t files;
    Operations (*of_record)(const Record&);
    Operations (*of_enum)(const Enum&);
    Operations (*of_field)(const Record&, const Field&) = [](const Record&, const Field&) { return Operations{}; };
};

Family lifecycle_family();
Family wire_family();
Family access_family();
Family text_family();

/// In the order of a type's exports.
inline const std::vector<Family>& families() {
    static const std::vector<Family> all = {lifecycle_family(), wire_family(), access_family(), text_family()};
    return all;
}

/// Operations of the Bundle itself.
Operations frame_operations();

} // namespace epm::stamp
