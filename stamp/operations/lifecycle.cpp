// Exported operations of creation, destruction, variants, embedding and state tracking.
#include "stamp/families.hpp"

namespace epm::stamp {

namespace {

Operations variant_operations() {
    return {
        {.name = "variant_data_index_cap",
         .result = "uint32_t",
         .parameters = {argument("uint32_t", "number", "a number whose low byte is a signed variant")},
         .call = "lifecycle::cap_variant_index",
         .brief = "Cap a variant at the highest one that the type has.",
         .returns = "the number with its low byte capped; a negative low byte and the upper 24 bits stay",
         .cost = "constant"},
        {.name = "adjust_variant",
         .result = "int32_t",
         .parameters = {domain, set_id, instance("the Instance to adjust; null allowed"), status},
         .brief = "Have the runtime bring the Instance's variant into line with the Domain.",
         .returns = "what the runtime returns",
         .statuses = {{any_status, "the runtime leaves"}},
         .cost = "two runtime calls"},
        {.name = "get_luid",
         .result = "uint32_t",
         .parameters = {domain, set_id, instance("the Instance, passed on as it is"), status},
         .brief = "Pass the arguments on to the runtime's zur_get_luid().",
         .returns = "what the runtime returns",
         .statuses = {{any_status, "the runtime leaves"}},
         .cost = "one runtime call"},
    };
}

Operations creation_operations(bool is_record) {
    const std::string cost =
        is_record ? "one allocation, which includes embedded records and state flags" : "one allocation of 16 bytes";
    const std::string ownership = "gives the result, which {type}_destroy() takes";
    return {
        {.name = "create",
         .result = "struct {type}*",
         .parameters = {domain, set_id},
         .brief = "Create an Instance whose fields are all zero, in the variant that the Domain speaks.",
         .details = {{"A refused allocation stores nothing in last_error."}},
         .returns = "the Instance; null when the Domain refuses memory or the Instance cannot be set up",
         .ownership = ownership,
         .cost = cost},
        {.name = "create_internal",
         .result = "struct {type}*",
         .parameters = {domain, set_id},
         .brief = "Create an Instance as create() does, but without asking for the Bundle's trace id.",
         .returns = "the Instance; when it cannot be created, null, or the null Instance in a `_cr` chain",
         .ownership = ownership,
         .statuses = {{ZUR_NO_MEMORY, "the Domain refuses memory in a `_cr` chain that has no error yet; the number "
                                      "is stored in last_error"}},
         .cost = cost},
        {.name = "create_cr",
         .result = "struct {type}*",
         .parameters = {chain_domain},
         .brief = "Create an Instance in a chain of `_cr` calls.",
         .returns = "the Instance; the type's null Instance when memory is refused or the chain has failed before",
         .ownership = ownership,
         .statuses = {{ZUR_NO_MEMORY, "the Domain refuses memory and last_error holds no error yet; the number is "
                                      "stored in last_error"}},
         .cost = cost},
        {.name = "initialize",
         .result = "void*",
         .parameters = {domain, set_id, argument("struct {type}*", "memory", "zeroed memory of the type's size"),
                        argument("const zur_type_info*", "type", "the type's TypeInfo"),
                        argument("uint32_t", "announced", "non-zero: write_range_fn hears of each header write"),
                        argument("uint32_t", "skip_stats", "non-zero: the Instance is not counted"),
                        argument("uint32_t", "extra_flags",
                                 "bits of zur_instance_flag to set; 0x04 for a field of a record"),
                        argument("void*", "sttr_base", "the outermost record's state-flag block, or null"), status},
         .brief = "Set up an Instance in memory that is already there.",
         .returns = "sttr_base; in tracked mode the record's own block where sttr_base was null",
         .ownership = "the result stays whose it was",
         .statuses = {{ZUR_BAD_ARGUMENT, "a nested Instance has no block in tracked mode", is_record},
                      {any_status, "the variant lookup leaves"}},
         .cost = "no allocation"},
    };
}

Operations destruction_operations() {
    const std::vector<Status> statuses = {
        {any_status, "the removal of an OID or handle mapping reports; it is stored in last_error"}};
    const std::string cost = "linear in what the Instance owns";
    return {
        {.name = "destroy",
         .parameters = {domain, set_id, instance("the Instance; null and the null Instance are ignored")},
         .brief = "Destroy an Instance with all that it owns.",
         .details = {{"An Instance that others refer to by OID lives until they let go."}},
         .ownership = "takes x",
         .statuses = statuses,
         .cost = cost},
        {.name = "destroy_internal",
         .parameters = {domain, set_id, instance("the Instance; null and the null Instance are ignored"),
                        argument(
                            "uint32_t", "free_memory",
                            "non-zero: its memory is freed as well; 0: it is part of a block that someone else frees")},
         .brief = "Tear down an Instance, with or without its memory.",
         .ownership = "takes what x owns, and x itself unless free_memory is 0",
         .statuses = statuses,
         .cost = cost},
        {.name = "destroy_cr",
         .parameters = {chain_domain, instance("the Instance; null and the null Instance are ignored")},
         .brief = "Destroy an Instance in a chain of `_cr` calls.",
         .ownership = "takes x",
         .statuses = statuses,
         .cost = cost},
        {.name = "get_oid_count",
         .result = "uint32_t",
         .parameters = {domain, set_id, const_instance("the Instance"), status},
         .brief = "Count the OIDs that the Instance holds.",
         .details = {{"The types of this Bundle hold none."}},
         .returns = "0",
         .statuses = {{ZUR_BAD_ARGUMENT, "x is null"}},
         .cost = "constant"},
        {.name = "get_object_references",
         .parameters = {domain, set_id, const_instance("the Instance"),
                        argument("uint64_t*", "oids", "array for the OIDs; nothing is written to it"),
                        argument("uint32_t", "length", "elements of oids"), status},
         .brief = "List the OIDs that the Instance holds.",
         .details = {{"The types of this Bundle hold none."}},
         .statuses = {{ZUR_BAD_ARGUMENT, "x is null"}},
         .cost = "constant"},
    };
}

Operation embedding_operation() {
    return {.name = "set_instance_embedded",
            .parameters = {domain, set_id, instance("the Instance; null only leaves a trace")},
            .brief = "Mark the Instance, and first every Instance embedded in it, as lying inside another block.",
            .cost = "one announced byte for each embedded Instance"};
}

Operations record_extras() {
    return {
        {.name = "sizeof",
         .result = "uint32_t",
         .parameters = {domain},
         .call = "lifecycle::size_of",
         .brief = "Return the size of an Instance in the Domain's mode.",
         .returns = "bytes; in tracked mode the state-flag block is included",
         .cost = "constant"},
        {.name = "sizeof_internal",
         .result = "uint32_t",
         .parameters = {domain, const_instance("the Instance whose layout variant counts; null: the highest variant"),
                        argument("uint32_t", "with_flags", "non-zero: include the state flags"),
                        argument("uint32_t", "flags_only", "non-zero: count the state flags alone")},
         .call = "lifecycle::size_of_parts",
         .brief = "Return the size of an Instance's memory, of its state flags, or of both.",
         .returns = "bytes",
         .cost = "constant"},
        {.name = "offset_update",
         .parameters = {domain, set_id, instance("the record"),
                        argument("void*", "sttr_base", "address of the record's state-flag block"), status},
         .brief = "Tell the runtime where the state flags of nested Instances are.",
         .statuses = {{any_status, "the field types' own operations leave"}},
         .cost = "one runtime call for each nested Instance with a block of its own"},
        {.name = "offset_remove",
         .parameters = {domain, set_id, instance("the record"), status},
         .brief = "Take back what offset_update() told the runtime.",
         .statuses = {{any_status, "the runtime leaves"}},
         .cost = "one runtime call for each nested Instance with a block of its own"},
        {.name = "set_all_state_tracking_flag",
         .parameters = {domain, set_id, instance("the record; nothing happens unless it is tracked"),
                        argument("uint32_t", "value", "new value of every state flag, its low 8 bits")},
         .brief = "Give all state flags of the record one value, without announcing the write.",
         .details = {{"In a record with a variable array this also overwrites the pointer to the element flags: use "
                      "it only while the array is empty."}},
         .cost = "one fill of the block"},
    };
}

Operations of_type(bool is_record) {
    Operations all = variant_operations();
    append(all, creation_operations(is_record));
    append(all, destruction_operations());
    all.push_back(embedding_operation());
    return all;
}

Operations of_record(const Record&) {
    Operations all = of_type(true);
    append(all, record_extras());
    return all;
}

Operations of_enum(const Enum&) {
    Operations all = of_type(false);
    all.push_back({.name = "sizeof",
                   .result = "uint32_t",
                   .call = "lifecycle::size_of",
                   .brief = "Return the size of an Instance.",
                   .returns = "16",
                   .cost = "constant"});
    return all;
}

Operations of_field(const Record&, const Field& f) {
    if (!f.is_tracked() || f.has_element_flags()) return {};
    return {
        {.name = "state_flag_get",
         .result = "uint8_t",
         .parameters = {domain, set_id, instance("the record"), status},
         .brief = "Read the state flag of {field}.",
         .returns = "the flag, 2 after a set; 0 on failure",
         .statuses = {{ZUR_BAD_ARGUMENT, "the Domain or the record does not track"}},
         .cost = "no runtime call unless the state-flag block has moved"},
        {.name = "state_flag_set",
         .parameters = {domain, set_id, instance("the record"),
                        argument("uint32_t", "flag", "the new flag, its low 8 bits"), status},
         .brief = "Write the state flag of {field}.",
         .statuses = {{ZUR_BAD_ARGUMENT, "the Domain or the record does not track"},
                      {ZUR_NOT_IN_VARIANT, "the variant lacks the field"}},
         .cost = "one announced byte"},
    };
}

} // namespace

Family lifecycle_family() {
    return {.name = "lifecycle",
            .includes = {"lifecycle/destroy.hpp", "lifecycle/embedding.hpp", "lifecycle/variants.hpp"},
            .files = 2,
            .of_record = of_record,
            .of_enum = of_enum,
            .of_field = of_field};
}

} // namespace epm::stamp
