// Exported operations of texts, and of fixed runs of characters.
#include "stamp/operations/access.hpp"

namespace epm::stamp {

namespace {

Operation get() {
    return {.name = "get",
            .parameters = {domain, set_id, const_owner,
                           argument("char*", "destination", "receives the text, always with a NUL"),
                           argument("uint32_t", "size", "bytes available at destination, including the NUL's"), status},
            .brief = "Copy {field} out.",
            .details = {{"{doc}"}},
            .statuses = {{ZUR_BAD_ARGUMENT, "size is 0"},
                         no_field,
                         {ZUR_BUFFER_TOO_SMALL, "the text may not fit; what fits is copied all the same"}},
            .cost = "linear in the text, no allocation"};
}

Operation set_text() {
    return {
        .name = "set",
        .parameters = {domain, set_id, owner,
                       argument(
                           "const char*", "source",
                           "the new text, which must not be the field's own; where a NUL ends it early, zeros fill "
                           "the rest; null allowed when length is 0"),
                       argument("{length_value}", "length", "characters to take, without a NUL; 0 releases the text"),
                       status},
        .brief = "Set {field}.",
        .details = {{"{doc}"}},
        .statuses = {no_field,
                     {ZUR_NO_MEMORY, "the Domain refuses memory; the old text is gone, and {length} keeps its "
                                     "number until the text is set again"},
                     stored_untracked},
        .cost = "one allocation of length + 1 bytes, none for 0; the old text's storage is freed"};
}

Operation set_characters() {
    return {.name = "set",
            .parameters = {domain, set_id, owner,
                           argument("const char*", "source", "the new characters; null allowed when length is 0"),
                           argument("int32_t", "length", "characters to take, 0 to {capacity}"), status},
            .brief = "Set {field}.",
            .details = {{"Where there is room, a NUL is stored behind the characters; what is beyond it stays. {doc}"}},
            .statuses = {no_field,
                         {ZUR_BAD_ARGUMENT, "length is out of range"},
                         {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the characters are stored "
                                            "without flag and NUL"}},
            .cost = one_write};
}

} // namespace

Operations text_field_operations(const Field& f) {
    const Operation set = f.kind == Kind::text ? set_text() : set_characters();
    return {get(), set, chained(set, "Set {field} in a chain of `_cr` calls.")};
}

} // namespace epm::stamp
