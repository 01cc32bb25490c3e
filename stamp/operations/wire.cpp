// Exported operations of the wire form, of copies made through it, and of order and hash.
#include "stamp/families.hpp"

namespace epm::stamp {

namespace {

bool owns_memory(const Record& r) {
    return holds(r, [](const Field& f) {
        return f.kind == Kind::text || f.kind == Kind::array || f.kind == Kind::arm || f.kind == Kind::list;
    });
}

bool has_foreign_objects(const Record& r) {
    return holds(r, [](const Field& f) { return f.kind == Kind::object; });
}

bool has_arms(const Record& r) {
    return holds(r, [](const Field& f) { return f.kind == Kind::arm; });
}

const Parameter bounding_domain{"zur_domain*", "D", "the Domain; its agreed variant bounds what is written"};
const Parameter room{"int32_t", "length", "bytes available at buffer"};
const char* const written = "bytes written; 0 when the status word was raised on entry or length is below 1";
const char* const consumed = "bytes consumed, which a jump word may lead beyond length; 0 when the status word was "
                             "raised on entry, length is below 1 or memory is refused";

Parameter reuse() {
    return argument(
        "uint32_t", "reuse",
        "non-zero: the Instance may hold content, which is kept in place where its size fits; 0: the Instance is "
        "fresh");
}

Operations codec_operations(const Record& r) {
    return {
        {.name = "marshal",
         .result = "uint32_t",
         .parameters =
             {bounding_domain, set_id,
              argument("void*", "buffer",
                       "first byte to fill; len() bytes suffice unless an ra block travels; in tracked mode one byte "
                       "behind them may be overwritten"),
              const_instance("the record to write; not null"), room, status},
         .brief = "Write the record in wire form.",
         .details = {{"After an error the buffer holds a partial record."}},
         .returns = written,
         .statuses = {{ZUR_NOT_IN_VARIANT, "the Instance's variant is above the Domain's; the record is written in the "
                                           "lower variant, without the fields"},
                      {ZUR_WRONG_LENGTH, "the room runs out"},
                      {ZUR_ABSENT, "a tag selects an arm that is not there", has_arms(r)},
                      {any_status, "the codecs of the field types leave", has_foreign_objects(r)}},
         .cost = "one pass, no allocation"},
        {.name = "unmarshal",
         .result = "uint32_t",
         .parameters = {domain, set_id,
                        argument("const void*", "buffer",
                                 "the bytes to read, from anywhere; the byte directly behind them may be read as well"),
                        instance("the record to fill; not null"), room, reuse(), status},
         .brief = "Read the record from wire form, whichever variant wrote it.",
         .details = {{"Fields that this build does not know are skipped; fields that the bytes lack keep what they "
                      "held. In tracked mode the Instance must have state flags. After an error the Instance is partly "
                      "filled: destroy it."}},
         .returns = consumed,
         .statuses = {{ZUR_WRONG_LENGTH, "the bytes run out"},
                      {ZUR_NO_MEMORY, "the Domain refuses memory", owns_memory(r)},
                      {any_status, "the codecs of the field types leave", has_foreign_objects(r)}},
         .cost = owns_memory(r)
                     ? "one pass; one allocation for each text, array, arm and list element that cannot be kept"
                     : "one pass"},
    };
}

Operations codec_operations(const Enum&) {
    return {
        {.name = "marshal",
         .result = "uint32_t",
         .parameters = {bounding_domain, set_id, argument("void*", "buffer", "first of 5 bytes to fill"),
                        const_instance("the value to write; not null"), room, status},
         .brief = "Write the value in wire form: the variant byte and the number.",
         .returns = written,
         .statuses = {{ZUR_NOT_IN_VARIANT, "the Instance's variant is above the Domain's; the value is written in the "
                                           "lower variant, without the number"},
                      {ZUR_WRONG_LENGTH, "the room runs out"}},
         .cost = "no allocation"},
        {.name = "unmarshal",
         .result = "uint32_t",
         .parameters = {domain, set_id, argument("const void*", "buffer", "the bytes to read, from anywhere"),
                        instance("the value to fill; not null"), room, reuse(), status},
         .brief = "Read the value from wire form.",
         .details = {{"Any number is accepted, whether it is an enumerator or not."}},
         .returns = consumed,
         .statuses = {{ZUR_WRONG_LENGTH, "the bytes run out"}},
         .cost = "no allocation"},
    };
}

Operations length_operations(const Record&) {
    const Parameter x = const_instance("the record to measure; null: an empty record");
    return {
        {.name = "len",
         .result = "uint32_t",
         .parameters = {domain, set_id, x},
         .call = "wire::length",
         .brief = "Measure the record's wire form in the Instance's own variant.",
         .returns = "bytes that marshal() writes at most, without an ra block; in tracked mode it may be too high",
         .cost = "one walk, no allocation"},
        {.name = "len_cr",
         .result = "uint32_t",
         .parameters = {chain_domain, x},
         .call = "wire::length_chained",
         .brief = "Measure the record's wire form in a chain of `_cr` calls.",
         .returns = "bytes that marshal() writes at most, without an ra block; in tracked mode it may be too high; 0 "
                    "when the chain has failed before",
         .cost = "one walk, no allocation"},
    };
}

Operations length_operations(const Enum&) {
    return {
        {.name = "len",
         .result = "uint32_t",
         .call = "wire::length",
         .brief = "Measure the wire form of the value.",
         .returns = "5",
         .cost = "constant"},
        {.name = "len_cr",
         .result = "uint32_t",
         .parameters = {domain},
         .call = "wire::length_chained",
         .brief = "Measure the wire form of the value in a chain of `_cr` calls.",
         .returns = "5; 0 when the chain has failed before",
         .cost = "constant"},
    };
}

Operations clone_operations(const Record& r) {
    const Parameter source{"const struct {type}*", "source", "the record to copy; not null"};
    const Parameter workspace{"void*", "workspace", "memory that the copy passes through"};
    const Parameter length{"int32_t", "length", "bytes available at workspace; the record's wire form must fit"};
    const std::vector<Status> statuses = {
        {ZUR_ABSENT, "a reference or the workspace is null"},
        {ZUR_NO_MEMORY, "the Domain refuses memory"},
        {ZUR_NOT_IN_VARIANT, "the variant of a record inside is above the Domain's"},
        {ZUR_WRONG_LENGTH, "the workspace is too small"},
        {ZUR_ABSENT, "a tag selects an arm that is not there", has_arms(r)},
        {any_status, "the codecs of the field types leave", has_foreign_objects(r)},
    };
    const std::string cost = "two passes over the wire form";
    return {
        {.name = "marshal_for_clone",
         .result = "uint32_t",
         .parameters = {domain, set_id, argument("void*", "buffer", "first byte to fill"),
                        const_instance("the record to write; not null"), room, status},
         .brief = "Write the record in wire form for a copy in this process.",
         .details = {{"The Domain's variant bounds only the records inside it. After an error the buffer holds a "
                      "partial record."}},
         .returns = written,
         .statuses = {{ZUR_NOT_IN_VARIANT, "the variant of a record inside is above the Domain's"},
                      {ZUR_WRONG_LENGTH, "the room runs out"},
                      {ZUR_ABSENT, "a tag selects an arm that is not there", has_arms(r)},
                      {any_status, "the codecs of the field types leave", has_foreign_objects(r)}},
         .cost = "one pass, no allocation"},
        {.name = "clone",
         .parameters =
             {domain, set_id, source,
              argument("struct {type}**", "destination",
                       "receives the address of the copy, or null after an error; what it held before is forgotten"),
              workspace, length, status},
         .brief = "Make a deep copy of the record.",
         .ownership = "gives the copy, which {type}_destroy() takes",
         .statuses = statuses,
         .cost = cost},
        {.name = "clone_internal",
         .parameters = {domain, set_id, source,
                        argument(
                            "struct {type}**", "destination",
                            "holds the address of the Instance to fill, or null for a new one; receives its address"),
                        workspace, length, status},
         .brief = "Copy the record deeply into an Instance that exists, or into a new one.",
         .ownership = "gives a new Instance, which {type}_destroy() takes. "
                      "When reading fails it takes the Instance, even the caller's own, and leaves null",
         .statuses = statuses,
         .cost = cost},
        {.name = "clone_cr",
         .result = "struct {type}*",
         .parameters = {chain_domain, source,
                        argument("void*", "request", "what zurlib_get_handle_ws() needs to find a workspace")},
         .brief = "Make a deep copy of the record in a chain of `_cr` calls, in a workspace of the runtime.",
         .returns = "the copy; null after an error",
         .ownership = "gives the result, which {type}_destroy() takes",
         .statuses = statuses,
         .cost = cost},
    };
}

Operation validity_operation(const Record& r) {
    return {
        .name = "is_valid_cr",
        .result = "uint32_t",
        .parameters = {domain, const_instance("the record"),
                       argument(
                           "uint32_t", "id",
                           "number of the field: declared fields count from 0, and each variant past the first begins "
                           "with one number that stands for no field"),
                       argument("uint32_t", "options", "bit 0: look at the Domain's variant alone")},
        .brief = r.variants() > 1 ? "Return whether a field exists in the variant of the Domain and the Instance."
                                  : "Return whether a field exists; all fields are in the record's one variant.",
        .returns = "1 if it does, else 0",
        .statuses = {{any_status, "the variant lookup leaves"}},
        .cost = "constant"};
}

Operation validity_operation(const Enum&) {
    return {.name = "is_valid_cr",
            .result = "uint32_t",
            .parameters = {domain, argument("int32_t", "value", "the number in question")},
            .brief = "Return whether the number is an enumerator in the Domain's variant.",
            .details = {{"A negative number counts as one, although set_value() refuses it."}},
            .returns = "1 if it is, else 0",
            .statuses = {{any_status, "the variant lookup leaves"}},
            .cost = "constant"};
}

Operations order_operations(bool is_record) {
    return {
        {.name = "compare",
         .result = "int32_t",
         .parameters = {argument("const struct {type}*", "a", "null allowed"),
                        argument("const struct {type}*", "b", "null allowed")},
         .brief = is_record ? "Compare two records in memory, field by field in declaration order." //
                            : "Compare two values.",
         .details = {{"Variants and state flags take no part.", is_record}},
         .returns = is_record ? "0 when they are equal; otherwise the sign gives the order, and null comes first"
                              : "the difference of the numbers; null comes first, with -1 or 1",
         .cost = "no allocation"},
        {.name = "hash",
         .result = "uint32_t",
         .parameters = {const_instance("null allowed"),
                        argument("uint32_t", "seed", "the hash so far, so that calls can be chained")},
         .brief = is_record ? "Hash the record's field values." : "Hash the value.",
         .details = {{"Variant and state flags take no part.", is_record}},
         .returns = "the hash; the seed for null",
         .cost = "no allocation"},
    };
}

template <class Type>
Operations of_type(const Type& t) {
    Operations all = codec_operations(t);
    append(all, length_operations(t));
    append(all, order_operations(std::is_same_v<Type, Record>));
    all.push_back(validity_operation(t));
    return all;
}

Operations of_record(const Record& r) {
    Operations all = of_type(r);
    append(all, clone_operations(r));
    return all;
}

} // namespace

Family wire_family() {
    return {.name = "wire",
            .includes = {"access/list.hpp", "wire/clone.hpp", "wire/compare.hpp", "wire/hash.hpp", "wire/length.hpp",
                         "wire/validity.hpp"},
            .files = 4,
            .of_record = of_record,
            .of_enum = of_type<Enum>};
}

} // namespace epm::stamp
