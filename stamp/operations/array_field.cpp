// Exported operations of arrays that grow and of fixed runs, with the state flags of their elements.
#include "stamp/operations/access.hpp"

namespace epm::stamp {

namespace {

const Parameter flag{"uint32_t", "flag", "the new flag, its low 8 bits"};
const Status untracked{ZUR_BAD_ARGUMENT, "the Domain or the record does not track"};
const char* const one_read = "no runtime call unless the state-flag block has moved";

Parameter index_parameter(const Field& f) {
    return argument("uint32_t", "index",
                    f.kind == Kind::run ? "number of the element, 0 to {last}"
                                        : "number of the element, below {length}");
}

const Parameter growing_index{"uint32_t", "index",
                              "number of the element; from {length} on, the array grows to index + 1 elements, with "
                              "zeros in between"};

Operations flag_operations(const Field& f) {
    return {
        {.name = "state_flag_get",
         .result = "uint8_t",
         .parameters = {domain, set_id, owner, index_parameter(f), status},
         .call = "access::element_flag_get",
         .brief = "Read the state flag of one element of {field}.",
         .returns = "the flag, 2 after a set; 0 on failure, and for elements that came without flags",
         .statuses = {untracked, no_element},
         .cost = one_read},
        {.name = "state_flag_set",
         .parameters = {domain, set_id, owner, index_parameter(f), flag, status},
         .call = "access::element_flag_set",
         .brief = "Write the state flag of one element of {field}.",
         .statuses = {untracked, no_field, {ZUR_ABSENT, "there is no such element, or it came without flags"}},
         .cost = "one announced byte"},
        {.name = "state_flag_whole_get",
         .result = "uint8_t",
         .parameters = {domain, set_id, owner, status},
         .call = "lifecycle::state_flag_get",
         .brief = "Read the whole flag of {field}, which says that the array has changed.",
         .returns = "the flag, 2 after a set; 0 on failure",
         .statuses = {untracked},
         .cost = one_read,
         .template_arguments = "epm::trace::Operation::whole_get"},
        {.name = "state_flag_whole_set",
         .parameters = {domain, set_id, owner, flag, status},
         .call = "lifecycle::state_flag_set",
         .brief = "Write the whole flag of {field}, which says that the array has changed.",
         .statuses = {untracked, no_field},
         .cost = "one announced byte",
         .template_arguments = "epm::trace::Operation::whole_set"},
        {.name = "state_flag_get_arr",
         .parameters = {domain, set_id, owner,
                        argument("uint8_t**", "out",
                                 "receives the address of the element flags; null where there are none"),
                        status},
         .call = "access::element_flags_get",
         .brief = "Get the address of the state flags of all elements of {field}.",
         .ownership = "the flags stay the record's and are valid until the number of elements "
                      "changes",
         .statuses = {untracked},
         .cost = one_read},
        {.name = "state_flag_set_arr",
         .parameters = {domain, set_id, owner, argument("const uint8_t*", "source", "count bytes"),
                        argument("uint32_t", "count", "the exact number of elements"), status},
         .call = "access::element_flags_set",
         .brief = "Copy bytes over the start of the record's own state flags, as far as these reach, without "
                  "announcing the write.",
         .details = {{"Element flags are not written. Where the record holds a pointer to them, enough bytes overwrite "
                      "it: use state_flag_set() for a single element."}},
         .statuses = {untracked, no_field, {ZUR_ABSENT, "count is not the number of elements"}},
         .cost = "one copy"},
    };
}

Operation get(const Field& f) {
    return {.name = "get",
            .result = "{storage}",
            .parameters = {domain, set_id, owner, index_parameter(f), status},
            .brief = "Hand out one element of {field}.",
            .details = {{"{doc}"}},
            .returns = "the element inside the array; null on failure",
            .ownership = "the result stays the record's and is valid until the number of elements changes",
            .statuses = {no_field, no_element, from_type(f)},
            .cost = "no allocation"};
}

Operation get_value(const Field& f) {
    return {.name = "get_value",
            .result = "{value}",
            .parameters = {domain, set_id, const_owner, index_parameter(f), status},
            .brief = "Read one element of {field}.",
            .details = {{"{doc}"}},
            .returns = "the value; 0 on failure",
            .statuses = {no_field, no_element, from_type(f)},
            .cost = "no allocation"};
}

Operation get_mem(const Parameter& count) {
    return {.name = "get_mem",
            .parameters = {domain, set_id, const_owner, argument("{value}*", "destination", "receives count values"),
                           count, status},
            .brief = "Copy elements of {field} out.",
            .details = {{"{doc}"}},
            .statuses = {no_field, {ZUR_BAD_ARGUMENT, "count is more than there are; nothing is copied"}},
            .cost = "one copy"};
}

Operation chained_set_mem(const Operation& set_mem) {
    return chained(set_mem, "Set elements of {field} in a chain of `_cr` calls.");
}

// ---- fixed runs ----

Operations run_operations(const Field& f) {
    const Operation set_mem = {
        .name = "set_mem",
        .parameters = {domain, set_id, owner,
                       argument("const {value}*", "source", "count values; null allowed when count is 0"),
                       argument("int32_t", "count", "values to take, 0 to {capacity}"), status},
        .brief = "Set the first elements of {field}.",
        .details = {{"The other elements keep their values, and all element flags stay."}},
        .statuses = {no_field,
                     {ZUR_BAD_ARGUMENT, "count is out of range; nothing changes"},
                     {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; nothing changes"}},
        .cost = "no allocation; one announced copy"};
    return {
        {.name = "set",
         .parameters = {domain, set_id, owner,
                        argument("uint32_t", "index", "number of the element, 0 to {last}; not checked"),
                        argument("{storage}", "source", "the new value; with null nothing happens"), status},
         .brief = "Set one element of {field}.",
         .details = {{"{doc}"}},
         .statuses = {no_field,
                      {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the element is stored, but its "
                                         "flag is not"},
                      from_type(f)},
         .cost = one_write},
        get_value(f),
        {.name = "set_value",
         .parameters = {domain, set_id, owner, index_parameter(f), argument("{value}", "value", "the new value"),
                        status},
         .brief = "Set one element of {field}.",
         .details = {{"{doc}"}},
         .statuses = {no_field, stored_untracked, no_element, from_type(f)},
         .cost = one_write},
        get_mem(argument("int32_t", "count", "elements to copy, beginning with the first")),
        set_mem,
        chained_set_mem(set_mem),
    };
}

// ---- arrays that grow ----

const Status no_growth{ZUR_NO_MEMORY, "the Domain refuses memory; elements and length stay as they are"};
const Status no_flags{ZUR_NO_MEMORY,
                      "the Domain refuses memory for the state flags; the array has grown and has no element flags"};
const char* const growth = "within the array, no allocation; growth allocates the exact size and copies the rest, so "
                           "filling an array element by element is quadratic";

Operations value_array_operations(const Field& f) {
    const Operation set = {
        .name = "set",
        .parameters = {domain, set_id, owner, growing_index,
                       argument("{storage}", "source", "the new value; with null the array only grows"), status},
        .brief = "Set one element of {field}.",
        .details = {{"{doc}"}},
        .statuses = {no_field,
                     {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; nothing changes"},
                     no_growth,
                     no_flags,
                     from_type(f)},
        .cost = growth};
    const Operation set_mem = {
        .name = "set_mem",
        .parameters = {domain, set_id, owner,
                       argument("const {value}*", "source", "count values; null allowed when count is 0"),
                       argument("uint32_t", "count", "values to take, and the number of elements afterwards"), status},
        .brief = "Replace all elements of {field}.",
        .details = {{"The element flags are 0 afterwards."}},
        .statuses = {no_field,
                     {ZUR_NO_MEMORY, "the Domain refuses memory for the elements; the old ones are gone, and {length} "
                                     "is wrong until the array is set again"},
                     {ZUR_NO_MEMORY, "the Domain refuses memory for the state flags; the elements are set"},
                     {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the old elements are gone, and "
                                        "{length} is wrong until the array is set again"}},
        .cost = "one allocation for all elements, and in tracked mode one for their flags"};
    Operation set_cr = chained(set, "Set one element of {field} in a chain of `_cr` calls.");
    set_cr.parameters.back() = argument("{value}", "value", "the new value");
    return {
        set,
        get_value(f),
        {.name = "set_value",
         .parameters = {domain, set_id, owner, growing_index, argument("{value}", "value", "the new value"), status},
         .brief = "Set one element of {field}.",
         .details = {{"{doc}"}},
         .statuses = {no_field,
                      {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; an element of the array is stored "
                                         "without its state flag, and the array does not grow"},
                      no_growth,
                      no_flags,
                      from_type(f)},
         .cost = growth},
        get_mem(argument("uint32_t", "count", "elements to copy, beginning with the first")),
        set_mem,
        chained_set_mem(set_mem),
        set_cr,
    };
}

Operations record_array_operations() {
    const Operation set = {
        .name = "set",
        .parameters = {domain, set_id, owner, growing_index,
                       argument("{storage}", "source",
                                "a record; with null the array only grows, which tracked mode does not allow"),
                       argument(
                           "uint32_t", "move",
                           "0: a deep copy is made; else the content moves as with the record's own set, and what the "
                           "element held is not released"),
                       status},
        .brief = "Set one element of {field}.",
        .details = {{"{doc}"}},
        .statuses = {no_field,
                     {ZUR_NOT_IN_VARIANT, "the move is refused"},
                     {ZUR_BAD_ARGUMENT, "the Domain tracks and the record or the source does not; nothing changes"},
                     no_growth,
                     no_flags,
                     {ZUR_ABSENT, "there is no workspace for a copy"},
                     {ZUR_WRONG_LENGTH, "the workspace is too small for a copy"},
                     {any_status, "reading the copy leaves; the element then holds what has been read"}},
        .cost = "within the array, no allocation; growth allocates the exact size and copies the rest, so filling an "
                "array element by element is quadratic; a deep copy goes through the wire form"};
    return {set, chained(set, "Set one element of {field} in a chain of `_cr` calls.")};
}

} // namespace

Operations array_field_operations(const Field& f) {
    Operations all = flag_operations(f);
    all.push_back(get(f));
    append(all, f.kind == Kind::run ? run_operations(f)
                : f.is_of_record()  ? record_array_operations()
                                    : value_array_operations(f));
    if (f.kind == Kind::array)
        all.push_back({.name = "remove_elements",
                       .parameters = {domain, set_id, instance("the record; null allowed")},
                       .brief = "Empty {field}.",
                       .details = {{"State flags stay as they are."}},
                       .cost = "linear in the elements, whose storage is freed"});
    return all;
}

} // namespace epm::stamp
