// Exported operations of the Bundle as a whole.
#include "stamp/families.hpp"

namespace epm::stamp {

Operations frame_operations() {
    return {
        {.name = "orlan_epm_bundle_handler_register",
         .result = "void*",
         .parameters = {argument("void*", "handler", "an opaque word")},
         .call = "frame::register_handler",
         .brief = "Register a handler with this Bundle and with the five Bundles that its types build on.",
         .returns = "the handler that was registered before; null if there was none",
         .ownership = "borrows handler until another one is registered or it is unregistered; the result is no longer "
                      "borrowed",
         .cost = "five calls; there is no lock, so register on one thread, before the types are used"},
        {.name = "orlan_epm_bundle_handler_unregister",
         .result = "void*",
         .call = "frame::unregister_handler",
         .brief = "Forget the handler, and tell the same five Bundles in the same order.",
         .returns = "the handler that was registered",
         .ownership = "the result is no longer borrowed",
         .cost = "five calls"},
        {.name = "zur_orlan_epm_trace_init",
         .result = "int",
         .call = "trace::init",
         .brief = "Fetch the Bundle's trace id.",
         .details = {{"Creating a record does so too."}},
         .returns = "what the trace facility returns",
         .cost = "one call"},
        {.name = "orlan_epm_typeinfo_initialize",
         .parameters = {domain, set_id, status},
         .call = "frame::initialize_type_table",
         .brief = "Copy the type table into a store set, and refresh the types that the set holds already.",
         .details = {{"The runtime calls it."}},
         .statuses = {{ZUR_NO_MEMORY, "a copy cannot be allocated; the copies made before stay"}},
         .cost = "one look-up for each type, one allocation for each new type"},
        {.name = "orlan_epm_type_variant_dump",
         .parameters = {argument("zur_print_fn", "print", "prints a format string and its arguments, as printf does")},
         .call = "frame::dump_usage",
         .brief = "Print the variants of every type in type-table order: their count, then a line for each.",
         .cost = "one line for each variant"},
    };
}

} // namespace epm::stamp
