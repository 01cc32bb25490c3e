/*
 * The operations that a Bundle imports from the type runtime, the store support library and the trace facility.
 * Nothing here is defined by a Bundle. D is the Domain, S the store set, st the caller's status word.
 */
#ifndef ZUR_RUNTIME_H
#define ZUR_RUNTIME_H

#include <zur/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A parsed XML document, opaque to a Bundle. */
struct zur_xml_document;

/** Brings the type table of a set up to date; handed to zur_type_info_ptr_get(). */
typedef void (*zur_typeinfo_initialize_fn)(zur_domain* D, uint32_t S, uint32_t* st);

/* Errors. */

/** Stores code in last_error; touches no status word. */
void zur_store_err(zur_domain* D, uint32_t code);
/** Stores code in *st and in last_error. */
void zur_store_epoch_err(zur_domain* D, uint32_t code, uint32_t* st);
/** Zeroes last_error. */
void zur_clear_last_error(zur_domain* D);

/* Instance header. (a, b) is (1, 0) for records, (1, 1) for a record's boolean or enum field, (0, 1) for an enum
 * Instance. */

/** The Instance's variant; 0 for a null Instance. */
int8_t zur_get_instance_variant(const void* instance, int a, int b);
/** The Instance's flags byte. */
uint8_t zur_get_instance_obj_flag(const void* instance, int a, int b);
/** The Instance's TypeInfo, looking through a separate header block. */
const zur_type_info* zur_get_manifested_type_info(const void* instance);
/** Address of the word that holds the TypeInfo pointer of a record Instance. */
const zur_type_info** zur_get_manifested_type_info_ptr_mem(void* instance);

/* Type and variant. */

/** The variant of the type that this Domain speaks, in the low byte; negative: unknown to the peer. */
int32_t zur_domain_lookup_variant(zur_domain* D, zur_variant_context* context, const zur_type_info* type, uint32_t* st);
/** Brings the Instance's variant into line with the Domain before a write. */
int32_t zurlib_adjust_variant(zur_domain* D, uint32_t S, void* instance, const zur_type_info* type, int32_t highest,
                              uint32_t* st);
/** The pointer to store in Instances while store_mode is non-zero; calls initialize when the set needs its table. */
const zur_type_info* zur_type_info_ptr_get(zur_domain* D, uint32_t S, const zur_type_info* type,
                                           zur_typeinfo_initialize_fn initialize);
/** Refreshes a copy's variant data; is_new is 1 for a copy just made, 0 for one found. */
void zur_update_variant_info(zur_domain* D, uint32_t S, zur_type_info* copy, const zur_type_info* type,
                             uint32_t is_new);
uint32_t zur_get_luid(zur_domain* D, uint32_t S, void* instance, uint32_t* st);
/** Counts one creation; created is the variant's counter. */
void zurlib_type_stats_create_object(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                     uint32_t* st);
/** Counts one destruction; the runtime derives the destroyed counter from created. */
void zurlib_type_stats_destroy_object(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                      uint32_t* st);

/* References and store. */

/** Removes the Instance's OID mapping; zero: other references keep the object alive. */
uint32_t zur_request_oid_mapping_destroy(zur_domain* D, uint32_t S, void* instance, uint32_t* st);
/** Drops one reference to the object named by oid. */
void zurlib_lookup_and_update_oid_ref_count(zur_domain* D, uint32_t S, uint64_t oid, uint32_t add, uint32_t* st);
/** Removes the handle mapping of an Instance or a field. */
void zur_hd_mapping_destroy(zur_domain* D, uint32_t S, void* address, uint32_t* st);
/** Records that child lies in parent; either may be null. */
void zurdb_record_containment2(zur_domain* D, uint32_t S, void* child, void* parent, uint32_t flag);
void zurdb_plat_set_dirty(zur_domain* D, uint32_t S, void* instance);
void zurdb_plat_set_destroy(zur_domain* D, uint32_t S, void* instance);
void zurdb_plat_set_detach(zur_domain* D, uint32_t S, void* instance, uint32_t flag);
/** Announces a range of a list's links; 1 on success. */
int lumeo_set_range(void* store, void* address, uint32_t length, uint32_t S);
/** Prints the support library's last failure. */
void lumeo_perror(void);

/* State tracking. */

/** Offset of the Instance's state-flag block from the Instance. */
uint32_t zurlib_get_sttr_offset(zur_domain* D, uint32_t S, void* instance);
/** Records that offset, and sets ZUR_MOVED_FLAGS. */
void zurlib_update_sttr_offset(zur_domain* D, uint32_t S, void* instance, uint32_t offset);
/** Hands out the workspace that a clone travels through. */
void zurlib_get_handle_ws(zur_domain* D, void** workspace, uint32_t* length, void* request);

/* Wire helpers. Each returns the count of bytes written or read. */

uint32_t _zur_instance_variant_marshal(zur_domain* D, uint32_t S, void* destination, const int8_t* variant,
                                       int32_t room, uint32_t* st);
uint32_t _zur_instance_variant_unmarshal(zur_domain* D, uint32_t S, const void* source, int8_t* variant, int32_t room,
                                         uint32_t* st);
uint32_t _zur_instance_obj_flag_marshal(zur_domain* D, uint32_t S, void* destination, const uint8_t* flags,
                                        int32_t room, uint32_t* st);
uint32_t _zur_instance_obj_flag_unmarshal(zur_domain* D, uint32_t S, const void* source, uint8_t* flags, int32_t room,
                                          uint32_t* st);
uint32_t _zur_instance_ra_data_marshal(zur_domain* D, uint32_t S, void* destination, uint64_t* word, uint8_t* byte,
                                       int32_t room, uint32_t* st);
uint32_t _zur_instance_ra_data_unmarshal(zur_domain* D, uint32_t S, const void* source, uint64_t* word, uint8_t* byte,
                                         int32_t room, uint32_t* st);
uint32_t _zur_variant_jump_marshal(zur_domain* D, uint32_t S, void* destination, const uint32_t* jump, int32_t room,
                                   uint32_t* st);
uint32_t _zur_variant_jump_unmarshal(zur_domain* D, uint32_t S, const void* source, uint32_t* jump, int32_t room,
                                     uint32_t* st);
uint32_t _zur_list_len_marshal(zur_domain* D, uint32_t S, void* destination, const uint32_t* count, int32_t room,
                               uint32_t* st);
uint32_t _zur_list_len_unmarshal(zur_domain* D, uint32_t S, const void* source, uint32_t* count, int32_t room,
                                 uint32_t* st);

/* Text helpers. Each writer returns the count of characters written. */

uint32_t zur_print_space(zur_domain* D, uint32_t S, char* buffer, uint32_t indent, uint32_t size, uint32_t* st);
uint32_t zur_snprintf(zur_domain* D, uint32_t S, char* buffer, uint32_t size, uint32_t* st, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 6, 7)))
#endif
    ;
uint32_t start_tag(zur_domain* D, uint32_t S, char* buffer, const char* name, uint32_t size, uint8_t flag,
                   uint32_t* st);
uint32_t end_tag(zur_domain* D, uint32_t S, char* buffer, const char* name, uint32_t size, uint32_t* st);
uint32_t xml_enum_print(zur_domain* D, uint32_t S, char* buffer, const char* text, uint32_t size, uint32_t text_length,
                        uint32_t* st);
/** Stores how many nodes match the path; 0 on success. */
uint32_t xml_get_element_nodecount(struct zur_xml_document* document, const char* path, uint32_t* count);
/** Fetches an element's text. With a null buffer and size 0: 28 and the length if there is text, 2 if it is absent. */
uint32_t xml_get_element_value(struct zur_xml_document* document, const char* path, char* buffer, uint32_t size,
                               uint32_t* length);
uint32_t null_string_print(zur_domain* D, uint32_t S, char* buffer, uint32_t indent, const char* name,
                           const char* characters, uint32_t size, uint32_t capacity, uint32_t* st);
uint32_t null_string_to_xml(zur_domain* D, uint32_t S, const char* name, char* buffer, const char* characters,
                            uint32_t size, uint32_t capacity, uint8_t flag, uint32_t* st);
void null_string_from_xml(zur_domain* D, uint32_t S, const char* path, struct zur_xml_document* document,
                          char* characters, uint32_t capacity, uint32_t* st, char* message, uint32_t message_size);
uint32_t var_string_print(zur_domain* D, uint32_t S, char* buffer, uint32_t indent, const char* name,
                          const char* characters, uint32_t size, uint32_t length, uint32_t* st);
uint32_t var_string_to_xml(zur_domain* D, uint32_t S, const char* name, char* buffer, const char* characters,
                           uint32_t size, uint32_t length, uint8_t flag, uint32_t* st);
void var_string_from_xml(zur_domain* D, uint32_t S, const char* path, struct zur_xml_document* document,
                         char* characters, uint32_t size, uint32_t* st, char* message, uint32_t message_size);

/** The published hash; seed is the initial value, and a length of 0 returns it. */
uint32_t SuperFastHash(const void* data, uint32_t length, uint32_t seed);

/* Trace. Level in the top byte; the message is named by its index in the catalogue that digest identifies. */

void __QLf_0(const void* digest, uint32_t index, uint32_t module, uint32_t level);
void __QLf_1(const void* digest, uint32_t index, uint32_t module, uint32_t level, const char* text);
void __QLf_4(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint32_t a);
void __QLf_44(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint32_t a, uint32_t b);
void __QLf_444(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint32_t a, uint32_t b, uint32_t c);
void __QLf_51(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint64_t a, const char* text);
/** Fills a module's trace id. Idempotent. */
int quelog_module_init_fn(const char* name, uint16_t* module_id, uint32_t* state);

/* Modules. */

extern zur_module_root zur_module_tot_root;

#define ZUR_DECLARE_BUNDLE(name)                                                                                       \
    void* name##_bundle_handler_register(void* handler);                                                               \
    void* name##_bundle_handler_unregister(void);

ZUR_DECLARE_BUNDLE(kesh_comm)
ZUR_DECLARE_BUNDLE(portbase)
ZUR_DECLARE_BUNDLE(credbase)
ZUR_DECLARE_BUNDLE(credrelay)
ZUR_DECLARE_BUNDLE(orlan_sm)

#undef ZUR_DECLARE_BUNDLE

#ifdef __cplusplus
}
#endif

#endif
