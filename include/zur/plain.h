/*
 * What a runtime declares to be plain. A Bundle asks the runtime for every small step of its work, and most runtimes
 * answer most of these calls with a load, a store or a constant. A runtime that defines zur_plain_declaration says so,
 * and a Bundle then does these steps itself. A runtime without the declaration hears every call.
 *
 * The Bundle believes a declaration only when it is bound to the very functions that the declaration lists. So a single
 * function that is preloaded over the runtime's is heard, and so is a whole preloaded runtime.
 *
 * The sentence beside each function is the promise. It speaks of the regular case alone: a status word of 0, addresses
 * that are not null, room enough. In every other case the Bundle calls the function.
 *
 * A Bundle that believes also gives its name to quelog_module_init_fn() only until that succeeds.
 */
#ifndef ZUR_PLAIN_H
#define ZUR_PLAIN_H

#include <zur/foreign.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The version of this file. A declaration of another version counts for nothing; 0 declares nothing. */
#define ZUR_PLAIN_VERSION 1u

/**
 * The word of zur_variant_context::opaque that holds the Domain's agreement while one answer holds for every type:
 * ZUR_PLAIN_AGREED plus the variant as an unsigned byte. The runtime renews it with every agreement, and sets it to 0
 * while answers differ or while zur_domain_lookup_variant() has anything else to do.
 */
#define ZUR_PLAIN_AGREEMENT 1
#define ZUR_PLAIN_AGREED 0x100u

/** The operations of a number, of 1, 2, 4 or 8 bytes. */
#define ZUR_PLAIN_NUMBER(X, type)                                                                                      \
    X(type##_marshal)   /**< writes the number in network order and returns its size */                                \
    X(type##_unmarshal) /**< reads the number in network order and returns its size */                                 \
    X(type##_get)       /**< returns the address */                                                                    \
    X(type##_get_value) /**< returns the number at the address */                                                      \
    X(type##_set_value) /**< announces the number and stores it */

/** Every function that a declaration speaks for, in the order of its table. */
#define ZUR_PLAIN_FUNCTIONS(X)                                                                                         \
    ZUR_PLAIN_NUMBER(X, u_int8)                                                                                        \
    ZUR_PLAIN_NUMBER(X, u_int16)                                                                                       \
    ZUR_PLAIN_NUMBER(X, u_int32)                                                                                       \
    ZUR_PLAIN_NUMBER(X, u_int64)                                                                                       \
    ZUR_PLAIN_NUMBER(X, char)                                                                                          \
    ZUR_PLAIN_NUMBER(X, zur_boolean)                                                                                   \
    X(zur_mac_addr_marshal)                 /**< copies the 6 bytes and returns 6 */                                   \
    X(zur_mac_addr_unmarshal)               /**< announces and copies the 6 bytes and returns 6 */                     \
    X(zur_mac_addr_get)                     /**< returns the address */                                                \
    X(u_int8_marshal_run)                   /**< writes the numbers one after the other; null if there is none */      \
    X(u_int8_unmarshal_run)                 /**< reads the numbers one after the other; null if there is none */       \
    X(char_marshal_run)                     /**< as u_int8_marshal_run */                                              \
    X(char_unmarshal_run)                   /**< as u_int8_unmarshal_run */                                            \
    X(u_int32_sizeof)                       /**< returns 4 */                                                          \
    X(char_sizeof)                          /**< returns 1 */                                                          \
    X(zur_clear_last_error)                 /**< sets zur_domain::last_error to 0 */                                   \
    X(zur_get_instance_variant)             /**< returns zur_instance::variant */                                      \
    X(zur_get_instance_obj_flag)            /**< returns zur_instance::flags */                                        \
    X(zur_get_manifested_type_info)         /**< returns zur_instance::type_info where ZUR_OWN_HEADER is not set */    \
    X(zur_get_manifested_type_info_ptr_mem) /**< returns its address where ZUR_OWN_HEADER is not set */                \
    X(zurlib_adjust_variant)                /**< leaves an Instance whose variant is its layout's or the highest */    \
    X(zur_domain_lookup_variant)            /**< returns the word of the agreement where that is not 0 */              \
    X(zurlib_get_sttr_offset)               /**< returns what zurlib_update_sttr_offset() was told */                  \
    X(zurlib_type_stats_create_object)      /**< adds 1, where store_mode and plain_counters are 0 */                  \
    X(zurlib_type_stats_destroy_object)     /**< adds 1 to the counter of destroyed Instances, as above */             \
    X(_zur_instance_variant_marshal)        /**< writes the byte and returns 1 */                                      \
    X(_zur_instance_variant_unmarshal)      /**< reads the byte and returns 1 */                                       \
    X(_zur_instance_obj_flag_marshal)       /**< writes the byte and returns 1 */                                      \
    X(_zur_instance_obj_flag_unmarshal)     /**< reads the byte and returns 1 */                                       \
    X(_zur_variant_jump_marshal)            /**< writes the word in network order and returns 4 */                     \
    X(_zur_variant_jump_unmarshal)          /**< reads the word in network order and returns 4 */                      \
    X(_zur_list_len_marshal)                /**< writes the count in network order and returns 4 */                    \
    X(_zur_list_len_unmarshal)              /**< reads the count in network order and returns 4 */

typedef void (*zur_plain_function)(void);

#define ZUR_PLAIN_COUNT_ONE(name) +1
enum { ZUR_PLAIN_COUNT = 0 ZUR_PLAIN_FUNCTIONS(ZUR_PLAIN_COUNT_ONE) };
#undef ZUR_PLAIN_COUNT_ONE

/** What a runtime declares. */
typedef struct zur_plain_operations {
    uint32_t version; /**< ZUR_PLAIN_VERSION */
    uint32_t count;   /**< ZUR_PLAIN_COUNT */
    /** The write hook that does nothing. In a Domain with any other hook every write is announced. */
    void (*idle_write_range)(zur_domain* D, void* address, uint32_t length, uint32_t set_id, void* owner);
    /** The runtime's own addresses of the functions above. */
    zur_plain_function functions[ZUR_PLAIN_COUNT];
    /** Not 0 while the process has one thread, so that counting needs no atomic step. Null: it always takes one. */
    const char* single_threaded;
} zur_plain_operations;

/** Defined by a runtime that declares anything. */
extern const zur_plain_operations zur_plain_declaration ZUR_OPTIONAL;

#ifdef __cplusplus
}
#endif

#endif
