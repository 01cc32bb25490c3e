// Exported operations of the arms of a tagged union.
#include "stamp/operations/access.hpp"

namespace epm::stamp {

Operations arm_field_operations() {
    const Operation set = {
        .name = "set",
        .parameters = {domain, set_id, owner,
                       argument("struct {of}*", "arm",
                                "an Instance of its own; null empties the slot, which tracked mode does not allow"),
                       status},
        .brief = "Make the record own an arm, and set its tag {tag_field} to {tag}.",
        .details = {{"Other arms stay in their slots. An arm that was in this slot is not destroyed: take it out "
                     "first, or it is lost. {doc}"}},
        .ownership = "takes arm, even when it leaves ZUR_BAD_ARGUMENT",
        .statuses = {no_field,
                     {ZUR_BAD_ARGUMENT, "the Domain tracks and the record or the arm does not; slot and tag are set, "
                                        "but the state flag is not"}},
        .cost = "no allocation, no copy; a pointer and the tag are written"};
    return {
        {.name = "get",
         .result = "struct {of}*",
         .parameters = {domain, set_id, owner, status},
         .brief = "Hand out the arm in its slot, whether the tag selects it or not.",
         .details = {{"{doc}"}},
         .returns = "the arm; null for an empty slot and on failure",
         .ownership = "the result stays the record's",
         .statuses = {no_field},
         .cost = "no allocation"},
        {.name = "get_detach",
         .result = "struct {of}*",
         .parameters = {domain, set_id, owner, status},
         .brief = "Take the selected arm out of the record, and set the tag to 0.",
         .returns = "the arm; null when the tag selects another arm, when the slot is empty, and on failure",
         .ownership = "gives the result, which {of}_destroy() takes",
         .statuses = {no_field,
                      {ZUR_BAD_ARGUMENT, "the Domain tracks and the record does not; the arm has left the record, and "
                                         "nobody holds it"}},
         .cost = "no allocation, no copy"},
        set,
        chained(set, "Make the record own an arm in a chain of `_cr` calls."),
    };
}

} // namespace epm::stamp
