// The imported operations of each foreign field type, selected by the type's description. The language cannot join
// names, so one macro for each shape of type spells them here and nowhere else.
#pragma once

#include "frame/instance.hpp"

namespace epm {

/// Operations of the foreign type F; which exist follows from F.shape.
template <const Foreign& F>
struct Codec;

#define EPM_FIELD_OPERATIONS(type)                                                                                     \
    static constexpr auto* get = &::type##_get;                                                                        \
    static constexpr auto* set = &::type##_set;                                                                        \
    static constexpr auto* len = &::type##_len;                                                                        \
    static constexpr auto* marshal = &::type##_marshal;                                                                \
    static constexpr auto* unmarshal = &::type##_unmarshal;                                                            \
    static constexpr auto* print = &::type##_print;                                                                    \
    static constexpr auto* to_xml = &::type##_to_xml;                                                                  \
    static constexpr auto* from_xml = &::type##_from_xml;
#define EPM_VALUE_OPERATIONS(type, c_type)                                                                             \
    using Value = c_type;                                                                                              \
    static constexpr auto* get_value = &::type##_get_value;                                                            \
    static constexpr auto* set_value = &::type##_set_value;
#define EPM_RUN_OPERATIONS(type)                                                                                       \
    static constexpr auto* marshal_run = &::type##_marshal_run;                                                        \
    static constexpr auto* unmarshal_run = &::type##_unmarshal_run;
#define EPM_INSTANCE_OPERATIONS(type)                                                                                  \
    static constexpr auto* hash = &::type##_hash;                                                                      \
    static constexpr auto* compare = &::type##_compare;                                                                \
    static constexpr auto* initialize = &::type##_initialize;                                                          \
    static constexpr auto* set_instance_embedded = &::type##_set_instance_embedded;                                    \
    static const zur_type_info* type_info() {                                                                          \
        return &::_##type##_type_info_internal;                                                                        \
    }
#define EPM_OBJECT_OPERATIONS(type)                                                                                    \
    EPM_FIELD_OPERATIONS(type)                                                                                         \
    EPM_INSTANCE_OPERATIONS(type)                                                                                      \
    static constexpr auto* destroy_internal = &::type##_destroy_internal;                                              \
    static constexpr auto* get_oid_count = &::type##_get_oid_count;                                                    \
    static constexpr auto* get_object_references = &::type##_get_object_references;

#define EPM_OBJECT(type)                                                                                               \
    template <>                                                                                                        \
    struct Codec<catalogue::type> {                                                                                    \
        EPM_OBJECT_OPERATIONS(type)                                                                                    \
    };
#define EPM_PLACED(type)                                                                                               \
    template <>                                                                                                        \
    struct Codec<catalogue::type> {                                                                                    \
        EPM_OBJECT_OPERATIONS(type)                                                                                    \
        static constexpr auto* offset_update = &::type##_offset_update;                                                \
        static constexpr auto* offset_remove = &::type##_offset_remove;                                                \
    };
#define EPM_ENUMERATED(type)                                                                                           \
    template <>                                                                                                        \
    struct Codec<catalogue::type> {                                                                                    \
        EPM_FIELD_OPERATIONS(type)                                                                                     \
        EPM_VALUE_OPERATIONS(type, std::uint32_t)                                                                      \
        EPM_INSTANCE_OPERATIONS(type)                                                                                  \
    };

template <>
struct Codec<catalogue::u_int8> {
    EPM_FIELD_OPERATIONS(u_int8)
    EPM_VALUE_OPERATIONS(u_int8, std::uint8_t)
    EPM_RUN_OPERATIONS(u_int8)
};
template <>
struct Codec<catalogue::u_int16> {
    EPM_FIELD_OPERATIONS(u_int16)
    EPM_VALUE_OPERATIONS(u_int16, std::uint16_t)
    static constexpr auto* hash = &::u_int16_hash;
};
template <>
struct Codec<catalogue::u_int32> {
    EPM_FIELD_OPERATIONS(u_int32)
    EPM_VALUE_OPERATIONS(u_int32, std::uint32_t)
    EPM_RUN_OPERATIONS(u_int32)
    static constexpr auto* hash = &::u_int32_hash;
    static constexpr auto* size_of = &::u_int32_sizeof;
};
template <>
struct Codec<catalogue::u_int64> {
    EPM_FIELD_OPERATIONS(u_int64)
    EPM_VALUE_OPERATIONS(u_int64, std::uint64_t)
    static constexpr auto* hash = &::u_int64_hash;
};
template <>
struct Codec<catalogue::character> {
    EPM_FIELD_OPERATIONS(char)
    EPM_VALUE_OPERATIONS(char, char)
    EPM_RUN_OPERATIONS(char)
    static constexpr auto* hash = &::char_hash;
    static constexpr auto* size_of = &::char_sizeof;
};
EPM_ENUMERATED(zur_boolean)
EPM_ENUMERATED(sm_auth_domain)
EPM_OBJECT(zur_mac_addr)
EPM_OBJECT(zur_vstring)
EPM_OBJECT(kesh_bytestr)
EPM_OBJECT(ip_address)
EPM_PLACED(aaa_tlv)
EPM_PLACED(sess_mgr_conn_hdl)
EPM_PLACED(sess_mgr_client_hdl)
EPM_PLACED(sess_mgr_session_label)
EPM_PLACED(sess_mgr_authorize_result)

#undef EPM_ENUMERATED
#undef EPM_PLACED
#undef EPM_OBJECT
#undef EPM_OBJECT_OPERATIONS
#undef EPM_INSTANCE_OPERATIONS
#undef EPM_RUN_OPERATIONS
#undef EPM_VALUE_OPERATIONS
#undef EPM_FIELD_OPERATIONS

} // namespace epm
