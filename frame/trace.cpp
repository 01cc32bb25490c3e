// The trace calls that turn an error number into words, and the Bundle's trace identity.
#include "frame/trace.hpp"
#include "frame/plain.hpp"

#include <cstring>

extern "C" {
[[gnu::visibility("default")]] std::uint16_t g_zur_orlan_epm_trace_module_id = 0;
[[gnu::visibility("default")]] std::uint16_t g_zur_orlan_epm_stub_trace_module_id = 0;
}

namespace epm::trace {

namespace {

std::uint32_t state = 0;

const char* words(std::uint32_t code) {
    return std::strerror(static_cast<int>(code));
}

} // namespace

int init() {
    static bool is_known = false;
    const auto ask = [] { return quelog_module_init_fn("zur_orlan_epm", &g_zur_orlan_epm_trace_module_id, &state); };
    if (!plain::is_believed()) return ask();
    if (__atomic_load_n(&is_known, __ATOMIC_RELAXED)) return 0;
    const int code = ask();
    if (code == 0) __atomic_store_n(&is_known, true, __ATOMIC_RELAXED);
    return code;
}

void failed(std::uint32_t site, std::uint32_t code) {
    __QLf_1(epm_trace_catalogue.digest, site, g_zur_orlan_epm_trace_module_id, failure, words(code));
}

void reference_failed(std::uint32_t site, std::uint64_t oid, std::uint32_t code) {
    __QLf_51(epm_trace_catalogue.digest, site, g_zur_orlan_epm_trace_module_id, failure, oid, words(code));
}

} // namespace epm::trace
