// Exported operations of the text forms: print, XML out, XML in.
#include "stamp/families.hpp"

namespace epm::stamp {

namespace {

const Parameter buffer{"char*", "buffer", "receives the text"};
const Parameter buffer_size{"uint32_t", "size", "bytes available at buffer"};
const char* const length_of_text = "characters of the text, without a NUL; 0 when the status word was raised on entry";
const char* const length_or_ones =
    "characters of the text, without a NUL; 0xFFFFFFFF when last_error is not 0 afterwards";

Operations print_operations(bool is_record) {
    const std::vector<Status> statuses = {{ZUR_BUFFER_TOO_SMALL, "the text does not fit; what fits is written"},
                                          {any_status, "a field's own print leaves", is_record}};
    const std::string cost =
        is_record ? "no allocation; one or two runtime calls for each entry" : "no allocation; three runtime calls";
    return {
        {.name = "print",
         .result = "uint32_t",
         .parameters = {domain, set_id, buffer, argument("uint32_t", "indent", "blanks in front of the first line"),
                        argument("const char*", "name", "name to show it under"),
                        const_instance("the Instance to show; not null"), buffer_size, status},
         .brief = is_record ? "Show the record to a reader: one block, with an entry for each field."
                            : "Show the value to a reader: one line with the enumerator's name.",
         .details = {{"The brace that closes a nested block follows the last entry after as many bytes as the block is "
                      "indented by. These bytes are not written and may hold a NUL, so rely on the result and not on a "
                      "terminator. The block of an Instance below the record's highest variant is not closed.",
                      is_record},
                     {"The line of a number that is no enumerator has no end.", !is_record}},
         .returns = length_of_text,
         .statuses = statuses,
         .cost = cost},
        {.name = "print_cr",
         .result = "uint32_t",
         .parameters = {chain_domain, const_instance("the Instance to show; not null"), buffer, buffer_size},
         .brief = "Print in a chain of `_cr` calls: not indented, under the type's own name.",
         .returns = length_or_ones,
         .statuses = statuses,
         .cost = cost},
    };
}

Operations to_xml_operations(bool is_record) {
    const std::vector<Status> statuses = {
        {ZUR_BUFFER_TOO_SMALL, "the text does not fit; what fits is written"},
        {ZUR_BAD_ARGUMENT, "the Domain tracks and the Instance does not", is_record},
        {any_status, "a field's own writer leaves", is_record},
    };
    const std::string cost =
        is_record ? "no allocation; one or two runtime calls for each element" : "no allocation; three runtime calls";
    return {
        {.name = "to_xml",
         .result = "uint32_t",
         .parameters = {domain, set_id, argument("const char*", "name", "name of the element"), buffer,
                        const_instance("the Instance to write; not null"), buffer_size,
                        is_record
                            ? argument("uint8_t", "flag", "state flag that the element is to carry, or 0")
                            : argument("uint32_t", "ignored", "not looked at: such an element carries no state flag"),
                        status},
         .brief = is_record
                      ? "Write the record as an XML element that holds an element for each field of the Instance's "
                        "variant."
                      : "Write the value as an XML element that holds an empty element with the enumerator's name.",
         .details = {{"In tracked mode the elements carry the fields' state flags. The element is closed even after a "
                      "failure.",
                      is_record}},
         .returns = length_of_text,
         .statuses = statuses,
         .cost = cost},
        {.name = "toxml_cr",
         .result = "uint32_t",
         .parameters = {chain_domain, const_instance("the Instance to write; not null"), buffer, buffer_size},
         .call = "text::to_xml_chained",
         .brief = "Write XML in a chain of `_cr` calls: the element has the type's own name and no flag.",
         .returns = length_or_ones,
         .statuses = statuses,
         .cost = cost},
    };
}

/// What reading takes from a document, without brief, statuses and cost.
Operation from_xml_operation() {
    return {
        .name = "from_xml",
        .parameters = {domain, set_id,
                       argument(
                           "const char*", "path",
                           "path of the element in the document; of a field's path, what is beyond 255 characters is "
                           "cut off"),
                       argument("struct zur_xml_document*", "document", "the parsed document"),
                       instance("the Instance to fill; not null"), status,
                       argument("char*", "message", "receives a sentence about some failures; null allowed"),
                       argument("uint32_t", "message_size", "bytes available at message")},
        .brief = {},
        .cost = {}};
}

Operation from_xml_operation(const Enum&) {
    Operation o = from_xml_operation();
    o.brief = "Read the value from the enumerator whose name is an element under the path.";
    o.details = {{"When there is none, the value stays; when there are several, the lowest number counts. The variant "
                  "is not looked at."}};
    o.statuses = {{any_status, "the look into the document leaves, other than ZUR_ABSENT"}};
    o.cost = "no allocation; at most one look into the document for each enumerator";
    return o;
}

Operation from_xml_operation(const Record& r) {
    const bool has_setters =
        holds(r, [](const Field& f) { return f.kind == Kind::text || f.kind == Kind::array || f.kind == Kind::list; });
    const bool allocates = has_setters || r.is_union();
    const bool has_arrays = holds(r, [](const Field& f) { return f.kind == Kind::array; });
    Operation o = from_xml_operation();
    o.brief = "Fill the record from the element at the path.";
    o.details = {
        {"A field that is absent there stays as it is. The variant is not looked at, and state flags are not read "
         "back. "
         "After an error, what has been read by then stays."},
        {"Texts are replaced, array elements are replaced by index, list elements are appended. A plain field behind "
         "an "
         "absent text is not read.",
         has_setters},
        {"The record must be fresh: what the slot of an arm holds is overwritten, not destroyed.", r.is_union()},
    };
    o.statuses = {
        {ZUR_ABSENT, "the element is absent"},
        {ZUR_ABSENT, "the last field is absent", r.fields[r.count - 1].kind == Kind::text},
        {ZUR_NO_MEMORY, "the Domain refuses memory", allocates},
        {ZUR_BAD_ARGUMENT, "the Domain tracks and the Instance does not", has_setters},
        {ZUR_NOT_IN_VARIANT, "the Instance has a negative variant", has_setters},
        {any_status, "a field's own reader leaves"},
    };
    o.cost = has_arrays  ? "linear in the fields, and one reallocation for each element of an array"
             : allocates ? "linear in the fields and elements; at most one buffer or Instance for each of them"
                         : "no allocation; one look into the document for each field";
    return o;
}

template <class Type>
Operations of_type(const Type& t) {
    Operations all = print_operations(std::is_same_v<Type, Record>);
    append(all, to_xml_operations(std::is_same_v<Type, Record>));
    all.push_back(from_xml_operation(t));
    return all;
}

} // namespace

Family text_family() {
    return {.name = "text",
            .includes = {"access/array_of_records.hpp", "access/array_of_values.hpp", "access/text_field.hpp",
                         "text/from_xml.hpp", "text/print.hpp", "text/to_xml.hpp"},
            .files = 3,
            .of_record = of_type<Record>,
            .of_enum = of_type<Enum>};
}

} // namespace epm::stamp
