// Exported operations of creation, destruction, variants, embedding and state tracking.
#include "stamp/operation.hpp"

namespace epm::stamp {

namespace {

template <class Type>
constexpr bool is_record = std::is_same_v<Type, Record>;

template <class Type>
std::vector<Operation> variant_operations(const Type& t) {
    return {
        {.name = "variant_data_index_cap",
         .result = "uint32_t",
         .parameters = {plain("uint32_t", "number", "a number whose low byte is a signed variant")},
         .call = "lifecycle::cap_variant_index",
         .brief = "Cap a variant at the highest that the type has.",
         .returns = "the number with its low byte capped; a negative low byte and the upper 24 bits stay",
         .cost = "Constant.",
         .template_arguments = {}},
        {.name = "adjust_variant",
         .result = "int32_t",
         .parameters = {domain(), set_id(), instance(t, "x", "the Instance to bring into line; may be null"), status()},
         .call = "lifecycle::adjust_variant",
         .brief = "Let the runtime bring the Instance's variant into line with the Domain.",
         .returns = "what the runtime returns",
         .leaves = "Leaves what the runtime leaves.",
         .cost = "Two runtime calls."},
        {.name = "get_luid",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), instance(t, "x", "handed on as it is"), status()},
         .call = "lifecycle::get_luid",
         .brief = "Hand the arguments on to the runtime's zur_get_luid().",
         .returns = "what the runtime returns",
         .leaves = "Leaves what the runtime leaves.",
         .cost = "One runtime call."},
    };
}

template <class Type>
std::vector<Operation> creation_operations(const Type& t) {
    const std::string gives = "gives the caller an Instance, which destroy() takes; ";
    const std::string cost =
        is_record<Type> ? "One allocation, embedded records and state flags included." : "One allocation of 16 bytes.";
    std::vector<Operation> all = {
        {.name = "create",
         .result = pointer_to(t),
         .parameters = {domain(), set_id()},
         .call = "lifecycle::create",
         .brief = "Create an Instance whose fields are all zero, in the variant that the Domain speaks.",
         .returns = gives + "null when the Domain refuses memory or the Instance cannot be set up",
         .leaves = "Nothing is stored when memory is refused.",
         .cost = cost},
        {.name = "create_internal",
         .result = pointer_to(t),
         .parameters = {domain(), set_id()},
         .call = "lifecycle::create_internal",
         .brief = "Create an Instance as create() does, without a look at the trace facility.",
         .returns = gives + "null, or in a `_cr` chain the null Instance, when there is none",
         .leaves = "Stores 12 in last_error only in a `_cr` chain that has no error yet.",
         .cost = cost},
        {.name = "create_cr",
         .result = pointer_to(t),
         .parameters = {domain("the Domain; its cr_set_id names the store set")},
         .call = "lifecycle::create_chained",
         .brief = "Create an Instance in a chain of `_cr` calls.",
         .returns = gives + "the type's null Instance when memory is refused or the chain has failed before",
         .leaves = "Stores 12 in last_error unless an error stands there.",
         .cost = cost},
        {.name = "initialize",
         .result = "void*",
         .parameters = {domain(), set_id(), instance(t, "memory", "zeroed memory of the type's size; borrowed"),
                        plain("const zur_type_info*", "type", "the type's TypeInfo"),
                        plain("uint32_t", "announced",
                              "non-zero: each header write is announced through write_range_fn"),
                        plain("uint32_t", "skip_stats", "non-zero: the Instance is not counted"),
                        plain("uint32_t", "extra_flags",
                              "bits of zur_instance_flag to set; 0x04 for a field of a record"),
                        plain("void*", "sttr_base", "the outermost record's state-flag block, or null"), status()},
         .call = "lifecycle::initialize",
         .brief = "Set an Instance up in memory that is already there.",
         .returns = "sttr_base, or the record's own block where that was null in tracked mode",
         .leaves = is_record<Type> ? "Leaves 22 for a nested Instance without a block in tracked mode, and what the "
                                     "variant lookup leaves."
                                   : "Leaves what the variant lookup leaves.",
         .cost = "No allocation."},
    };
    return all;
}

template <class Type>
std::vector<Operation> destruction_operations(const Type& t) {
    const std::string cost = "Linear in what the Instance owns.";
    return {
        {.name = "destroy",
         .result = "void",
         .parameters = {domain(), set_id(),
                        instance(t, "x", "the Instance; taken; null and the null Instance are ignored")},
         .call = "lifecycle::destroy",
         .brief = "Destroy an Instance with all that it owns. One that others refer to by OID lives until they let go.",
         .leaves = "Stores what the removal of an OID or handle mapping reports in last_error.",
         .cost = cost},
        {.name = "destroy_internal",
         .result = "void",
         .parameters = {domain(), set_id(), instance(t, "x", "the Instance; null and the null Instance are ignored"),
                        plain("uint32_t", "free_memory",
                              "non-zero: the memory is taken as well; 0: it is a field of a "
                              "block that someone else frees")},
         .call = "lifecycle::destroy_internal",
         .brief = "Tear an Instance down, with or without its memory.",
         .leaves = "Stores what the removal of an OID or handle mapping reports in last_error.",
         .cost = cost},
        {.name = "destroy_cr",
         .result = "void",
         .parameters = {domain("the Domain; its cr_set_id names the store set"),
                        instance(t, "x", "the Instance; taken; null and the null Instance are ignored")},
         .call = "lifecycle::destroy_chained",
         .brief = "Destroy an Instance in a chain of `_cr` calls.",
         .leaves = "Stores what the removal of an OID or handle mapping reports in last_error.",
         .cost = cost},
        {.name = "get_oid_count",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), const_instance(t, "x", "borrowed"), status()},
         .call = "lifecycle::get_oid_count",
         .brief = "Count the OIDs that the Instance holds. The types of this Bundle hold none.",
         .returns = "0",
         .leaves = "Leaves 22 for null.",
         .cost = "Constant."},
        {.name = "get_object_references",
         .result = "void",
         .parameters = {domain(), set_id(), const_instance(t, "x", "borrowed"),
                        plain("uint64_t*", "oids", "array for the OIDs; left as it is"),
                        plain("uint32_t", "length", "elements of oids"), status()},
         .call = "lifecycle::get_object_references",
         .brief = "List the OIDs that the Instance holds. The types of this Bundle hold none.",
         .leaves = "Leaves 22 for null.",
         .cost = "Constant."},
    };
}

template <class Type>
Operation embedding_operation(const Type& t) {
    return {.name = "set_instance_embedded",
            .result = "void",
            .parameters = {domain(), set_id(), instance(t, "x", "borrowed; null only leaves a trace")},
            .call = "lifecycle::set_instance_embedded",
            .brief = "Mark the Instance, and first all that is embedded in it, as lying inside another block.",
            .cost = "One announced byte for each embedded Instance."};
}

std::vector<Operation> record_extras(const Record& r) {
    return {
        {.name = "sizeof",
         .result = "uint32_t",
         .parameters = {domain()},
         .call = "lifecycle::size_of",
         .brief = "Size of an Instance under the Domain's mode.",
         .returns = "bytes, in tracked mode with the state-flag block",
         .cost = "Constant."},
        {.name = "sizeof_internal",
         .result = "uint32_t",
         .parameters = {domain(), const_instance(r, "x", "the Instance whose layout variant counts; null: the highest"),
                        plain("uint32_t", "with_flags", "non-zero: the state flags count as well"),
                        plain("uint32_t", "flags_only", "non-zero: only the state flags count")},
         .call = "lifecycle::size_of_parts",
         .brief = "Size of an Instance's memory, of its state flags, or of both.",
         .returns = "bytes",
         .cost = "Constant."},
        {.name = "offset_update",
         .result = "void",
         .parameters = {domain(), set_id(), instance(r, "x", "borrowed"),
                        plain("void*", "sttr_base", "the place of the Instance's state-flag block"), status()},
         .call = "lifecycle::offset_update",
         .brief = "Tell the runtime where the state flags of nested Instances lie.",
         .leaves = "Leaves what the field types' own operations leave.",
         .cost = "One runtime call for each nested Instance with a block of its own."},
        {.name = "offset_remove",
         .result = "void",
         .parameters = {domain(), set_id(), instance(r, "x", "borrowed"), status()},
         .call = "lifecycle::offset_remove",
         .brief = "Take back what offset_update() told the runtime.",
         .leaves = "Leaves what the runtime leaves.",
         .cost = "One runtime call for each nested Instance with a block of its own."},
        {.name = "set_all_state_tracking_flag",
         .result = "void",
         .parameters = {domain(), set_id(), instance(r, "x", "borrowed; nothing happens unless it is tracked"),
                        plain("uint32_t", "value", "new value of every state flag, its low 8 bits")},
         .call = "lifecycle::set_all_state_tracking_flag",
         .brief = "Give all state flags of the Instance one value, unannounced. In a record with a variable array the "
                  "pointer to the element flags is overwritten too: use it only while the array is empty.",
         .cost = "One fill of the block."},
    };
}

Operation enum_sizeof() {
    return {.name = "sizeof",
            .result = "uint32_t",
            .parameters = {},
            .call = "lifecycle::size_of",
            .brief = "Size of an Instance.",
            .returns = "16",
            .cost = "Constant."};
}

template <class Type>
std::vector<Operation> of_type(const Type& t) {
    std::vector<Operation> all = variant_operations(t);
    for (auto&& some : {creation_operations(t), destruction_operations(t)})
        all.insert(all.end(), some.begin(), some.end());
    all.push_back(embedding_operation(t));
    return all;
}

std::vector<Operation> of_record(const Record& r) {
    std::vector<Operation> all = of_type(r);
    const std::vector<Operation> extras = record_extras(r);
    all.insert(all.end(), extras.begin(), extras.end());
    return all;
}

std::vector<Operation> of_enum(const Enum& e) {
    std::vector<Operation> all = of_type(e);
    all.push_back(enum_sizeof());
    return all;
}

Operation flag_read(const Record& r, const Field& f) {
    return {.name = "state_flag_get",
            .result = "uint8_t",
            .parameters = {domain(), set_id(), instance(r, "x", "borrowed"), status()},
            .call = "lifecycle::state_flag_get",
            .brief = std::string("Read the state flag of ") + f.name + ".",
            .returns = "the flag, 2 after a set; 0 on failure",
            .leaves = "Leaves 22 when the Domain or the Instance does not track.",
            .cost = "No runtime call but for a moved block."};
}

Operation flag_write(const Record& r, const Field& f) {
    return {.name = "state_flag_set",
            .result = "void",
            .parameters = {domain(), set_id(), instance(r, "x", "borrowed"),
                           plain("uint32_t", "flag", "the new flag, its low 8 bits"), status()},
            .call = "lifecycle::state_flag_set",
            .brief = std::string("Write the state flag of ") + f.name + ".",
            .leaves = "Leaves 22 when the Domain or the Instance does not track, 43 when the variant lacks the field.",
            .cost = "One announced byte."};
}

std::vector<Operation> of_field(const Record& r, const Field& f) {
    if (!f.is_tracked() || f.has_element_flags()) return {};
    return {flag_read(r, f), flag_write(r, f)};
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
