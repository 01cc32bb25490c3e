/*
 * Field types that come from outside the Bundle, with the operations that a Bundle imports for each.
 * The argument lists are those of the Bundle's own operations; field addresses are passed as void pointers.
 */
#ifndef ZUR_FOREIGN_H
#define ZUR_FOREIGN_H

#include <zur/runtime.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Truth value: a 32-bit word. */
struct zur_boolean;
/** Authentication domain: an imported enumeration of 16 bytes. */
struct sm_auth_domain;
/** Ethernet address: 6 bytes, byte aligned. */
struct zur_mac_addr;
/** String object of 16 bytes. */
struct zur_vstring;
/** Byte string object of 16 bytes. */
struct kesh_bytestr;
/** IPv4 or IPv6 address object of 48 bytes. */
struct ip_address;
/** Type-length-value object of 32 bytes. */
struct aaa_tlv;
/** Session manager objects of 24 bytes each. */
struct sess_mgr_conn_hdl;
struct sess_mgr_client_hdl;
struct sess_mgr_session_label;
struct sess_mgr_authorize_result;

#define ZUR_DECLARE_FIELD(type)                                                                                        \
    void* type##_get(zur_domain* D, uint32_t S, void* address, uint32_t* st);                                          \
    void type##_set(zur_domain* D, uint32_t S, void* address, void* source, uint32_t* st);                             \
    uint32_t type##_len(zur_domain* D, uint32_t S, const void* field);                                                 \
    uint32_t type##_marshal(zur_domain* D, uint32_t S, void* destination, const void* field, int32_t room,             \
                            uint32_t* st);                                                                             \
    uint32_t type##_unmarshal(zur_domain* D, uint32_t S, const void* source, void* field, int32_t room,                \
                              uint32_t reuse, uint32_t* st);                                                           \
    uint32_t type##_print(zur_domain* D, uint32_t S, char* buffer, uint32_t indent, const char* name,                  \
                          const void* field, uint32_t size, uint32_t* st);                                             \
    uint32_t type##_to_xml(zur_domain* D, uint32_t S, const char* name, char* buffer, const void* field,               \
                           uint32_t size, uint8_t flag, uint32_t* st);                                                 \
    void type##_from_xml(zur_domain* D, uint32_t S, const char* path, struct zur_xml_document* document, void* field,  \
                         uint32_t* st, char* message, uint32_t message_size);

#define ZUR_DECLARE_VALUE(type, c_type)                                                                                \
    ZUR_DECLARE_FIELD(type)                                                                                            \
    c_type type##_get_value(zur_domain* D, uint32_t S, void* pointer, uint32_t* st);                                   \
    void type##_set_value(zur_domain* D, uint32_t S, void* address, c_type value, uint32_t* st);

#define ZUR_DECLARE_HASH(type) uint32_t type##_hash(const void* field, uint32_t seed);

#define ZUR_DECLARE_INSTANCE(type)                                                                                     \
    ZUR_DECLARE_HASH(type)                                                                                             \
    extern const zur_type_info _##type##_type_info_internal;                                                           \
    int32_t type##_compare(const void* a, const void* b);                                                              \
    void* type##_initialize(zur_domain* D, uint32_t S, void* memory, const zur_type_info* type_info,                   \
                            uint32_t announce, uint32_t skip_stats, uint32_t extra_flags, void* sttr_base,             \
                            uint32_t* st);                                                                             \
    void type##_set_instance_embedded(zur_domain* D, uint32_t S, void* instance);

#define ZUR_DECLARE_ENUM(type)                                                                                         \
    ZUR_DECLARE_VALUE(type, uint32_t)                                                                                  \
    ZUR_DECLARE_INSTANCE(type)

#define ZUR_DECLARE_RECORD(type)                                                                                       \
    ZUR_DECLARE_FIELD(type)                                                                                            \
    ZUR_DECLARE_INSTANCE(type)                                                                                         \
    void type##_destroy_internal(zur_domain* D, uint32_t S, void* instance, uint32_t free_memory);                     \
    uint32_t type##_get_oid_count(zur_domain* D, uint32_t S, void* instance, uint32_t* st);                            \
    void type##_get_object_references(zur_domain* D, uint32_t S, void* instance, uint64_t* oids, uint32_t length,      \
                                      uint32_t* st);

#define ZUR_DECLARE_PLACED_RECORD(type)                                                                                \
    ZUR_DECLARE_RECORD(type)                                                                                           \
    void type##_offset_update(zur_domain* D, uint32_t S, void* instance, void* sttr_base, uint32_t* st);               \
    void type##_offset_remove(zur_domain* D, uint32_t S, void* instance, uint32_t* st);

ZUR_DECLARE_VALUE(u_int8, uint8_t)
ZUR_DECLARE_VALUE(u_int16, uint16_t)
ZUR_DECLARE_HASH(u_int16)
ZUR_DECLARE_VALUE(u_int32, uint32_t)
ZUR_DECLARE_HASH(u_int32)
ZUR_DECLARE_VALUE(u_int64, uint64_t)
ZUR_DECLARE_HASH(u_int64)
ZUR_DECLARE_VALUE(char, char)
ZUR_DECLARE_HASH(char)

/** Element sizes in memory, in bytes. */
uint32_t u_int32_sizeof(zur_domain* D);
uint32_t char_sizeof(zur_domain* D);
/** A free-standing u_int32 of value 0, or null; give it to u_int32_destroy(). */
void* u_int32_create(zur_domain* D, uint32_t S);
void u_int32_destroy(zur_domain* D, uint32_t S, void* object);

ZUR_DECLARE_ENUM(zur_boolean)
ZUR_DECLARE_ENUM(sm_auth_domain)
ZUR_DECLARE_RECORD(zur_mac_addr)
ZUR_DECLARE_RECORD(zur_vstring)
ZUR_DECLARE_RECORD(kesh_bytestr)
ZUR_DECLARE_RECORD(ip_address)
ZUR_DECLARE_PLACED_RECORD(aaa_tlv)
ZUR_DECLARE_PLACED_RECORD(sess_mgr_conn_hdl)
ZUR_DECLARE_PLACED_RECORD(sess_mgr_client_hdl)
ZUR_DECLARE_PLACED_RECORD(sess_mgr_session_label)
ZUR_DECLARE_PLACED_RECORD(sess_mgr_authorize_result)

/*
 * Optional: whole runs of a primitive in one call. A runtime without them gets one call per element; the bytes, the
 * status and the partial result at a full buffer are the same either way. The result is the count of bytes used.
 */
#if defined(__GNUC__)
#define ZUR_OPTIONAL __attribute__((weak))
#else
#define ZUR_OPTIONAL
#endif
#define ZUR_DECLARE_RUN(type, c_type)                                                                                  \
    ZUR_OPTIONAL uint32_t type##_marshal_run(zur_domain* D, uint32_t S, void* destination, const c_type* first,        \
                                             uint32_t count, int32_t room, uint32_t* st);                              \
    ZUR_OPTIONAL uint32_t type##_unmarshal_run(zur_domain* D, uint32_t S, const void* source, c_type* first,           \
                                               uint32_t count, int32_t room, uint32_t* st);

ZUR_DECLARE_RUN(u_int8, uint8_t)
ZUR_DECLARE_RUN(char, char)
ZUR_DECLARE_RUN(u_int32, uint32_t)

#undef ZUR_DECLARE_RUN
#undef ZUR_DECLARE_PLACED_RECORD
#undef ZUR_DECLARE_RECORD
#undef ZUR_DECLARE_ENUM
#undef ZUR_DECLARE_INSTANCE
#undef ZUR_DECLARE_HASH
#undef ZUR_DECLARE_VALUE
#undef ZUR_DECLARE_FIELD

#ifdef __cplusplus
}
#endif

#endif
