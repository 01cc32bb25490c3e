// Exported operations of the wire form, of copies through it, and of order and hash.
#include "stamp/operation.hpp"

namespace epm::stamp {

namespace {

template <class Type>
constexpr bool is_record = std::is_same_v<Type, Record>;

bool owns_memory(const Record& r) {
    return holds(r, [](const Field& f) {
        return f.kind == Kind::text || f.kind == Kind::array || f.kind == Kind::arm || f.kind == Kind::list;
    });
}

bool has_foreign_objects(const Record& r) {
    return holds(r, [](const Field& f) { return f.kind == Kind::object; });
}

Parameter wire_buffer(std::string doc) {
    return plain("void*", "buffer", std::move(doc));
}
Parameter room() {
    return plain("int32_t", "length", "bytes available at buffer");
}

std::string marshal_leaves(const Record& r) {
    std::string text = "Leaves 90 when the room runs out";
    if (r.is_union()) text += ", 2 when the tag selects an arm that is not there";
    if (has_foreign_objects(r)) text += ", and what the codecs of the field types leave";
    return text + ". After an error the buffer holds a partial record.";
}

template <class Type>
Operation marshal_operation(const Type& t) {
    const std::string leaves = "Leaves 43 when the Instance's variant is above the Domain's: it is written in the "
                               "lower one, without the fields. ";
    if constexpr (is_record<Type>)
        return {.name = "marshal",
                .result = "uint32_t",
                .parameters = {domain("the Domain; its agreed variant bounds what is written"), set_id(),
                               wire_buffer("first byte to fill; borrowed. len() bytes suffice unless an ra block "
                                           "travels; in tracked mode one byte behind them may be overwritten"),
                               const_instance(t, "x", "written; borrowed, not null"), room(), status()},
                .call = "wire::marshal",
                .brief = "Write the record in wire form.",
                .returns = "bytes written; 0 when the status word was raised at entry or length is below 1",
                .leaves = leaves + marshal_leaves(t),
                .cost = "One pass, no allocation."};
    else
        return {.name = "marshal",
                .result = "uint32_t",
                .parameters = {domain("the Domain; its agreed variant bounds what is written"), set_id(),
                               wire_buffer("first of 5 bytes to fill; borrowed"),
                               const_instance(t, "x", "written; borrowed, not null"), room(), status()},
                .call = "wire::marshal",
                .brief = "Write the value in wire form: the variant byte and the number.",
                .returns = "bytes written; 0 when the status word was raised at entry or length is below 1",
                .leaves = "Leaves 43 when the Instance's variant is above the Domain's: it is written in the lower "
                          "one, without the number. Leaves 90 when the room runs out.",
                .cost = "No allocation."};
}

template <class Type>
Operation unmarshal_operation(const Type& t) {
    std::string brief = "Read the value from wire form. Any number is taken, whether it is an enumerator or not.";
    std::string leaves = "Leaves 90 when the bytes run out.";
    std::string cost = "No allocation.";
    if constexpr (is_record<Type>) {
        brief = "Read the record from wire form, whichever variant wrote it. Fields that this build does not know are "
                "jumped over; fields that the bytes do not have keep what they held. In tracked mode the Instance "
                "must have state flags.";
        leaves = "Leaves 90 when the bytes run out";
        if (owns_memory(t)) {
            leaves += ", 12 when the Domain refuses memory";
            cost = "One pass. One allocation for each text, array, arm and list element that cannot be kept.";
        } else {
            cost = "One pass.";
        }
        if (has_foreign_objects(t)) leaves += ", and what the codecs of the field types leave";
        leaves += ". After an error the Instance is partly filled: destroy it.";
    }
    std::string bytes = "the bytes to read, from anywhere; borrowed";
    std::string returns = "bytes consumed; 0 when the status word was raised at entry, length is below 1 or memory is "
                          "refused";
    if (is_record<Type>) {
        bytes += ". The byte directly behind them may be read as well";
        returns += ". Hold it against length: a record that was cut short may leave no error, and then tells only by a "
                   "result beyond length";
    }
    return {.name = "unmarshal",
            .result = "uint32_t",
            .parameters = {domain(), set_id(), plain("const void*", "buffer", bytes),
                           instance(t, "x", "filled; borrowed, not null"), room(),
                           plain("uint32_t", "reuse",
                                 "non-zero: the Instance may hold content, which is kept in place where its size "
                                 "fits; 0: for a fresh Instance"),
                           status()},
            .call = "wire::unmarshal",
            .brief = brief,
            .returns = returns,
            .leaves = leaves,
            .cost = cost};
}

std::vector<Operation> length_operations(const Record& r) {
    const std::string returns =
        "bytes that marshal() writes at most; an ra block is not counted, and in tracked mode it may be too high";
    return {
        {.name = "len",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), const_instance(r, "x", "measured; borrowed; null: an empty record")},
         .call = "wire::length",
         .brief = "Measure the record's wire form by the Instance's own variant.",
         .returns = returns,
         .cost = "One walk, no allocation."},
        {.name = "len_cr",
         .result = "uint32_t",
         .parameters = {domain("the Domain; its cr_set_id names the store set"),
                        const_instance(r, "x", "measured; borrowed; null: an empty record")},
         .call = "wire::length_chained",
         .brief = "Measure the record's wire form in a chain of `_cr` calls.",
         .returns = returns + "; 0 when the chain has failed before",
         .cost = "One walk, no allocation."},
    };
}

std::vector<Operation> length_operations(const Enum&) {
    return {
        {.name = "len",
         .result = "uint32_t",
         .parameters = {},
         .call = "wire::length",
         .brief = "Measure the wire form of the value.",
         .returns = "5",
         .cost = "Constant."},
        {.name = "len_cr",
         .result = "uint32_t",
         .parameters = {domain()},
         .call = "wire::length_chained",
         .brief = "Measure the wire form of the value in a chain of `_cr` calls.",
         .returns = "5; 0 when the chain has failed before",
         .cost = "Constant."},
    };
}

std::vector<Operation> clone_operations(const Record& r) {
    const auto source = const_instance(r, "source", "copied; borrowed, not null");
    const auto workspace = plain("void*", "workspace", "memory that the copy travels through; borrowed");
    const auto length = plain("int32_t", "length", "bytes available at workspace; the record's wire form must fit");
    const std::string leaves = "Leaves 2 for a null reference or workspace, 12 when the Domain refuses memory, and "
                               "what marshal_for_clone() and unmarshal() leave.";
    const std::string cost = "Two passes over the wire form.";
    return {
        {.name = "marshal_for_clone",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), wire_buffer("first byte to fill; borrowed"),
                        const_instance(r, "x", "written; borrowed, not null"), room(), status()},
         .call = "wire::marshal_for_clone",
         .brief = "Write the record in wire form for a copy in this process: the Domain's variant bounds only the "
                  "records inside it.",
         .returns = "bytes written; 0 when the status word was raised at entry or length is below 1",
         .leaves = "Leaves 43 when the variant of a record inside is above the Domain's. " + marshal_leaves(r),
         .cost = "One pass, no allocation."},
        {.name = "clone",
         .result = "void",
         .parameters = {domain(), set_id(), source,
                        plain(pointer_to(r) + "*", "destination",
                              "where the copy's address goes; what stood there is forgotten; gives a new Instance, "
                              "which destroy() takes, or null after an error"),
                        workspace, length, status()},
         .call = "wire::clone",
         .brief = "Make a deep copy of the record.",
         .leaves = leaves,
         .cost = cost},
        {.name = "clone_internal",
         .result = "void",
         .parameters = {domain(), set_id(), source,
                        plain(pointer_to(r) + "*", "destination",
                              "address of the Instance to fill; null there: gives a new one, which destroy() takes. "
                              "Where reading fails the Instance is taken, the caller's own as well, and null is left"),
                        workspace, length, status()},
         .call = "wire::clone_internal",
         .brief = "Copy the record deeply into an Instance that is there, or into a new one.",
         .leaves = leaves,
         .cost = cost},
        {.name = "clone_cr",
         .result = pointer_to(r),
         .parameters = {domain("the Domain; its cr_set_id names the store set"), source,
                        plain("void*", "request", "what zurlib_get_handle_ws() needs to find a workspace")},
         .call = "wire::clone_chained",
         .brief = "Make a deep copy of the record in a chain of `_cr` calls, in a workspace of the runtime's.",
         .returns = "gives a new Instance, which destroy() takes; null after an error",
         .leaves = leaves,
         .cost = cost},
    };
}

Operation validity_operation(const Record& r) {
    return {.name = "is_valid_cr",
            .result = "uint32_t",
            .parameters = {domain(), const_instance(r, "x", "borrowed"),
                           plain("uint32_t", "id",
                                 "number of the field: declared fields count from 0, and each variant past the first "
                                 "opens with one number that stands for no field"),
                           plain("uint32_t", "options", "bit 0: ask for the Domain's variant alone")},
            .call = "wire::is_valid_chained",
            .brief = r.variants() > 1 ? "Tell whether a field exists in the variant of the Domain and the Instance."
                                      : "Tell whether a field exists. All fields are in the record's one variant.",
            .returns = "1 if it does, else 0",
            .leaves = "Leaves what the variant lookup leaves.",
            .cost = "Constant."};
}

Operation validity_operation(const Enum&) {
    return {.name = "is_valid_cr",
            .result = "uint32_t",
            .parameters = {domain(), plain("int32_t", "value", "the number in question")},
            .call = "wire::is_valid_chained",
            .brief = "Tell whether the number is an enumerator in the Domain's variant. A negative number counts as "
                     "one, although set_value() refuses it.",
            .returns = "1 if it is, else 0",
            .leaves = "Leaves what the variant lookup leaves.",
            .cost = "Constant."};
}

template <class Type>
std::vector<Operation> order_operations(const Type& t) {
    const std::string compared =
        is_record<Type> ? "Compare two records field by field in declaration order, in memory; variants and state "
                          "flags take no part."
                        : "Compare two values.";
    return {
        {.name = "compare",
         .result = "int32_t",
         .parameters = {const_instance(t, "a", "borrowed; may be null"),
                        const_instance(t, "b", "borrowed; may be null")},
         .call = "wire::compare",
         .brief = compared,
         .returns = is_record<Type> ? "0 when they are equal; the sign gives the order, null before all else"
                                    : "the difference of the numbers; null stands before all else, with -1 or 1",
         .cost = "No allocation."},
        {.name = "hash",
         .result = "uint32_t",
         .parameters = {const_instance(t, "x", "borrowed; may be null"),
                        plain("uint32_t", "seed", "the hash so far, so that calls can be chained")},
         .call = "wire::hash",
         .brief = is_record<Type> ? "Hash the record's field values; variant and state flags take no part."
                                  : "Hash the value.",
         .returns = "the hash; the seed for null",
         .cost = "No allocation."},
    };
}

template <class Type>
std::vector<Operation> of_type(const Type& t) {
    std::vector<Operation> all = {marshal_operation(t), unmarshal_operation(t)};
    for (auto&& some : {length_operations(t), order_operations(t)}) all.insert(all.end(), some.begin(), some.end());
    all.push_back(validity_operation(t));
    return all;
}

std::vector<Operation> of_record(const Record& r) {
    std::vector<Operation> all = of_type(r);
    const std::vector<Operation> copies = clone_operations(r);
    all.insert(all.end(), copies.begin(), copies.end());
    return all;
}

std::vector<Operation> of_enum(const Enum& e) {
    return of_type(e);
}

std::vector<Operation> of_field(const Record&, const Field&) {
    return {};
}

} // namespace

Family wire_family() {
    return {.name = "wire",
            .includes = {"access/list.hpp", "wire/clone.hpp", "wire/compare.hpp", "wire/hash.hpp", "wire/length.hpp",
                         "wire/validity.hpp"},
            .files = 4,
            .of_record = of_record,
            .of_enum = of_enum,
            .of_field = of_field};
}

} // namespace epm::stamp
