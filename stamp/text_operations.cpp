// Exported operations of the text forms: print, XML out, XML in.
#include "stamp/operation.hpp"

namespace epm::stamp {

namespace {

template <class Type>
constexpr bool is_record = std::is_same_v<Type, Record>;

/// Whether the reader sets some of the record's fields through their setters.
bool is_read_through_setters(const Record& r) {
    return holds(r,
                 [](const Field& f) { return f.kind == Kind::text || f.kind == Kind::array || f.kind == Kind::list; });
}

bool has_arms_or_setters(const Record& r) {
    return r.is_union() || is_read_through_setters(r);
}

Parameter chain_domain() {
    return domain("the Domain; its cr_set_id names the store set");
}
Parameter text_buffer() {
    return plain("char*", "buffer", "receives the text; borrowed");
}
Parameter buffer_size() {
    return plain("uint32_t", "size", "bytes available at buffer");
}

const std::string length_of_text = "characters of the text, without a NUL; 0 when the status word was raised at entry";
const std::string length_or_ones =
    "characters of the text, without a NUL; 0xFFFFFFFF when last_error is not 0 afterwards";
const std::string too_small = "Leaves 28 when the text does not fit: what fits is written";

template <class Type>
std::vector<Operation> print_operations(const Type& t) {
    const std::string form =
        is_record<Type>
            ? "Show the record to a reader: one block, with an entry for each field. The brace of a block inside it "
              "stands as many bytes behind the last entry as the block is indented; the bytes between are not written "
              "and may hold a NUL, so that the result counts and not a terminator. The block of an Instance below the "
              "record's highest variant is not closed."
            : "Show the value to a reader: one line with the enumerator's name. The line of a number that is no "
              "enumerator has no end.";
    const std::string cost = is_record<Type> ? "No allocation. One runtime call or two for each entry."
                                             : "No allocation. Three runtime calls.";
    const std::string also = is_record<Type> ? "; and what a field's own print leaves." : ".";
    return {
        {.name = "print",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), text_buffer(),
                        plain("uint32_t", "indent", "blanks in front of the first line"),
                        plain("const char*", "name", "name to show it under; borrowed"),
                        const_instance(t, "x", "shown; borrowed, not null"), buffer_size(), status()},
         .call = "text::print",
         .brief = form,
         .returns = length_of_text,
         .leaves = too_small + also,
         .cost = cost},
        {.name = "print_cr",
         .result = "uint32_t",
         .parameters = {chain_domain(), const_instance(t, "x", "shown; borrowed, not null"), text_buffer(),
                        buffer_size()},
         .call = "text::print_chained",
         .brief = "Print in a chain of `_cr` calls: not indented, under the type's own name.",
         .returns = length_or_ones,
         .leaves = too_small + also,
         .cost = cost},
    };
}

template <class Type>
std::vector<Operation> to_xml_operations(const Type& t) {
    const std::string form =
        is_record<Type>
            ? "Write the record as an XML element, with an element for each field that the Instance's "
              "variant has; in tracked mode with the fields' state flags. It is closed also after a failure."
            : "Write the value as an XML element that holds an empty element with the enumerator's name.";
    const std::string cost = is_record<Type> ? "No allocation. One runtime call or two for each element."
                                             : "No allocation. Three runtime calls.";
    const std::string leaves =
        too_small + (is_record<Type> ? "; 22 when the Domain tracks and the Instance does not; and what a field's own "
                                       "writer leaves."
                                     : ".");
    const Parameter flag = is_record<Type>
                               ? plain("uint8_t", "flag", "state flag that the element is to carry, or 0")
                               : plain("uint32_t", "ignored", "not looked at: such an element carries no state flag");
    return {
        {.name = "to_xml",
         .result = "uint32_t",
         .parameters = {domain(), set_id(), plain("const char*", "name", "name of the element; borrowed"),
                        text_buffer(), const_instance(t, "x", "written; borrowed, not null"), buffer_size(), flag,
                        status()},
         .call = "text::to_xml",
         .brief = form,
         .returns = length_of_text,
         .leaves = leaves,
         .cost = cost},
        {.name = "toxml_cr",
         .result = "uint32_t",
         .parameters = {chain_domain(), const_instance(t, "x", "written; borrowed, not null"), text_buffer(),
                        buffer_size()},
         .call = "text::to_xml_chained",
         .brief = "Write XML in a chain of `_cr` calls: the element bears the type's own name and no flag.",
         .returns = length_or_ones,
         .leaves = leaves,
         .cost = cost},
    };
}

std::string from_xml_brief(const Enum&) {
    return "Take the value from the enumerator that stands as an element under the path. With none there the value "
           "stays; with several the lowest number counts. The variant is not looked at.";
}
std::string from_xml_leaves(const Enum&) {
    return "Leaves what looking into the document leaves, other than 2.";
}
std::string from_xml_cost(const Enum&) {
    return "No allocation. At most one look into the document for each enumerator.";
}

std::string from_xml_brief(const Record& r) {
    std::string brief = "Fill the record from the element at the path. A field that is absent there stays as it is; "
                        "the variant is not looked at, and state flags are not read back.";
    if (is_read_through_setters(r))
        brief += " Texts are replaced, elements of arrays likewise by their index, elements of lists appended. A plain "
                 "field behind an absent text is not read.";
    if (r.is_union()) brief += " The record must be fresh: what an arm's slot holds is overwritten, not destroyed.";
    return brief;
}
std::string from_xml_leaves(const Record& r) {
    std::string leaves = "Leaves 2 when the element is absent";
    if (r.fields[r.count - 1].kind == Kind::text) leaves += ", or the last field is";
    if (has_arms_or_setters(r)) leaves += "; 12 when the Domain refuses memory";
    if (is_read_through_setters(r))
        leaves += "; 22 when the Domain tracks and the Instance does not; 43 for an Instance of a negative variant";
    return leaves + "; and what a field's own reader leaves. What has been read by then stays.";
}
std::string from_xml_cost(const Record& r) {
    if (holds(r, [](const Field& f) { return f.kind == Kind::array; }))
        return "Linear in the fields, and for an array one reallocation for each element.";
    return has_arms_or_setters(r)
               ? "Linear in the fields and elements; one buffer or Instance for each of them at most."
               : "No allocation. One look into the document for each field.";
}

template <class Type>
Operation from_xml_operation(const Type& t) {
    return {.name = "from_xml",
            .result = "void",
            .parameters = {domain(), set_id(),
                           plain("const char*", "path",
                                 "path of the element in the document; borrowed; what a field's "
                                 "path has beyond 255 characters is cut off"),
                           plain("struct zur_xml_document*", "document", "the parsed document; borrowed"),
                           instance(t, "x", "filled; borrowed, not null"), status(),
                           plain("char*", "message", "receives a sentence about some failures; null allowed"),
                           plain("uint32_t", "message_size", "bytes available at message")},
            .call = "text::from_xml",
            .brief = from_xml_brief(t),
            .leaves = from_xml_leaves(t),
            .cost = from_xml_cost(t)};
}

template <class Type>
std::vector<Operation> of_type(const Type& t) {
    std::vector<Operation> all = print_operations(t);
    const std::vector<Operation> xml = to_xml_operations(t);
    all.insert(all.end(), xml.begin(), xml.end());
    all.push_back(from_xml_operation(t));
    return all;
}

std::vector<Operation> of_record(const Record& r) {
    return of_type(r);
}

std::vector<Operation> of_enum(const Enum& e) {
    return of_type(e);
}

std::vector<Operation> of_field(const Record&, const Field&) {
    return {};
}

} // namespace

Family text_family() {
    return {.name = "text",
            .includes = {"access/array_of_records.hpp", "access/array_of_values.hpp", "access/text_field.hpp",
                         "text/from_xml.hpp", "text/print.hpp", "text/to_xml.hpp"},
            .files = 3,
            .of_record = of_record,
            .of_enum = of_enum,
            .of_field = of_field};
}

} // namespace epm::stamp
