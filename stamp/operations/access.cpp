// Exported operations of access to whole records and to enumerations, and the family of all access. State flags of
// whole fields are in lifecycle.cpp, those of single elements in array_field.cpp.
#include "stamp/operations/access.hpp"
#include "access/bulk_fields.hpp"
#include "stamp/families.hpp"
#include "stamp/words.hpp"

namespace epm::stamp {

namespace {

Operation whole_get() {
    return {.name = "get",
            .result = "struct {type}*",
            .parameters = {domain, set_id, instance("the Instance; null allowed")},
            .brief = "Hand out an Instance as one value.",
            .details = {{"The hand-out is recorded where the Domain records containment."}},
            .returns = "x",
            .ownership = "the result stays its owner's",
            .cost = "constant"};
}

Operation whole_set(const Record& r) {
    const bool has_objects = holds(r, [](const Field& f) { return f.kind == Kind::object; });
    return {
        .name = "set",
        .parameters = {domain, set_id,
                       argument("struct {type}*", "destination", "receives the content; what it held is not released"),
                       argument("struct {type}*", "source", "gives up the content; its owner still has to destroy it"),
                       argument("uint32_t*", "st", "status word; the move runs even when it is raised")},
        .brief = "Move a record: the destination takes over what the source owned, header and state flags included.",
        .details = {{"The source keeps its numbers, but no texts, elements or arms."}},
        .statuses = {{ZUR_NOT_IN_VARIANT, "the destination's variant is below the source's, or their layouts "
                                          "differ; both stay as they are"},
                     {ZUR_BAD_ARGUMENT, "the Domain tracks and the source does not; both then refer to the same "
                                        "memory, and one must be cleared by hand"},
                     {any_status, "the field types' own operations leave", has_objects}},
        .cost = "no allocation; a few copies of the body, however much it owns"};
}

Operation cleanup(const Record& r) {
    const bool has_records = holds(r, [](const Field& f) { return f.kind == Kind::embedded; });
    const bool has_objects = holds(r, [](const Field& f) { return f.kind == Kind::object; });
    return {.name = "post_copyout_cleanup",
            .parameters = {domain, set_id, argument("struct {type}*", "destination", "a copy of the source's bytes"),
                           argument("struct {type}*", "source", "gives up what the copy owns now"), status},
            .brief = "Make the destination of a bytewise copy the only owner of what the fields hold.",
            .statuses = {{ZUR_NOT_IN_VARIANT, "the move of an embedded record is refused", has_records},
                         {ZUR_BAD_ARGUMENT, "the Domain tracks and an embedded record does not", has_records},
                         {any_status, "the field types' own operations leave", has_objects}},
            .cost = "one or two announced writes for each field that owns memory; a list is walked once"};
}

Operation get_all(const Record& r) {
    Operation o{.name = "get_all",
                .parameters = {domain, set_id, const_owner},
                .brief = "Read all numbers, truth values, enumerated values and lengths of the record at once.",
                .details = {{"Fields that the variant lacks are skipped without an error: what is to receive their "
                             "values stays as it is."}},
                .statuses = {{any_status, "the field types' own operations leave"}},
                .cost = "no allocation; for each field as many runtime calls as its get_value() makes",
                .pack = Pack{"void*", 3, 0}};
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        if (!access::is_read_at_once(f)) continue;
        o.parameters.push_back({value_type(f) + "*", f.name, std::string("receives the value; not null. ") + f.doc});
        ++o.pack->count;
    }
    o.parameters.push_back(status);
    return o;
}

Operation set_all(const Record& r) {
    Operation o{.name = "set_all",
                .parameters = {domain, set_id, owner},
                .brief = "Write all numbers, truth values and enumerated values of the record at once, without marking "
                         "them as modified.",
                .details = {{"Fields that the variant lacks are skipped without an error. An error in an enumeration "
                             "ends the writing."}},
                .statuses = {{ZUR_NOT_IN_VARIANT, "an enumeration does not accept its number"},
                             {any_status, "the field types' own operations leave"}},
                .cost = "no allocation; one announced write for each field",
                .pack = Pack{"epm::access::Number", 3, 0}};
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        if (!access::is_written_at_once(r, f)) continue;
        o.parameters.push_back({value_type(f), f.name, f.doc});
        ++o.pack->count;
    }
    o.parameters.push_back(status);
    return o;
}

/// One operation for each list that holds the record as an element.
Operations parent_operations(const Record& r) {
    Operations all;
    for (const Record* parent : catalogue::all_records)
        for (std::size_t i = 0; i < parent->count; ++i) {
            const Field& f = parent->fields[i];
            if (f.kind != Kind::list || f.record != &r) continue;
            all.push_back({.name = std::string(f.name) + "_get_parent",
                           .result = std::string("struct ") + parent->name + "*",
                           .parameters = {domain, set_id, argument("struct {type}*", "element", "the element"), status},
                           .call = "access::list_get_parent",
                           .brief = "Find the owner of the list that holds the element.",
                           .returns = "the list's owner; null when no list holds the element",
                           .ownership = "the result is not given away",
                           .statuses = {{ZUR_NOT_IN_VARIANT, "the element has a negative variant"}},
                           .cost = "constant"});
        }
    return all;
}

Operation map(const std::string& name) {
    return {.name = name,
            .result = "uint32_t",
            .parameters = {argument("uint32_t", "value", "a number")},
            .call = "access::map_value",
            .brief = "Map between the number that users see and the one inside, which are the same.",
            .returns = "value",
            .cost = "constant"};
}

Operations of_record(const Record& r) {
    Operations all = {whole_get(), whole_set(r), get_all(r), set_all(r), cleanup(r)};
    append(all, parent_operations(r));
    return all;
}

Operations of_enum(const Enum&) {
    const Status refused{ZUR_NOT_IN_VARIANT, "the variant does not accept the value; nothing changes"};
    return {
        whole_get(),
        {.name = "get_value",
         .result = "uint32_t",
         .parameters = {domain, set_id, const_instance("the enumeration"), status},
         .brief = "Read the enumerator's number.",
         .returns = "the number, even one that is no enumerator; 0 on failure",
         .statuses = {{ZUR_BAD_ARGUMENT, "x is null"}},
         .cost = "constant"},
        {.name = "set",
         .parameters = {domain, set_id, argument("struct {type}*", "destination", "receives header and value"),
                        argument("const struct {type}*", "source", "the enumeration to copy; not null"), status},
         .brief = "Copy an enumeration with its header.",
         .statuses = {refused},
         .cost = "one announced write of 16 bytes"},
        {.name = "set_value",
         .parameters = {domain, set_id, instance("the enumeration"),
                        argument("uint32_t", "value", "number of an enumerator that the Instance's variant has"),
                        status},
         .brief = "Write the enumerator's number.",
         .statuses = {refused},
         .cost = "one announced write of 4 bytes"},
        map("map_to_user_value"),
        map("map_to_internal_value"),
    };
}

Operations of_field(const Record&, const Field& f) {
    switch (f.kind) {
    case Kind::value:
    case Kind::length:
    case Kind::object:
    case Kind::embedded: return plain_field_operations(f);
    case Kind::text:
    case Kind::characters: return text_field_operations(f);
    case Kind::array:
    case Kind::run: return array_field_operations(f);
    case Kind::arm: return arm_field_operations();
    case Kind::list: return list_field_operations();
    }
    return {};
}

} // namespace

Family access_family() {
    return {.name = "access",
            .includes = {"access/arm_field.hpp", "access/array_of_records.hpp", "access/bulk.hpp",
                         "access/characters_field.hpp", "wire/unmarshal.hpp", "wire/marshal.hpp"},
            .files = 4,
            .of_record = of_record,
            .of_enum = of_enum,
            .of_field = of_field};
}

} // namespace epm::stamp
