// How the Bundle makes itself known: the handler that is handed on to the Bundles it builds on, and the module node
// that links its types into the runtime's list.
#pragma once

namespace epm::frame {

/// Stores the handler and tells the five Bundles that the types build on; returns the former handler.
void* register_handler(void* handler);

/// Forgets the handler and tells the same Bundles in the same order; returns it.
void* unregister_handler();

} // namespace epm::frame
