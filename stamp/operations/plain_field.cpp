// Exported operations of fields that are one value inside the record: numbers, enumerated values, lengths, imported
// objects, embedded records.
#include "stamp/operations/access.hpp"

namespace epm::stamp {

namespace {

const char* source_doc(const Field& f) {
    if (f.is_of_record()) return "a record, whose content moves";
    if (f.is_own_enum()) return "an enumeration, which is copied with its header; not null";
    if (f.kind == Kind::object) return "an object, whose content goes the way of its type's own set";
    return "the new value";
}

Operation get(const Field& f) {
    return {.name = "get",
            .result = "{storage}",
            .parameters = {domain, set_id, owner, status},
            .brief = "Hand out {field} in place.",
            .details = {{"{doc}"}},
            .returns = "the field inside the record; null on failure",
            .ownership = "the result stays the record's",
            .statuses = {no_field, from_type(f)},
            .cost = "no allocation"};
}

Operation get_value(const Field& f) {
    return {.name = "get_value",
            .result = "{value}",
            .parameters = {domain, set_id, const_owner, status},
            .brief = "Read {field}.",
            .details = {{"{doc}"}},
            .returns = "the value; 0 on failure",
            .statuses = {no_field, from_type(f)},
            .cost = "no allocation"};
}

/// An enumeration refuses a number by the status of an absent field.
Status refused_number(const Field& f) {
    return {ZUR_NOT_IN_VARIANT, "the enumeration's variant does not accept the number", f.is_own_enum()};
}

Operation set(const Field& f) {
    return {.name = "set",
            .parameters = {domain, set_id, owner, argument("{storage}", "source", source_doc(f)), status},
            .brief = "Set {field} from a value of its type.",
            .details = {{"{doc}"}},
            .statuses = {no_field,
                         refused_number(f),
                         {ZUR_NOT_IN_VARIANT, "the record's own move is refused", f.is_of_record()},
                         stored_untracked,
                         from_type(f)},
            .cost = one_write};
}

Operation set_value(const Field& f) {
    return {.name = "set_value",
            .parameters = {domain, set_id, owner, argument("{value}", "value", "the new value"), status},
            .brief = "Set {field}.",
            .details = {{"{doc}"}},
            .statuses = {no_field,
                         refused_number(f),
                         stored_untracked,
                         {ZUR_ABSENT, "the field cannot be reached"},
                         from_type(f)},
            .cost = one_write};
}

} // namespace

Operations plain_field_operations(const Field& f) {
    if (f.kind == Kind::value) return {get(f), get_value(f), set(f), set_value(f)};
    if (f.kind == Kind::length) return {get(f), get_value(f)};
    return {get(f), set(f)};
}

} // namespace epm::stamp
