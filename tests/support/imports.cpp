// The table of everything that a Bundle imports. The test program defines each import again, and the loader prefers
// these definitions to the libraries'. runs.cpp has the optional runs.
#include "support/imports.hpp"

#include <cstdarg>
#include <cstdlib>
#include <memory>

using namespace epm::test;

/// M(name) for each name.
#define EPM_EACH(M, ...) __VA_OPT__(EPM_EXPAND(EPM_EACH_NEXT(M, __VA_ARGS__)))
#define EPM_EACH_NEXT(M, name, ...) M(name) __VA_OPT__(EPM_EACH_AGAIN EPM_NOTHING(M, __VA_ARGS__))
#define EPM_EACH_AGAIN() EPM_EACH_NEXT
#define EPM_NOTHING ()
#define EPM_EXPAND(...) EPM_EXPAND_MORE(EPM_EXPAND_MORE(EPM_EXPAND_MORE(EPM_EXPAND_MORE(__VA_ARGS__))))
#define EPM_EXPAND_MORE(...) EPM_EXPAND_LAST(EPM_EXPAND_LAST(EPM_EXPAND_LAST(EPM_EXPAND_LAST(__VA_ARGS__))))
#define EPM_EXPAND_LAST(...) EPM_EXPAND_ONCE(EPM_EXPAND_ONCE(EPM_EXPAND_ONCE(EPM_EXPAND_ONCE(__VA_ARGS__))))
#define EPM_EXPAND_ONCE(...) __VA_ARGS__

EPM_EACH(EPM_WATCHED, zur_store_err, zur_store_epoch_err, zur_clear_last_error, zur_get_instance_variant,
         zur_get_instance_obj_flag, zur_get_manifested_type_info, zur_get_manifested_type_info_ptr_mem,
         zur_domain_lookup_variant, zurlib_adjust_variant, zur_update_variant_info, zur_get_luid,
         zurlib_type_stats_create_object, zurlib_type_stats_destroy_object, zur_request_oid_mapping_destroy,
         zurlib_lookup_and_update_oid_ref_count, zur_hd_mapping_destroy, zurdb_record_containment2,
         zurdb_plat_set_dirty, zurdb_plat_set_destroy, zurdb_plat_set_detach, lumeo_perror, zurlib_get_sttr_offset,
         zurlib_update_sttr_offset, zurlib_get_handle_ws, _zur_instance_variant_marshal,
         _zur_instance_variant_unmarshal, _zur_instance_obj_flag_marshal, _zur_instance_obj_flag_unmarshal,
         _zur_instance_ra_data_marshal, _zur_instance_ra_data_unmarshal, _zur_variant_jump_marshal,
         _zur_variant_jump_unmarshal, _zur_list_len_marshal, _zur_list_len_unmarshal, zur_print_space, start_tag,
         end_tag, xml_enum_print, xml_get_element_nodecount, xml_get_element_value, null_string_print,
         null_string_to_xml, null_string_from_xml, var_string_print, var_string_to_xml, var_string_from_xml,
         SuperFastHash, __QLf_0, __QLf_1, __QLf_4, __QLf_44, __QLf_444, __QLf_51, quelog_module_init_fn, u_int16_hash,
         u_int32_hash, u_int32_sizeof, u_int32_create, u_int32_destroy, u_int64_hash, char_hash, char_sizeof)

#define EPM_WATCHED_BUNDLE(name)                                                                                       \
    EPM_WATCHED(name##_bundle_handler_register) EPM_WATCHED(name##_bundle_handler_unregister)
EPM_EACH(EPM_WATCHED_BUNDLE, kesh_comm, portbase, credbase, credrelay, orlan_sm)

#define EPM_WATCHED_FIELD(type)                                                                                        \
    EPM_WATCHED(type##_get)                                                                                            \
    EPM_WATCHED(type##_set)                                                                                            \
    EPM_WATCHED(type##_len)                                                                                            \
    EPM_WATCHED(type##_marshal)                                                                                        \
    EPM_WATCHED(type##_unmarshal) EPM_WATCHED(type##_print) EPM_WATCHED(type##_to_xml) EPM_WATCHED(type##_from_xml)
#define EPM_WATCHED_VALUE(type) EPM_WATCHED_FIELD(type) EPM_WATCHED(type##_get_value) EPM_WATCHED(type##_set_value)
EPM_EACH(EPM_WATCHED_VALUE, u_int8, u_int16, u_int32, u_int64, char, zur_boolean, sm_auth_domain)

#define EPM_WATCHED_INSTANCE(type)                                                                                     \
    EPM_WATCHED(type##_hash)                                                                                           \
    EPM_WATCHED(type##_compare) EPM_WATCHED(type##_initialize) EPM_WATCHED(type##_set_instance_embedded)
EPM_EACH(EPM_WATCHED_INSTANCE, zur_boolean, sm_auth_domain)

#define EPM_WATCHED_RECORD(type)                                                                                       \
    EPM_WATCHED_FIELD(type)                                                                                            \
    EPM_WATCHED_INSTANCE(type)                                                                                         \
    EPM_WATCHED(type##_destroy_internal) EPM_WATCHED(type##_get_oid_count) EPM_WATCHED(type##_get_object_references)
EPM_EACH(EPM_WATCHED_RECORD, zur_mac_addr, zur_vstring, kesh_bytestr, ip_address, aaa_tlv, sess_mgr_conn_hdl,
         sess_mgr_client_hdl, sess_mgr_session_label, sess_mgr_authorize_result)

#define EPM_WATCHED_PLACED(type) EPM_WATCHED(type##_offset_update) EPM_WATCHED(type##_offset_remove)
EPM_EACH(EPM_WATCHED_PLACED, aaa_tlv, sess_mgr_conn_hdl, sess_mgr_client_hdl, sess_mgr_session_label,
         sess_mgr_authorize_result)

// ---- those that are more than a call ----

namespace {

zur_typeinfo_initialize_fn bundle_initialize;

void call_back(zur_domain* D, std::uint32_t S, std::uint32_t* st) {
    const BundleCall call(nullptr);
    bundle_initialize(D, S, st);
}

} // namespace

// The runtime calls the Bundle back in here.
extern "C" const zur_type_info* zur_type_info_ptr_get(zur_domain* D, std::uint32_t S, const zur_type_info* type,
                                                      zur_typeinfo_initialize_fn initialize) {
    using Plain = Import<"zur_type_info_ptr_get", decltype(::zur_type_info_ptr_get)>;
    if (observers.empty()) return Plain::forward(D, S, type, initialize);
    const RuntimeCall made("zur_type_info_ptr_get",
                           [&](const Recorder& names) { return names.list(D, S, type, initialize); });
    bundle_initialize = initialize;
    return Plain::forward(D, S, type, call_back);
}

// A range that the store accepts is as good as an announcement.
extern "C" int lumeo_set_range(void* store, void* address, std::uint32_t length, std::uint32_t S) {
    using Plain = Import<"lumeo_set_range", decltype(::lumeo_set_range)>;
    const RuntimeCall made("lumeo_set_range",
                           [&](const Recorder& names) { return names.list(store, address, length, S); });
    if (made.is_from_bundle()) tell([&](Observer& o) { o.announced(address, length); });
    return Plain::forward(store, address, length, S);
}

// Arguments of no fixed type cannot be forwarded as they are, so the text is.
extern "C" std::uint32_t zur_snprintf(zur_domain* D, std::uint32_t S, char* buffer, std::uint32_t size,
                                      std::uint32_t* st, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) std::abort();
    va_end(arguments);
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    using Fixed = std::uint32_t (*)(zur_domain*, std::uint32_t, char*, std::uint32_t, std::uint32_t*, const char*, ...);
    static const auto next = reinterpret_cast<Fixed>(dlsym(RTLD_NEXT, "zur_snprintf"));
    const RuntimeCall made("zur_snprintf", [&](const Recorder& names) {
        return names.list(D, S, buffer, size, st, static_cast<const char*>(text));
    });
    return next(D, S, buffer, size, st, "%s", text);
}
