// Whether to believe what the runtime declares plain.
#include "frame/plain.hpp"

namespace epm::plain {

constinit decltype(zur_domain::write_range_fn) idle_hook = nullptr;

namespace {
constexpr char always_atomic = 0;
}
constinit const char* single_threaded = &always_atomic;

namespace {

[[gnu::constructor]] void read_declaration() {
    const zur_plain_operations* declared = &zur_plain_declaration;
    if (declared == nullptr || declared->version != ZUR_PLAIN_VERSION || declared->count != ZUR_PLAIN_COUNT) return;
    const zur_plain_function* next = declared->functions;
    bool is_bound = true;
#define EPM_COMPARE(name) is_bound = is_bound && *next++ == reinterpret_cast<zur_plain_function>(&::name);
    ZUR_PLAIN_FUNCTIONS(EPM_COMPARE)
#undef EPM_COMPARE
    if (!is_bound) return;
    idle_hook = declared->idle_write_range;
    if (declared->single_threaded != nullptr) single_threaded = declared->single_threaded;
}

} // namespace
} // namespace epm::plain
