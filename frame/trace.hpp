// The Bundle's side of the trace facility: the texts, and the calls that pass a message's index and its raw arguments.
// The texts are never loaded into memory. sites.hpp computes the index for a call site.
#pragma once

#include <zur/runtime.h>

#include <cstdint>
#include <cstdlib>

extern "C" {
/// Head of the section of message identifiers; its digest names the catalogue in every trace call.
struct epm_trace_catalogue_head {
    std::uint32_t version;
    std::uint8_t digest[16];
};
[[gnu::visibility("hidden")]] extern const epm_trace_catalogue_head epm_trace_catalogue;
extern std::uint16_t g_zur_orlan_epm_trace_module_id;
}

namespace epm::trace {

enum class Text : std::uint8_t {
#define EPM_TEXT(name, words) name,
#include "frame/trace_texts.inc"
#undef EPM_TEXT
};

/// The words of each Text.
inline constexpr const char* texts[] = {
#define EPM_TEXT(name, words) words,
#include "frame/trace_texts.inc"
#undef EPM_TEXT
};

inline constexpr std::uint32_t failure = 0x3000000;
inline constexpr std::uint32_t notice = 0x6000000;
inline constexpr std::uint32_t routine = 0x7000000;
inline constexpr std::uint32_t fatal = 0;

/// Gives the Bundle its trace id. The trace facility allows repeated calls.
int init();

[[gnu::cold, gnu::noinline]] inline void plain(std::uint32_t site, std::uint32_t level) {
    __QLf_0(epm_trace_catalogue.digest, site, g_zur_orlan_epm_trace_module_id, level);
}

/// Traces a failure with the text of an error number.
[[gnu::cold, gnu::noinline]] void failed(std::uint32_t site, std::uint32_t code);

/// Traces that one reference could not be released.
[[gnu::cold, gnu::noinline]] void reference_failed(std::uint32_t site, std::uint64_t oid, std::uint32_t code);

[[gnu::cold, gnu::noinline]] inline void bad_flag(std::uint32_t site, std::int32_t flag) {
    __QLf_4(epm_trace_catalogue.digest, site, g_zur_orlan_epm_trace_module_id, failure,
            static_cast<std::uint32_t>(flag));
}

[[gnu::cold, gnu::noinline]] inline void variant_not_present(std::uint32_t site, std::int32_t variant,
                                                             std::int32_t count) {
    __QLf_44(epm_trace_catalogue.digest, site, g_zur_orlan_epm_trace_module_id, notice,
             static_cast<std::uint32_t>(variant), static_cast<std::uint32_t>(count));
}

[[gnu::cold, gnu::noinline]] inline void jumped(std::uint32_t site, std::uint32_t offset, std::uint32_t base,
                                                std::uint32_t jump) {
    __QLf_444(epm_trace_catalogue.digest, site, g_zur_orlan_epm_trace_module_id, notice, offset, base, jump);
}

/// Ends the process because the type system is damaged.
[[noreturn, gnu::cold, gnu::noinline]] inline void die(std::uint32_t site) {
    plain(site, fatal);
    std::abort();
}

} // namespace epm::trace
