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
    corrupted_handle,
    not_tracked,
    not_tracked_on_read,
    no_variant_table,
    variant_not_present,
    range_refused,
    oid_mapping_kept,
    oid_count_after_error,
    oid_count_of_nothing,
    references_after_error,
    references_of_nothing,
    type_info_damaged,
    record_not_created,
    no_block_for_nested,
    embedded_nothing,
    still_referenced,
    oid_mapping_removed,
    tracking_mismatch,
    jumped,
    references_not_read,
    reference_not_dropped,
    value_not_tracked,
    counting_failed,
    enum_not_created,
    embedded_no_enum,
    reallocating,
    list_element_not_read,
    bad_get_flag,
    bad_add_flag,
    no_variant_table_in_dump,
};

/// The message texts, in the order of Text. `<type>` is replaced by the name of the entry's type.
inline constexpr const char* texts[] = {
    " Corrupted ZUR Handle",
    " The object is not state tracked",
    " The object is non state tracked",
    " varinfo is NULL",
    " variant %u requested only %u variants present",
    " lumeo internal error",
    " <type> destroy: Failed to remove oid mapping for object. Error %s",
    " Error already present in call to get object oid count",
    " Invalid object passed in to get object oid count",
    " Error present in call to get table references from object",
    " Cannot get table references. Invalid object passed on",
    " tinfo is null or corrupted",
    " error in <type> create: %s",
    (" sttr_base can not be NULL in NESTED case. Please check the parent object and provide the correct state tracking "
     "base pointer"),
    " Invalid object pointer passed in to set instance flag",
    " <type> destroy: Object has references and will be cleaned up when all of them are released",
    " <type> destroy: Successfully removed OID mapping",
    " ZUR handle and object state tracking mis-match",
    " offset_jump read_len %d offset_jump_base %d _zur_variant_jump %d",
    " <type> destroy: Failed to get oid references from object. Error %s",
    " <type> destroy: Failed to decrement ref count of oid %p. Error %s",
    " The val object is not state tracked",
    " zur_stats_inc failed %s",
    " error in <type> create %s",
    " Invalid object handle passed to set embedded flag",
    " Reallocating resource for <type>",
    " Error %s while unmarshalling list element",
    " invalid list get flag %d",
    " invalid list add flag %d",
    " type variant cached info is NULL during usage dump",
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
