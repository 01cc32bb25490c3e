/*
 * The runtime's data types as a Bundle sees them: Domain, Instance header, TypeInfo, module list.
 * Everything here is layout: a runtime and a Bundle that are built apart must agree on it byte by byte.
 */
#ifndef ZUR_TYPES_H
#define ZUR_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The set_id that names no store set. */
#define ZUR_NO_SET 0xFFFFFFFFu

/** Value of zur_type_info::magic. */
#define ZUR_TYPE_INFO_MAGIC 0xBEEFF00Du

/** Error numbers that operations leave in a status word: Linux errno values, kept as numbers. */
enum zur_error {
    ZUR_ABSENT = 2,            /**< the thing asked for is not there (ENOENT) */
    ZUR_NO_MEMORY = 12,        /**< an allocation hook refused (ENOMEM) */
    ZUR_BAD_ARGUMENT = 22,     /**< wrong argument, or wrong state-tracking mode (EINVAL) */
    ZUR_BUFFER_TOO_SMALL = 28, /**< the caller's buffer is too short for the text (ENOSPC) */
    ZUR_NOT_IN_VARIANT = 43,   /**< the field or value does not exist in the Instance's variant (EIDRM) */
    ZUR_WRONG_LENGTH = 90      /**< a buffer's room or a received length is wrong (EMSGSIZE) */
};

/** Bits of zur_instance::flags. */
enum zur_instance_flag {
    ZUR_HAS_OID = 0x01,     /**< an OID mapping exists; set by the runtime */
    ZUR_EMBEDDED = 0x02,    /**< lies inside another block and is not freed on its own */
    ZUR_NESTED = 0x04,      /**< is a field of a record and uses its parent's state-flag block */
    ZUR_TRACKED = 0x08,     /**< has state flags */
    ZUR_RA_DATA = 0x20,     /**< an ra block travels with it; set by the runtime */
    ZUR_MOVED_FLAGS = 0x40, /**< its state-flag block lies where zurlib_get_sttr_offset() says */
    ZUR_OWN_HEADER = 0x80   /**< the type word points to a separately allocated block */
};

/** Values of zur_tracking_handle::handle_kind. Any other value is damage. */
#define ZUR_UNTRACKED_MODE 0xDDDDu
#define ZUR_TRACKED_MODE 0xEEEEu

/** Value a tracking setter leaves in a field's state flag. */
#define ZUR_FLAG_MODIFIED 2u

/** One variant of a type. The two counters are the only writable part of the type tables. */
typedef struct zur_variant_record {
    uint32_t index;       /**< the variant's number, equal to its position */
    uint32_t used_length; /**< bytes from the Instance's start to just past the variant's last field */
    uint32_t alloc_slop;  /**< bytes allocated beyond used_length */
    uint64_t created;     /**< Instances of this variant created */
    uint64_t destroyed;   /**< Instances of this variant destroyed */
    uint64_t reserved;    /**< zero */
} zur_variant_record;

typedef struct zur_variant_table {
    int8_t count;                /**< number of variants */
    zur_variant_record* records; /**< count records in variant order */
} zur_variant_table;

/** The static identity of a type. A copy in a store has two further pointer-sized words behind it. */
typedef struct zur_type_info {
    uint32_t magic; /**< ZUR_TYPE_INFO_MAGIC */
    uint8_t digest[16];
    char hex_digest[33]; /**< digest in lower-case hexadecimal, NUL-terminated */
    char name[64];
    char bundle[64];
    char kind[64]; /**< "type" for a record, "enum" for an enumeration */
    int32_t type_index;
    const zur_variant_table* variant_table;
    uint32_t plain_counters; /**< non-zero: counters are updated plainly, after counter_range_fn */
} zur_type_info;

/** The header of every Instance; the fields begin at offset 12. */
typedef struct zur_instance {
    const zur_type_info* type_info; /**< with ZUR_OWN_HEADER: the separate block instead */
    int8_t variant;                 /**< variant in force; negative: the peer does not know the type */
    int8_t layout_variant;          /**< highest variant the creating build knew: the memory's shape */
    uint8_t flags;                  /**< enum zur_instance_flag */
    uint8_t unused;
} zur_instance;

/** The runtime's peer-dependent variant selection; a Bundle only passes its address. */
typedef struct zur_variant_context {
    uint64_t opaque[8];
} zur_variant_context;

/** The state-tracking handle; a Bundle reads this word only. */
typedef struct zur_tracking_handle {
    uint32_t handle_kind;
} zur_tracking_handle;

/**
 * The runtime's context, first argument of nearly every operation. The runtime creates and owns it and keeps private
 * data behind the last field. A Bundle writes last_error only through the runtime, and cr_active in `<type>_create_cr`.
 */
typedef struct zur_domain zur_domain;
struct zur_domain {
    /** Allocates a TypeInfo copy: (type_store, ZUR_NO_SET, bytes). */
    void* (*type_alloc_fn)(void* type_store, uint32_t set_id, size_t size);
    /** Allocates an Instance or a field's buffer; null when it refuses. */
    void* (*obj_alloc_fn)(void* obj_store, uint32_t set_id, size_t size);
    /** Frees what obj_alloc_fn gave. */
    void (*obj_free_fn)(void* obj_store, uint32_t set_id, void* block);
    /** Announces a write of length bytes at address, before the bytes change; owner may be null. */
    void (*write_range_fn)(zur_domain* D, void* address, uint32_t length, uint32_t set_id, void* owner);
    /** Announces a write to a per-variant counter. */
    void (*counter_range_fn)(void* obj_store, void* address, uint32_t length, uint32_t set_id);
    /** Adds a TypeInfo copy to the type table; the result is not looked at. */
    int (*type_insert_fn)(void* type_table, uint32_t set_id, const char* hex_digest, zur_type_info* copy);
    /** Finds a TypeInfo copy; null when there is none. */
    zur_type_info* (*type_lookup_fn)(void* type_table, uint32_t set_id, const char* hex_digest);
    /** 0: Instances hold the Bundle's TypeInfo. Non-zero: a copy's address. 1: they also live in a persistent store. */
    uint32_t store_mode;
    void* obj_store;  /**< the allocator's context and the store handle for lumeo_set_range(); null: no such store */
    void* type_table; /**< context of type_insert_fn and type_lookup_fn */
    void* type_store; /**< context of type_alloc_fn */
    zur_variant_context variant_context;
    uint32_t last_error;                  /**< the sticky error; the status word of the `_cr` forms */
    uint32_t cr_set_id;                   /**< the set_id of the `_cr` forms */
    uint32_t cr_active;                   /**< 1 while `<type>_create_cr` creates */
    zur_tracking_handle* tracking_handle; /**< null, or the state-tracking handle */
    uintptr_t hd_mapping_root;            /**< non-zero when handle mappings exist in this Domain */
    uint32_t containment_on;              /**< non-zero: each hand-out of an Instance is recorded */
};

/** One loaded Bundle in the runtime's list. */
typedef struct zur_module_node zur_module_node;
struct zur_module_node {
    const char* name;
    const zur_type_info* const* types; /**< the Bundle's TypeInfos, closed by a null */
    zur_module_node* next;
    zur_module_node** prev_link; /**< the word that points to this node */
};

/** Head of the list of modules, a tail queue. */
typedef struct zur_module_root {
    uint32_t count;
    zur_module_node* first;
    zur_module_node** last_link; /**< the word that is to point to the next node added */
} zur_module_root;

#ifdef __cplusplus
}
#endif

#endif
