// The table of everything that a Bundle imports, each defined once more in the test program, which the loader prefers
// to the libraries behind it. The optional runs stand in runs.cpp.
#include "support/imports.hpp"

#include <cstdarg>
#include <vector>

using namespace epm::test;

EPM_WATCHED(zur_store_err)
EPM_WATCHED(zur_store_epoch_err)
EPM_WATCHED(zur_clear_last_error)
EPM_WATCHED(zur_get_instance_variant)
EPM_WATCHED(zur_get_instance_obj_flag)
EPM_WATCHED(zur_get_manifested_type_info)
EPM_WATCHED(zur_get_manifested_type_info_ptr_mem)
EPM_WATCHED(zur_domain_lookup_variant)
EPM_WATCHED(zurlib_adjust_variant)
EPM_WATCHED(zur_update_variant_info)
EPM_WATCHED(zur_get_luid)
EPM_WATCHED(zurlib_type_stats_create_object)
EPM_WATCHED(zurlib_type_stats_destroy_object)
EPM_WATCHED(zur_request_oid_mapping_destroy)
EPM_WATCHED(zurlib_lookup_and_update_oid_ref_count)
EPM_WATCHED(zur_hd_mapping_destroy)
EPM_WATCHED(zurdb_record_containment2)
EPM_WATCHED(zurdb_plat_set_dirty)
EPM_WATCHED(zurdb_plat_set_destroy)
EPM_WATCHED(zurdb_plat_set_detach)
EPM_WATCHED(lumeo_perror)
EPM_WATCHED(zurlib_get_sttr_offset)
EPM_WATCHED(zurlib_update_sttr_offset)
EPM_WATCHED(zurlib_get_handle_ws)
EPM_WATCHED(_zur_instance_variant_marshal)
EPM_WATCHED(_zur_instance_variant_unmarshal)
EPM_WATCHED(_zur_instance_obj_flag_marshal)
EPM_WATCHED(_zur_instance_obj_flag_unmarshal)
EPM_WATCHED(_zur_instance_ra_data_marshal)
EPM_WATCHED(_zur_instance_ra_data_unmarshal)
EPM_WATCHED(_zur_variant_jump_marshal)
EPM_WATCHED(_zur_variant_jump_unmarshal)
EPM_WATCHED(_zur_list_len_marshal)
EPM_WATCHED(_zur_list_len_unmarshal)
EPM_WATCHED(zur_print_space)
EPM_WATCHED(start_tag)
EPM_WATCHED(end_tag)
EPM_WATCHED(xml_enum_print)
EPM_WATCHED(xml_get_element_nodecount)
EPM_WATCHED(xml_get_element_value)
EPM_WATCHED(null_string_print)
EPM_WATCHED(null_string_to_xml)
EPM_WATCHED(null_string_from_xml)
EPM_WATCHED(var_string_print)
EPM_WATCHED(var_string_to_xml)
EPM_WATCHED(var_string_from_xml)
EPM_WATCHED(SuperFastHash)
EPM_WATCHED(__QLf_0)
EPM_WATCHED(__QLf_1)
EPM_WATCHED(__QLf_4)
EPM_WATCHED(__QLf_44)
EPM_WATCHED(__QLf_444)
EPM_WATCHED(__QLf_51)
EPM_WATCHED(quelog_module_init_fn)

#define EPM_WATCHED_BUNDLE(name)                                                                                       \
    EPM_WATCHED(name##_bundle_handler_register) EPM_WATCHED(name##_bundle_handler_unregister)
EPM_WATCHED_BUNDLE(kesh_comm)
EPM_WATCHED_BUNDLE(portbase)
EPM_WATCHED_BUNDLE(credbase)
EPM_WATCHED_BUNDLE(credrelay)
EPM_WATCHED_BUNDLE(orlan_sm)

#define EPM_WATCHED_FIELD(type)                                                                                        \
    EPM_WATCHED(type##_get)                                                                                            \
    EPM_WATCHED(type##_set)                                                                                            \
    EPM_WATCHED(type##_len)                                                                                            \
    EPM_WATCHED(type##_marshal)                                                                                        \
    EPM_WATCHED(type##_unmarshal)                                                                                      \
    EPM_WATCHED(type##_print)                                                                                          \
    EPM_WATCHED(type##_to_xml)                                                                                         \
    EPM_WATCHED(type##_from_xml)
#define EPM_WATCHED_VALUE(type) EPM_WATCHED_FIELD(type) EPM_WATCHED(type##_get_value) EPM_WATCHED(type##_set_value)
#define EPM_WATCHED_INSTANCE(type)                                                                                     \
    EPM_WATCHED(type##_hash)                                                                                           \
    EPM_WATCHED(type##_compare)                                                                                        \
    EPM_WATCHED(type##_initialize)                                                                                     \
    EPM_WATCHED(type##_set_instance_embedded)
#define EPM_WATCHED_RECORD(type)                                                                                       \
    EPM_WATCHED_FIELD(type)                                                                                            \
    EPM_WATCHED_INSTANCE(type)                                                                                         \
    EPM_WATCHED(type##_destroy_internal)                                                                               \
    EPM_WATCHED(type##_get_oid_count)                                                                                  \
    EPM_WATCHED(type##_get_object_references)
#define EPM_WATCHED_PLACED(type)                                                                                       \
    EPM_WATCHED_RECORD(type) EPM_WATCHED(type##_offset_update) EPM_WATCHED(type##_offset_remove)

EPM_WATCHED_VALUE(u_int8)
EPM_WATCHED_VALUE(u_int16)
EPM_WATCHED(u_int16_hash)
EPM_WATCHED_VALUE(u_int32)
EPM_WATCHED(u_int32_hash)
EPM_WATCHED(u_int32_sizeof)
EPM_WATCHED(u_int32_create)
EPM_WATCHED(u_int32_destroy)
EPM_WATCHED_VALUE(u_int64)
EPM_WATCHED(u_int64_hash)
EPM_WATCHED_VALUE(char)
EPM_WATCHED(char_hash)
EPM_WATCHED(char_sizeof)
EPM_WATCHED_VALUE(zur_boolean)
EPM_WATCHED_INSTANCE(zur_boolean)
EPM_WATCHED_VALUE(sm_auth_domain)
EPM_WATCHED_INSTANCE(sm_auth_domain)
EPM_WATCHED_RECORD(zur_mac_addr)
EPM_WATCHED_RECORD(zur_vstring)
EPM_WATCHED_RECORD(kesh_bytestr)
EPM_WATCHED_RECORD(ip_address)
EPM_WATCHED_PLACED(aaa_tlv)
EPM_WATCHED_PLACED(sess_mgr_conn_hdl)
EPM_WATCHED_PLACED(sess_mgr_client_hdl)
EPM_WATCHED_PLACED(sess_mgr_session_label)
EPM_WATCHED_PLACED(sess_mgr_authorize_result)

// ---- those that are more than a call ----

namespace {

thread_local zur_typeinfo_initialize_fn bundle_initialize;

void call_back(zur_domain* D, std::uint32_t S, std::uint32_t* st) {
    const BundleCall call(nullptr);
    bundle_initialize(D, S, st);
}

} // namespace

// The runtime calls the Bundle back in here.
extern "C" const zur_type_info* zur_type_info_ptr_get(zur_domain* D, std::uint32_t S, const zur_type_info* type,
                                                      zur_typeinfo_initialize_fn initialize) {
    using Plain = Import<"zur_type_info_ptr_get", decltype(::zur_type_info_ptr_get)>;
    if (!is_observed()) return Plain::forward(D, S, type, initialize);
    const RuntimeCall made("zur_type_info_ptr_get",
                           [&](const Names& names) { return names.list(D, S, type, initialize); });
    bundle_initialize = initialize;
    return Plain::forward(D, S, type, call_back);
}

// A range that the store accepts is as good as an announcement.
extern "C" int lumeo_set_range(void* store, void* address, std::uint32_t length, std::uint32_t S) {
    using Plain = Import<"lumeo_set_range", decltype(::lumeo_set_range)>;
    const RuntimeCall made("lumeo_set_range",
                           [&](const Names& names) { return names.list(store, address, length, S); });
    if (made.is_from_bundle()) tell([&](Observer& o) { o.announced(address, length); });
    return Plain::forward(store, address, length, S);
}

// Arguments of no fixed type cannot be forwarded as they are, so the text is.
extern "C" std::uint32_t zur_snprintf(zur_domain* D, std::uint32_t S, char* buffer, std::uint32_t size,
                                      std::uint32_t* st, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    std::vector<char> text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, again)) + 1);
    va_end(again);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    using Fixed = std::uint32_t (*)(zur_domain*, std::uint32_t, char*, std::uint32_t, std::uint32_t*, const char*, ...);
    static const auto next = reinterpret_cast<Fixed>(following("zur_snprintf"));
    const RuntimeCall made("zur_snprintf", [&](const Names& names) {
        return names.list(D, S, buffer, size, st, static_cast<const char*>(text.data()));
    });
    return next(D, S, buffer, size, st, "%s", text.data());
}
