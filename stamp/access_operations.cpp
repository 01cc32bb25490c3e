// Exported operations of field access: the accessors of each kind of field, the whole-record operations, and the values
// of enumerations. State flags of whole fields are the lifecycle family's, those of single elements are here.
#include "access/bulk_fields.hpp"
#include "stamp/names.hpp"
#include "stamp/operation.hpp"

namespace epm::stamp {

namespace {

const std::string one_write = "No allocation. One announced write, and one byte more in tracked mode.";
const std::string no_allocation = "No allocation.";
const std::string constant_walk = "Constant: no walk along the list, no allocation.";
const std::string if_absent = "Leaves 43 when the variant lacks the field";
const std::string if_untracked = "; 22 when the Domain tracks and the record does not: what was to be stored is, and "
                                 "only the state flag is not";

std::string called(const Field& f) {
    return f.name;
}

bool has_runtime_type(const Field& f) {
    return !f.is_own_enum() && !f.is_of_record();
}

/// What the type of a field adds to the status numbers.
std::string from_type(const Field& f) {
    return has_runtime_type(f) ? "; and what the field type's own operation leaves." : ".";
}

Parameter chain_domain() {
    return domain("the Domain; its cr_set_id names the store set, its last_error is the status word");
}
const std::string chain_result = "last_error: 0 when all is well";

/// The form of an operation for chains of calls: neither store set nor status word, and last_error for a result.
Operation chained(Operation o, const std::string& call, std::string brief) {
    o.name += "_cr";
    o.result = "uint32_t";
    o.parameters.front() = chain_domain();
    o.parameters.erase(o.parameters.begin() + 1);
    o.parameters.pop_back();
    o.call = call;
    o.brief = std::move(brief);
    o.returns = chain_result;
    return o;
}

Parameter record(const Record& r) {
    return instance(r, "x", "the record; borrowed");
}
Parameter const_record(const Record& r) {
    return const_instance(r, "x", "the record; borrowed, not changed");
}

// ---- whole records and enumerations ----

template <class Type>
Operation whole_get(const Type& t) {
    return {.name = "get",
            .result = pointer_to(t),
            .parameters = {domain(), set_id(), instance(t, "x", "borrowed; null allowed")},
            .call = "access::get",
            .brief =
                "Hand an Instance out as one value: the hand-out is recorded where the Domain records containment.",
            .returns = "x",
            .cost = "Constant."};
}

std::string move_leaves(const Record& r) {
    std::string leaves =
        "Leaves 43 when the destination's variant is below the source's, or their layouts differ: both "
        "stay as they are; 22 when the Domain tracks and the source does not: both then refer to the "
        "same memory, and one must be cleared by hand";
    if (holds(r, [](const Field& f) { return f.kind == Kind::object; }))
        leaves += "; and what the field types' own operations leave";
    return leaves + ".";
}

Operation whole_set(const Record& r) {
    return {.name = "set",
            .result = "void",
            .parameters = {domain(), set_id(),
                           instance(r, "destination", "receives the content; what it held is not released; borrowed"),
                           instance(r, "source", "gives the content up; still to be destroyed by its owner; borrowed"),
                           plain("uint32_t*", "st", "status word; a raised one does not stop the move")},
            .call = "access::set",
            .brief = "Move a record: the destination takes over what the source owned, header and state flags too. The "
                     "source keeps its numbers, and has no texts, elements and arms any more.",
            .leaves = move_leaves(r),
            .cost = "No allocation. A few copies of the body, however much it owns."};
}

Operation cleanup(const Record& r) {
    return {.name = "post_copyout_cleanup",
            .result = "void",
            .parameters = {domain(), set_id(), instance(r, "destination", "a copy of the source's bytes; borrowed"),
                           instance(r, "source", "gives up what the copy owns now; borrowed"), status()},
            .call = "access::post_copyout_cleanup",
            .brief = "Make the destination of a copy by bytes the only owner of what the fields hold.",
            .leaves = "Leaves what the moves of the fields leave.",
            .cost = "One or two announced writes a field that owns memory; a list is walked once."};
}

Operation get_all(const Record& r) {
    Operation o{.name = "get_all",
                .result = "void",
                .parameters = {domain(), set_id(), const_record(r)},
                .call = "access::get_all",
                .brief = "Read all numbers, truth values, enumerated values and lengths of the record at once.",
                .leaves =
                    "Fields that the variant lacks are left out in silence: their values stay as they are. Leaves "
                    "what the field types' own operations leave.",
                .cost = "No allocation. As many runtime calls a field as its get_value() makes.",
                .pack = Pack{"void*", 3, 0}};
    for (std::size_t i = 0; i < r.count; ++i) {
        if (!access::is_read_at_once(r.fields[i])) continue;
        o.parameters.push_back(plain(value_type(r.fields[i]) + "*", r.fields[i].name,
                                     std::string("receives the value; not null. ") + r.fields[i].doc));
        ++o.pack->count;
    }
    o.parameters.push_back(status());
    return o;
}

Operation set_all(const Record& r) {
    Operation o{.name = "set_all",
                .result = "void",
                .parameters = {domain(), set_id(), record(r)},
                .call = "access::set_all",
                .brief = "Write all numbers, truth values and enumerated values of the record at once, without marking "
                         "them as modified.",
                .leaves =
                    "Fields that the variant lacks are left out in silence. Leaves 43 when an enumeration does not "
                    "accept its number, and what the field types' own operations leave; an enumeration that "
                    "meets an error ends the writing.",
                .cost = "No allocation. One announced write a field.",
                .pack = Pack{"epm::access::Number", 3, 0}};
    for (std::size_t i = 0; i < r.count; ++i) {
        if (!access::is_written_at_once(r, r.fields[i])) continue;
        o.parameters.push_back(plain(value_type(r.fields[i]), r.fields[i].name, r.fields[i].doc));
        ++o.pack->count;
    }
    o.parameters.push_back(status());
    return o;
}

/// The lists that hold a record as an element, with their owners.
std::vector<Operation> parent_operations(const Record& r) {
    std::vector<Operation> all;
    for (const Record* owner : catalogue::all_records)
        for (std::size_t i = 0; i < owner->count; ++i) {
            const Field& f = owner->fields[i];
            if (f.kind != Kind::list || f.record != &r) continue;
            all.push_back({.name = called(f) + "_get_parent",
                           .result = pointer_to(*owner),
                           .parameters = {domain(), set_id(), instance(r, "element", "borrowed"), status()},
                           .call = "access::list_get_parent",
                           .brief = "Find the owner of the list that holds the element.",
                           .returns = "the owner, which is not given away; null when no list holds the element",
                           .leaves = "Leaves 43 for an element of a negative variant.",
                           .cost = "Constant."});
        }
    return all;
}

std::vector<Operation> of_record(const Record& r) {
    std::vector<Operation> all = {whole_get(r), whole_set(r), get_all(r), set_all(r), cleanup(r)};
    for (Operation& o : parent_operations(r)) all.push_back(std::move(o));
    return all;
}

Operation map(const std::string& name) {
    return {.name = name,
            .result = "uint32_t",
            .parameters = {plain("uint32_t", "value", "a number")},
            .call = "access::map_value",
            .brief = "Map between the number that users see and the one inside, which are the same.",
            .returns = "value",
            .cost = "Constant."};
}

std::vector<Operation> of_enum(const Enum& e) {
    const std::string refused = "Leaves 43 when the variant does not accept the value: nothing changes.";
    return {
        whole_get(e),
        {.name = "get_value",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), const_instance(e, "x", "borrowed"), status()},
         .call = "access::get_value",
         .brief = "Read the enumerator's number.",
         .returns = "the number, also one that is no enumerator; 0 on failure",
         .leaves = "Leaves 22 for null.",
         .cost = "Constant."},
        {.name = "set",
         .result = "void",
         .parameters = {domain(), set_id(), instance(e, "destination", "receives header and value; borrowed"),
                        const_instance(e, "source", "copied; borrowed, not null"), status()},
         .call = "access::set",
         .brief = "Copy an enumeration with its header.",
         .leaves = refused,
         .cost = "One announced write of 16 bytes."},
        {.name = "set_value",
         .result = "void",
         .parameters = {domain(), set_id(), instance(e, "x", "borrowed"),
                        plain("uint32_t", "value", "number of an enumerator that the Instance's variant has"),
                        status()},
         .call = "access::set_value",
         .brief = "Write the enumerator's number.",
         .leaves = refused,
         .cost = "One announced write of 4 bytes."},
        map("map_to_user_value"),
        map("map_to_internal_value"),
    };
}

// ---- fields that lie in the record as one value ----

Operation plain_get(const Record& r, const Field& f) {
    return {.name = "get",
            .result = storage_type(f),
            .parameters = {domain(), set_id(), record(r), status()},
            .call = "access::get",
            .brief = "Hand out " + called(f) + " where it lies. " + f.doc,
            .returns = "the field inside the record, whose it stays; null on failure",
            .leaves = if_absent + from_type(f),
            .cost = no_allocation};
}

Operation plain_get_value(const Record& r, const Field& f) {
    return {.name = "get_value",
            .result = value_type(f),
            .parameters = {domain(), set_id(), const_record(r), status()},
            .call = "access::get_value",
            .brief = "Read " + called(f) + ". " + f.doc,
            .returns = "the value; 0 on failure",
            .leaves = if_absent + from_type(f),
            .cost = no_allocation};
}

/// An enumeration refuses by the number for an absent field.
std::string set_leaves(const Field& f) {
    const std::string refused = f.is_own_enum() ? ", or the enumeration's does not accept the number" : "";
    const std::string moved = f.is_of_record() ? ", or the record's own move is refused" : "";
    return if_absent + refused + moved + if_untracked;
}

std::string source_words(const Field& f) {
    if (f.is_of_record()) return "a record; borrowed, its content moves";
    if (f.is_own_enum()) return "an enumeration, copied with its header; borrowed, not null";
    if (f.kind == Kind::object) return "an object; borrowed, its content goes the way of its type's own set";
    return "the new value; borrowed";
}

Operation plain_set(const Record& r, const Field& f) {
    return {.name = "set",
            .result = "void",
            .parameters = {domain(), set_id(), record(r), storage(f, "source", source_words(f)), status()},
            .call = "access::set",
            .brief = "Set " + called(f) + " from what lies elsewhere. " + f.doc,
            .leaves = set_leaves(f) + from_type(f),
            .cost = one_write};
}

Operation plain_set_value(const Record& r, const Field& f) {
    return {.name = "set_value",
            .result = "void",
            .parameters = {domain(), set_id(), record(r), plain(value_type(f), "value", "the new value"), status()},
            .call = "access::set_value",
            .brief = "Set " + called(f) + ". " + f.doc,
            .leaves = set_leaves(f) + "; 2 when the field cannot be reached" + from_type(f),
            .cost = one_write};
}

// ---- texts ----

Operation text_get(const Record& r, const Field& f) {
    return {.name = "get",
            .result = "void",
            .parameters = {domain(), set_id(), const_record(r),
                           plain("char*", "destination", "receives the text, always with a NUL; borrowed"),
                           plain("uint32_t", "size", "bytes available at destination, the NUL's included"), status()},
            .call = "access::get",
            .brief = "Copy " + called(f) + " out. " + f.doc,
            .leaves =
                "Leaves 22 when size is 0; 43 when the variant lacks the field; 28 when the text may not fit: what "
                "fits is copied all the same.",
            .cost = "Linear in the text. No allocation."};
}

Operation text_set(const Record& r, const Field& f) {
    return {.name = "set",
            .result = "void",
            .parameters = {domain(), set_id(), record(r),
                           plain("const char*", "source",
                                 "the new text, which must not be the field's own; a NUL ends it early and zeros take "
                                 "the place of the rest; borrowed; null allowed when length is 0"),
                           plain(r.fields[r.index_of(f.companion)].foreign->length == 2 ? "uint16_t" : "uint32_t",
                                 "length", "characters to take, without a NUL; 0 releases the text"),
                           status()},
            .call = "access::set",
            .brief = "Set " + called(f) + ". " + f.doc,
            .leaves = if_absent + "; 12 when the Domain refuses memory: the old text is gone, and " + f.companion +
                      " keeps its number until the text is set again" + if_untracked + ".",
            .cost = "One allocation of length + 1 bytes, none for 0; the old text's storage is freed."};
}

Operation characters_set(const Record& r, const Field& f) {
    const std::string capacity = std::to_string(f.capacity);
    return {
        .name = "set",
        .result = "void",
        .parameters = {domain(), set_id(), record(r),
                       plain("const char*", "source", "the new characters; borrowed; null allowed when length is 0"),
                       plain("int32_t", "length", "characters to take, 0 to " + capacity), status()},
        .call = "access::set",
        .brief = "Set " + called(f) +
                 ": a NUL is stored behind the characters where there is room, and what lies "
                 "behind it stays. " +
                 f.doc,
        .leaves = if_absent + "; 22 when length is out of range, or when the Domain tracks "
                              "and the record does not: the characters are stored then, without flag and NUL.",
        .cost = one_write};
}

std::vector<Operation> text_operations(const Record& r, const Field& f) {
    const Operation set = f.kind == Kind::text ? text_set(r, f) : characters_set(r, f);
    return {text_get(r, f), set,
            chained(set, "access::set_chained", "Set " + called(f) + " in a chain of `_cr` calls.")};
}

// ---- arms ----

std::vector<Operation> arm_operations(const Record& r, const Field& f) {
    const std::string tag = r.fields[0].name + std::string(" to ") + r.fields[0].enumeration->enumerators[f.tag].name;
    const Operation set = {
        .name = "set",
        .result = "void",
        .parameters = {domain(), set_id(), record(r),
                       instance(*f.record, "arm",
                                "an Instance of its own; taken, also on a failure with 22; null "
                                "empties the slot, but not in tracked mode"),
                       status()},
        .call = "access::set",
        .brief = "Make the record own an arm, and set its tag " + tag +
                 ". Other arms stay where they are; one that "
                 "was in this slot is not destroyed: take it out first, or it is lost. " +
                 f.doc,
        .leaves = if_absent +
                  "; 22 when the Domain tracks and the record or the arm does not: slot and tag are set then, "
                  "only the state flag is not.",
        .cost = "No allocation, no copy: a pointer and the tag are written."};
    return {
        {.name = "get",
         .result = pointer_to(*f.record),
         .parameters = {domain(), set_id(), record(r), status()},
         .call = "access::get",
         .brief = "Hand out the arm in its slot, whether the tag selects it or not. " + std::string(f.doc),
         .returns = "the arm, whose owner stays the record; null for an empty slot and on failure",
         .leaves = if_absent + ".",
         .cost = no_allocation},
        {.name = "get_detach",
         .result = pointer_to(*f.record),
         .parameters = {domain(), set_id(), record(r), status()},
         .call = "access::get_detach",
         .brief = "Take the selected arm out of the record; the tag becomes 0.",
         .returns = "gives the arm, which " + operation_name(f.record->name, "destroy") +
                    "() takes; null when the tag selects another arm, when the slot is empty, and on failure",
         .leaves = if_absent + "; 22 when the Domain tracks and the record does not: the arm has left the record, and "
                               "nobody holds it.",
         .cost = "No allocation, no copy."},
        set,
        chained(set, "access::set_chained", "Make the record own an arm in a chain of `_cr` calls."),
    };
}

// ---- arrays ----

Parameter index_parameter(const Record&, const Field& f) {
    return plain("uint32_t", "index",
                 f.kind == Kind::run ? "element, 0 to " + std::to_string(f.capacity - 1)
                                     : std::string("element, below ") + f.companion);
}

Parameter growing_index(const Field& f) {
    return plain("uint32_t", "index",
                 f.kind == Kind::run ? "element, 0 to " + std::to_string(f.capacity - 1) + "; not checked"
                                     : std::string("element; from ") + f.companion +
                                           " on, the array grows to index + 1 elements, with zeros in between");
}

/// Elements of a fixed run are counted with a sign.
Parameter element_number(const Field& f, std::string doc) {
    return plain(f.kind == Kind::run ? "int32_t" : "uint32_t", "count", std::move(doc));
}

std::vector<Operation> element_flag_operations(const Record& r, const Field& f) {
    const std::string reads = "Leaves 22 when the Domain or the record does not track";
    const std::string writes = reads + "; 43 when the variant lacks the field";
    const std::string whole = "the whole flag of " + called(f) + ", which says that the array has changed";
    return {
        {.name = "state_flag_get",
         .result = "uint8_t",
         .parameters = {domain(), set_id(), record(r), index_parameter(r, f), status()},
         .call = "access::element_flag_get",
         .brief = "Read the state flag of one element of " + called(f) + ".",
         .returns = "the flag, 2 after a set; 0 on failure, and for elements that came without flags",
         .leaves = reads + "; 2 when there is no such element.",
         .cost = "No runtime call but for a moved block."},
        {.name = "state_flag_set",
         .result = "void",
         .parameters = {domain(), set_id(), record(r), index_parameter(r, f),
                        plain("uint32_t", "flag", "the new flag, its low 8 bits"), status()},
         .call = "access::element_flag_set",
         .brief = "Write the state flag of one element of " + called(f) + ".",
         .leaves = writes + "; 2 when there is no such element, or it came without flags.",
         .cost = "One announced byte."},
        {.name = "state_flag_whole_get",
         .result = "uint8_t",
         .parameters = {domain(), set_id(), record(r), status()},
         .call = "lifecycle::state_flag_get",
         .brief = "Read " + whole + ".",
         .returns = "the flag, 2 after a set; 0 on failure",
         .leaves = reads + ".",
         .cost = "No runtime call but for a moved block.",
         .template_arguments = "epm::trace::Operation::whole_get"},
        {.name = "state_flag_whole_set",
         .result = "void",
         .parameters = {domain(), set_id(), record(r), plain("uint32_t", "flag", "the new flag, its low 8 bits"),
                        status()},
         .call = "lifecycle::state_flag_set",
         .brief = "Write " + whole + ".",
         .leaves = writes + ".",
         .cost = "One announced byte.",
         .template_arguments = "epm::trace::Operation::whole_set"},
        {.name = "state_flag_get_arr",
         .result = "void",
         .parameters = {domain(), set_id(), record(r),
                        plain("uint8_t**", "out",
                              "receives the address of the element flags, which stay the record's and are valid until "
                              "the number of elements changes; null where there are none"),
                        status()},
         .call = "access::element_flags_get",
         .brief = "Tell where the state flags of all elements of " + called(f) + " lie.",
         .leaves = reads + ".",
         .cost = "No runtime call but for a moved block."},
        {.name = "state_flag_set_arr",
         .result = "void",
         .parameters = {domain(), set_id(), record(r), plain("const uint8_t*", "source", "count bytes; borrowed"),
                        plain("uint32_t", "count", "the number of elements, exactly"), status()},
         .call = "access::element_flags_set",
         .brief = "Copy bytes over the start of the record's own state flags, unannounced, as far as these reach. "
                  "Element flags are not written, and where the record holds a pointer to them, enough bytes overwrite "
                  "it: for a single element use state_flag_set().",
         .leaves = writes + "; 2 when count is another number.",
         .cost = "One copy."},
    };
}

Operation element_get(const Record& r, const Field& f) {
    return {.name = "get",
            .result = storage_type(f),
            .parameters = {domain(), set_id(), record(r), index_parameter(r, f), status()},
            .call = "access::get",
            .brief = "Hand out one element of " + called(f) + ". " + f.doc,
            .returns = "the element inside the array, whose it stays until the number of elements changes; null on "
                       "failure",
            .leaves = if_absent + "; 2 when there is no such element" + from_type(f),
            .cost = no_allocation};
}

std::string growth_leaves(const Field& f) {
    if (f.kind == Kind::run) return {};
    return "; 12 when the Domain refuses memory: elements and length stay as they are, or, where only the state flags' "
           "memory is refused, the array has grown and has no element flags";
}

const std::string growth_cost = "Within the array, no allocation. Growth allocates the exact size and copies the rest, "
                                "so that filling an array element by element is quadratic.";

Operation value_element_set(const Record& r, const Field& f) {
    const bool is_run = f.kind == Kind::run;
    return {.name = "set",
            .result = "void",
            .parameters = {domain(), set_id(), record(r), growing_index(f),
                           storage(f, "source",
                                   is_run ? "the new value; borrowed; with null nothing happens"
                                          : "the new value; borrowed; with null the array only grows"),
                           status()},
            .call = "access::set",
            .brief = "Set one element of " + called(f) + ". " + f.doc,
            .leaves = if_absent + "; 22 when the Domain tracks and the record does not" +
                      (is_run ? ": the element is stored, and not its flag" : ": nothing changes") + growth_leaves(f) +
                      from_type(f),
            .cost = is_run ? one_write : growth_cost};
}

Operation record_element_set(const Record& r, const Field& f) {
    return {.name = "set",
            .result = "void",
            .parameters = {domain(), set_id(), record(r), growing_index(f),
                           storage(f, "source",
                                   "a record; borrowed; with null the array only grows, which tracked mode does not "
                                   "allow"),
                           plain("uint32_t", "move",
                                 "0: a deep copy is made; else the content moves as with the record's own set, and "
                                 "what the element held is not released"),
                           status()},
            .call = "access::set",
            .brief = "Set one element of " + called(f) + ". " + f.doc,
            .leaves = if_absent +
                      ", or the move is refused; 22 when the Domain tracks and the record or the source does "
                      "not: nothing changes" +
                      growth_leaves(f) +
                      "; 2 when there is no workspace for a copy; 90 when it is too small; and what reading the copy "
                      "leaves: the element holds what has been read by then.",
            .cost = growth_cost + " A deep copy goes through the wire form."};
}

Operation element_chained(const Record& r, const Field& f) {
    const std::string brief = "Set one element of " + called(f) + " in a chain of `_cr` calls.";
    if (f.is_of_record()) return chained(record_element_set(r, f), "access::set_chained", brief);
    Operation o = chained(value_element_set(r, f), "access::set_chained", brief);
    o.parameters.back() = plain(value_type(f), "value", "the new value");
    return o;
}

std::vector<Operation> value_element_operations(const Record& r, const Field& f) {
    const bool is_run = f.kind == Kind::run;
    const std::string pointer = value_type(f) + "*";
    const std::string too_many = "; 22 when count is more than there are: nothing is copied";
    const Operation set_mem = {
        .name = "set_mem",
        .result = "void",
        .parameters = {domain(), set_id(), record(r),
                       plain("const " + pointer, "source", "count values; borrowed; null allowed when count is 0"),
                       element_number(f, is_run ? "values to take, 0 to " + std::to_string(f.capacity)
                                                : "values to take; the array then has so many elements"),
                       status()},
        .call = "access::set_mem",
        .brief = is_run ? "Set the first elements of " + called(f) +
                              ". The rest keeps its content, and the element flags "
                              "theirs."
                        : "Replace all elements of " + called(f) + ". The element flags are 0 afterwards.",
        .leaves = is_run ? if_absent + "; 22 when count is out of range, or when the Domain tracks and the record does "
                                       "not: nothing changes."
                         : if_absent +
                               "; 12 when the Domain refuses memory; 22 when the Domain tracks and the record "
                               "does not. The old elements are gone in both cases, and " +
                               f.companion +
                               " is wrong until the array is set again; only where the state flags' memory is "
                               "refused, the elements are set.",
        .cost = is_run ? "No allocation. One announced copy."
                       : "One allocation for all elements, one more for their flags in tracked mode."};
    return {
        {.name = "get_value",
         .result = value_type(f),
         .parameters = {domain(), set_id(), const_record(r), index_parameter(r, f), status()},
         .call = "access::get_value",
         .brief = "Read one element of " + called(f) + ". " + f.doc,
         .returns = "the value; 0 on failure",
         .leaves = if_absent + "; 2 when there is no such element" + from_type(f),
         .cost = no_allocation},
        {.name = "set_value",
         .result = "void",
         .parameters = {domain(), set_id(), record(r), is_run ? index_parameter(r, f) : growing_index(f),
                        plain(value_type(f), "value", "the new value"), status()},
         .call = "access::set_value",
         .brief = "Set one element of " + called(f) + ". " + f.doc,
         .leaves = if_absent + if_untracked + (is_run ? "; 2 when there is no such element" : growth_leaves(f)) +
                   from_type(f),
         .cost = is_run ? one_write : growth_cost},
        {.name = "get_mem",
         .result = "void",
         .parameters = {domain(), set_id(), const_record(r),
                        plain(pointer, "destination", "receives count values; borrowed"),
                        element_number(f, "elements to copy, from the first on"), status()},
         .call = "access::get_mem",
         .brief = "Copy elements of " + called(f) + " out. " + f.doc,
         .leaves = if_absent + too_many + ".",
         .cost = "One copy."},
        set_mem,
        chained(set_mem, "access::set_mem_chained", set_mem.brief + " For a chain of `_cr` calls."),
    };
}

std::vector<Operation> array_operations(const Record& r, const Field& f) {
    std::vector<Operation> all = element_flag_operations(r, f);
    all.push_back(element_get(r, f));
    all.push_back(f.is_of_record() ? record_element_set(r, f) : value_element_set(r, f));
    if (!f.is_of_record())
        for (Operation& o : value_element_operations(r, f)) all.push_back(std::move(o));
    if (f.kind == Kind::run) return all;
    all.push_back(element_chained(r, f));
    all.push_back({.name = "remove_elements",
                   .result = "void",
                   .parameters = {domain(), set_id(), instance(r, "x", "the record; borrowed; null allowed")},
                   .call = "access::remove_elements",
                   .brief = "Empty " + called(f) + ". State flags stay as they are.",
                   .cost = "Linear in the elements. Their storage is freed."});
    return all;
}

// ---- lists ----

/// A list operation of the usual shape, with further parameters between record and status word.
Operation list_operation(const Record& r, std::string name, std::string result, std::vector<Parameter> own) {
    Operation o{.name = std::move(name),
                .result = std::move(result),
                .parameters = {domain(), set_id(), record(r)},
                .call = {},
                .brief = {}};
    for (Parameter& p : own) o.parameters.push_back(std::move(p));
    o.parameters.push_back(status());
    o.call = "access::list_" + o.name;
    o.cost = constant_walk;
    return o;
}

Operation list_read(const Record& r, const Field& f, std::string name, const std::string& which,
                    std::vector<Parameter> own) {
    Operation o = list_operation(r, std::move(name), pointer_to(*f.record), std::move(own));
    o.brief = "Hand out the " + which + " of " + called(f) + ".";
    o.returns = "the element, whose owner stays the list; null when there is none, and on failure";
    o.leaves = if_absent + ".";
    return o;
}

Operation list_insertion(const Record& r, const Field& f, std::string name, const std::string& where,
                         std::vector<Parameter> own) {
    Operation o = list_operation(r, std::move(name), "void", std::move(own));
    o.brief = "Add an element to " + called(f) + ", " + where + ".";
    o.leaves = if_absent + ": the element stays the caller's; 22 when the Domain tracks and the record does not: the "
                           "element is linked all the same. A store that refuses a link ends the process.";
    return o;
}

std::vector<Operation> list_operations(const Record& r, const Field& f) {
    const Record& type = *f.record;
    const Parameter member = instance(type, "element", "an element of this list; borrowed");
    const Parameter added = instance(type, "element", "an element that is in no list; taken by the list");
    const Parameter reference = instance(type, "reference", "an element of this list; borrowed");
    Operation count = list_operation(r, "get_count", "uint32_t", {});
    count.parameters[2] = const_record(r);
    count.brief = "Count the elements of " + called(f) + ". " + f.doc;
    count.returns =
        "the number of elements, one too high for each that was destroyed without being removed; 0 on failure";
    count.leaves = if_absent + ".";
    Operation remove = list_operation(r, "remove", "void", {member});
    remove.brief = "Take an element out of " + called(f) +
                   ", whose state flag is not touched. The element is the caller's "
                   "again, who destroys it with " +
                   operation_name(type.name, "destroy") + "().";
    remove.leaves = if_absent + ". A store that refuses a link ends the process.";
    return {
        count,
        list_read(r, f, "get_first", "first element", {}),
        list_read(r, f, "get_last", "last element", {}),
        list_read(r, f, "get_next", "element behind another", {member}),
        list_read(r, f, "get_prev", "element in front of another", {member}),
        {.name = "get_cr",
         .result = pointer_to(type),
         .parameters = {chain_domain(), record(r),
                        plain("int32_t", "flag",
                              "0: the first; 1: the last; 2: the one in front of element; 3: the one "
                              "behind it"),
                        instance(type, "element", "an element of this list, for 2 and 3; borrowed")},
         .call = "access::list_get_chained",
         .brief = "Hand out an element of " + called(f) + " in a chain of `_cr` calls.",
         .returns = "the element, whose owner stays the list; null when there is none, and on failure",
         .leaves = if_absent + "; 22 for another flag.",
         .cost = constant_walk},
        list_insertion(r, f, "set_first", "in front of all others", {added}),
        list_insertion(r, f, "set_last", "behind all others", {added}),
        list_insertion(r, f, "set_before", "in front of the reference", {reference, added}),
        list_insertion(r, f, "set_after", "behind the reference", {reference, added}),
        {.name = "add_cr",
         .result = "uint32_t",
         .parameters = {chain_domain(), record(r), added,
                        plain("int32_t", "flag", "0: first; 1: last; 2: in front of the reference; 3: behind it"),
                        instance(type, "reference", "an element of this list, for 2 and 3; borrowed")},
         .call = "access::list_add_chained",
         .brief = "Add an element to " + called(f) + " in a chain of `_cr` calls.",
         .returns = chain_result,
         .leaves = if_absent + "; 22 for another flag, or when the Domain tracks and the record does not: then the "
                               "element is linked all the same.",
         .cost = constant_walk},
        remove,
        chained(remove, "access::list_remove_chained",
                "Take an element out of " + called(f) + " in a chain of `_cr` calls."),
    };
}

std::vector<Operation> of_field(const Record& r, const Field& f) {
    switch (f.kind) {
    case Kind::value: return {plain_get(r, f), plain_get_value(r, f), plain_set(r, f), plain_set_value(r, f)};
    case Kind::length: return {plain_get(r, f), plain_get_value(r, f)};
    case Kind::object:
    case Kind::embedded: return {plain_get(r, f), plain_set(r, f)};
    case Kind::text:
    case Kind::characters: return text_operations(r, f);
    case Kind::array:
    case Kind::run: return array_operations(r, f);
    case Kind::arm: return arm_operations(r, f);
    case Kind::list: return list_operations(r, f);
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
