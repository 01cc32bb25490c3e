// Exported operations of lists. The operation of an element that finds its list's owner is in access.cpp.
#include "stamp/operations/access.hpp"

namespace epm::stamp {

namespace {

const char* const constant_walk = "constant: no walk along the list, no allocation";

Operation read(const std::string& name, const std::string& brief) {
    return {.name = name,
            .result = "struct {of}*",
            .parameters = {domain, set_id, owner, status},
            .call = "access::list_" + name,
            .brief = brief,
            .returns = "the element; null when there is none, and on failure",
            .ownership = "the result stays the list's",
            .statuses = {no_field},
            .cost = constant_walk};
}

Operation read_neighbour(const std::string& name, const std::string& brief) {
    Operation o = read(name, brief);
    o.parameters.insert(o.parameters.begin() + 3, argument("struct {of}*", "element", "an element of this list"));
    return o;
}

Operation insertion(const std::string& name, const std::string& brief) {
    return {.name = name,
            .parameters = {domain, set_id, owner, argument("struct {of}*", "element", "an element that is in no list"),
                           status},
            .call = "access::list_" + name,
            .brief = brief,
            .details = {{"A store that refuses a link ends the process."}},
            .ownership = "takes element, unless it leaves ZUR_NOT_IN_VARIANT",
            .statuses = {no_field,
                         {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the element is linked all the "
                                            "same"}},
            .cost = constant_walk};
}

Operation insertion_beside(const std::string& name, const std::string& brief) {
    Operation o = insertion(name, brief);
    o.parameters.insert(o.parameters.begin() + 3, argument("struct {of}*", "reference", "an element of this list"));
    return o;
}

} // namespace

Operations list_field_operations() {
    const Operation remove = {
        .name = "remove",
        .parameters = {domain, set_id, owner, argument("struct {of}*", "element", "an element of this list"), status},
        .call = "access::list_remove",
        .brief = "Take an element out of {field}.",
        .details = {{"The state flag of {field} is not touched. A store that refuses a link ends the process."}},
        .ownership = "gives element back to the caller, and {of}_destroy() takes it",
        .statuses = {no_field},
        .cost = constant_walk};
    return {
        {.name = "get_count",
         .result = "uint32_t",
         .parameters = {domain, set_id, const_owner, status},
         .call = "access::list_get_count",
         .brief = "Count the elements of {field}.",
         .details = {{"{doc}"}},
         .returns = "the number of elements, too high by one for each that was destroyed without being removed; 0 on "
                    "failure",
         .statuses = {no_field},
         .cost = constant_walk},
        read("get_first", "Hand out the first element of {field}."),
        read("get_last", "Hand out the last element of {field}."),
        read_neighbour("get_next", "Hand out the element of {field} behind another."),
        read_neighbour("get_prev", "Hand out the element of {field} in front of another."),
        {.name = "get_cr",
         .result = "struct {of}*",
         .parameters = {failing_domain, owner,
                        argument("int32_t", "flag",
                                 "0: the first; 1: the last; 2: the one in front of element; 3: the one behind it"),
                        argument("struct {of}*", "element", "an element of this list, for 2 and 3")},
         .call = "access::list_get_chained",
         .brief = "Hand out an element of {field} in a chain of `_cr` calls.",
         .returns = "the element; null when there is none, and on failure",
         .ownership = "the result stays the list's",
         .statuses = {no_field, {ZUR_BAD_ARGUMENT, "flag is none of these"}},
         .cost = constant_walk},
        insertion("set_first", "Add an element to {field}, in front of all others."),
        insertion("set_last", "Add an element to {field}, behind all others."),
        insertion_beside("set_before", "Add an element to {field}, in front of the reference."),
        insertion_beside("set_after", "Add an element to {field}, behind the reference."),
        {.name = "add_cr",
         .result = "uint32_t",
         .parameters = {failing_domain, owner, argument("struct {of}*", "element", "an element that is in no list"),
                        argument("int32_t", "flag", "0: first; 1: last; 2: in front of the reference; 3: behind it"),
                        argument("struct {of}*", "reference", "an element of this list, for 2 and 3")},
         .call = "access::list_add_chained",
         .brief = "Add an element to {field} in a chain of `_cr` calls.",
         .details = {{"A store that refuses a link ends the process."}},
         .returns = "last_error: 0 when all is well",
         .ownership = "takes element, unless it leaves ZUR_NOT_IN_VARIANT or flag is wrong",
         .statuses = {no_field,
                      {ZUR_BAD_ARGUMENT, "flag is none of these; nothing changes"},
                      {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the element is linked all the "
                                         "same"}},
         .cost = constant_walk},
        remove,
        chained(remove, "Take an element out of {field} in a chain of `_cr` calls."),
    };
}

} // namespace epm::stamp
