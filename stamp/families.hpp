// The families of operations: which files of operations/ have their entries, where their templates are, and over how
// many files their exports are spread.
#pragma once

#include "stamp/entries.hpp"

namespace epm::stamp {

struct Family {
    const char* name; ///< also of the file with the entries for whole types
    std::vector<const char*> field_entries;
    std::size_t files;
    std::vector<const char*> includes;
    const char* element_entries = nullptr; ///< file with the entries for elements of lists
};

/// In the order of a type's exports.
inline const std::vector<Family> families = {
    {"lifecycle", {"state_flags"}, 2, {"lifecycle/destroy.hpp", "lifecycle/embedding.hpp", "lifecycle/variants.hpp"}},
    {"wire", {}, 4, {"wire/clone.hpp", "wire/compare.hpp", "wire/hash.hpp", "wire/length.hpp", "wire/validity.hpp"}},
    {"access",
     {"plain_field", "text_field", "arm_field", "array_field", "list_field"},
     4,
     {"access/arm_field.hpp", "access/array_of_records.hpp", "access/bulk.hpp", "access/characters_field.hpp",
      "access/list.hpp", "access/text_field.hpp"},
     "list_element"},
    {"text", {}, 3, {"text/from_xml.hpp", "text/print.hpp", "text/to_xml.hpp"}},
};

} // namespace epm::stamp
