// What the entries of all kinds of fields share, and one function for each kind.
#pragma once

#include "stamp/operation.hpp"

namespace epm::stamp {

Operations plain_field_operations(const Field& f);
Operations text_field_operations(const Field& f);
Operations arm_field_operations();
Operations array_field_operations(const Field& f);
Operations list_field_operations();

inline const Parameter owner = instance("the record");
inline const Parameter const_owner = const_instance("the record; not changed");
inline const Parameter failing_domain{
    "zur_domain*", "D", "the Domain; its cr_set_id names the store set, its last_error is the status word"};

inline const Status no_field{ZUR_NOT_IN_VARIANT, "the variant lacks the field"};
inline const Status stored_untracked{
    ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the value is stored, but its state flag is not"};
inline const Status no_element{ZUR_ABSENT, "there is no such element"};
/// What an imported field type adds; types of this Bundle are covered by the numbers before it.
inline Status from_type(const Field& f) {
    return {any_status, "the field type's own operation leaves", f.of == catalogue::Of::foreign};
}

inline const std::string one_write = "no allocation; one announced write, and one byte more in tracked mode";

/// The form of an operation for chains of calls: no store set, no status word, and last_error as the result.
inline Operation chained(Operation o, std::string brief) {
    o.name += "_cr";
    o.result = "uint32_t";
    o.parameters.front() = failing_domain;
    o.parameters.erase(o.parameters.begin() + 1);
    o.parameters.pop_back();
    if (!o.call.empty()) o.call += "_chained";
    o.brief = std::move(brief);
    o.returns = "last_error: 0 when all is well";
    return o;
}

} // namespace epm::stamp
