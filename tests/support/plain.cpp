// What makes a test program declare its operations plain. The declaration speaks for the watched ones of the program,
// and Domains without a store have the hook that does nothing. A test may change it (belief_test.cpp).
#include "support/domains.hpp"

#include <zur/plain.h>

void epm::test::idle_write_range(zur_domain*, void*, std::uint32_t, std::uint32_t, void*) {}

#define EPM_ADDRESS(name) reinterpret_cast<zur_plain_function>(&name),
zur_plain_operations declared asm("zur_plain_declaration") = {
    ZUR_PLAIN_VERSION, ZUR_PLAIN_COUNT, epm::test::idle_write_range, {ZUR_PLAIN_FUNCTIONS(EPM_ADDRESS)}, nullptr};
