// Exported operations of the Bundle as a whole.
#include "stamp/operation.hpp"

namespace epm::stamp {

std::vector<Operation> frame_operations() {
    return {
        {.name = "orlan_epm_bundle_handler_register",
         .result = "void*",
         .parameters = {plain("void*", "handler", "an opaque word; borrowed until it is unregistered")},
         .call = "frame::register_handler",
         .brief = "Register a handler, and hand it on to the five Bundles that the types build on.",
         .returns = "the handler that was registered before, null if there was none",
         .cost = "Five calls. No lock: register on one thread, before the types are used."},
        {.name = "orlan_epm_bundle_handler_unregister",
         .result = "void*",
         .parameters = {},
         .call = "frame::unregister_handler",
         .brief = "Forget the handler, and tell the same five Bundles in the same order.",
         .returns = "the handler that was registered",
         .cost = "Five calls."},
        {.name = "zur_orlan_epm_trace_init",
         .result = "int",
         .parameters = {},
         .call = "trace::init",
         .brief = "Fetch the Bundle's trace id. Creating a record does so too.",
         .returns = "what the trace facility returns",
         .cost = "One call."},
        {.name = "orlan_epm_typeinfo_initialize",
         .result = "void",
         .parameters = {domain(), set_id(), status()},
         .call = "frame::initialize_type_table",
         .brief = "Copy the type table into a set, and refresh the types that it holds already. The runtime calls it.",
         .leaves = "Leaves 12 when a copy cannot be allocated; copies made before stay.",
         .cost = "One look-up a type, one allocation a new type."},
        {.name = "orlan_epm_type_variant_dump",
         .result = "void",
         .parameters = {plain("zur_print_fn", "print", "prints a format string and its arguments, as printf does")},
         .call = "frame::dump_usage",
         .brief = "Print every type's variants in type-table order: their count, then a line each.",
         .cost = "One line a variant."},
    };
}

const std::vector<Family>& families() {
    static const std::vector<Family> all = {lifecycle_family(), wire_family(), access_family(), text_family()};
    return all;
}

} // namespace epm::stamp
