/*
 * The foreign types' memory, and how a caller reads and writes their values. A zeroed object is an empty value.
 * Pass such an object to a field's setter to move it into a record. zur_boolean and sm_auth_domain have value forms
 * in the contract itself.
 */
#ifndef PLATFORM_VALUES_H
#define PLATFORM_VALUES_H

#include <zur/foreign.h>

#ifdef __cplusplus
extern "C" {
#endif

struct zur_boolean {
    uint32_t value;
};

struct zur_mac_addr {
    uint8_t bytes[6];
};

/** length leaves out the terminator that follows the text. Null when the length is 0. */
struct zur_vstring {
    uint8_t* bytes;
    uint32_t length;
    uint32_t unused;
};

struct kesh_bytestr {
    uint8_t* bytes;
    uint32_t length;
    uint32_t unused;
};

/** family is 0 (no address), 4 or 6; an IPv4 address takes the first four bytes. */
struct ip_address {
    uint32_t family;
    uint8_t bytes[16];
    uint8_t unused[28];
};

/*
 * The types with an Instance header. It is spelled out member by member, because a field may lie in the tail padding
 * that the header's own structure would have.
 */
#define PLATFORM_INSTANCE_HEADER                                                                                       \
    const zur_type_info* type_info;                                                                                    \
    int8_t variant;                                                                                                    \
    int8_t layout_variant;                                                                                             \
    uint8_t flags;                                                                                                     \
    uint8_t header_unused;

struct sm_auth_domain {
    PLATFORM_INSTANCE_HEADER
    uint32_t value;
};

struct aaa_tlv {
    PLATFORM_INSTANCE_HEADER
    uint32_t type;
    uint8_t* bytes;
    uint32_t length;
    uint32_t unused;
};

struct sess_mgr_conn_hdl {
    PLATFORM_INSTANCE_HEADER
    uint32_t unused;
    uint64_t value;
};

struct sess_mgr_client_hdl {
    PLATFORM_INSTANCE_HEADER
    uint32_t unused;
    uint64_t value;
};

struct sess_mgr_session_label {
    PLATFORM_INSTANCE_HEADER
    uint32_t unused;
    uint64_t value;
};

struct sess_mgr_authorize_result {
    PLATFORM_INSTANCE_HEADER
    uint32_t value;
    uint64_t unused;
};

/*
 * Writers borrow their source and keep a copy from obj_alloc_fn; what the object held is released. They leave 12 when
 * memory runs out, 22 for a null object. A value that was never moved into a record is released with its type's
 * `_destroy_internal(D, S, object, 0)`. Readers borrow: the bytes are valid until the object's next change.
 */

void platform_zur_mac_addr_write(zur_domain* D, uint32_t S, struct zur_mac_addr* object, const uint8_t bytes[6],
                                 uint32_t* st);
/** Copies the six bytes out. */
void platform_zur_mac_addr_read(const struct zur_mac_addr* object, uint8_t bytes[6]);

void platform_zur_vstring_write(zur_domain* D, uint32_t S, struct zur_vstring* object, const char* text,
                                uint32_t length, uint32_t* st);
/** The text, terminated; an empty text, never null. length may be null. */
const char* platform_zur_vstring_read(const struct zur_vstring* object, uint32_t* length);

void platform_kesh_bytestr_write(zur_domain* D, uint32_t S, struct kesh_bytestr* object, const uint8_t* bytes,
                                 uint32_t length, uint32_t* st);
/** The bytes; null when there are none. */
const uint8_t* platform_kesh_bytestr_read(const struct kesh_bytestr* object, uint32_t* length);

/** family 4 takes four bytes, 6 sixteen, 0 none; any other leaves 22. */
void platform_ip_address_write(zur_domain* D, uint32_t S, struct ip_address* object, uint32_t family,
                               const uint8_t* bytes, uint32_t* st);
/** Copies the address out, zero-padded; returns the family. */
uint32_t platform_ip_address_read(const struct ip_address* object, uint8_t bytes[16]);

void platform_aaa_tlv_write(zur_domain* D, uint32_t S, struct aaa_tlv* object, uint32_t type, const uint8_t* bytes,
                            uint32_t length, uint32_t* st);
/** The bytes; null when there are none. */
const uint8_t* platform_aaa_tlv_read(const struct aaa_tlv* object, uint32_t* type, uint32_t* length);

void platform_sess_mgr_conn_hdl_write(zur_domain* D, uint32_t S, struct sess_mgr_conn_hdl* object, uint64_t value,
                                      uint32_t* st);
uint64_t platform_sess_mgr_conn_hdl_read(const struct sess_mgr_conn_hdl* object);
void platform_sess_mgr_client_hdl_write(zur_domain* D, uint32_t S, struct sess_mgr_client_hdl* object, uint64_t value,
                                        uint32_t* st);
uint64_t platform_sess_mgr_client_hdl_read(const struct sess_mgr_client_hdl* object);
void platform_sess_mgr_session_label_write(zur_domain* D, uint32_t S, struct sess_mgr_session_label* object,
                                           uint64_t value, uint32_t* st);
uint64_t platform_sess_mgr_session_label_read(const struct sess_mgr_session_label* object);
void platform_sess_mgr_authorize_result_write(zur_domain* D, uint32_t S, struct sess_mgr_authorize_result* object,
                                              uint32_t value, uint32_t* st);
uint32_t platform_sess_mgr_authorize_result_read(const struct sess_mgr_authorize_result* object);

#ifdef __cplusplus
}
#endif

#endif
