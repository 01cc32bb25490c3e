// How the Bundle registers itself: it passes the handler on to the Bundles it builds on, and links its types into the
// runtime's list with a module node.
#pragma once

namespace epm::frame {

/// Stores the handler and registers it with the five Bundles that the types build on. Returns the former handler.
void* register_handler(void* handler);

/// Forgets the handler and unregisters it from the same Bundles in the same order. Returns it.
void* unregister_handler();

} // namespace epm::frame
