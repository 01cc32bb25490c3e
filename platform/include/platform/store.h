/*
 * What a caller needs to drive a store: OIDs and references, separate header blocks, the marks that a store would
 * act on, and the ranges announced to the store support library.
 */
#ifndef PLATFORM_STORE_H
#define PLATFORM_STORE_H

#include <zur/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* OIDs. An OID is any number but 0. */

/** Called for an object whose destruction was put off, when its last reference goes: the type's `_destroy`. */
typedef void (*platform_oid_destroy_fn)(zur_domain* D, uint32_t S, void* instance);

/**
 * Gives the Instance an OID without references and sets ZUR_HAS_OID.
 *
 * @param destroy  may be null: then nothing happens when the last reference of a put-off destruction goes
 * @return 0, or 22 when oid is 0 or in use, or when the Instance is null or has an OID; 12 without memory
 */
uint32_t platform_oid_assign(zur_domain* D, uint32_t S, void* instance, uint64_t oid, platform_oid_destroy_fn destroy);
/** Adds one reference; 2 when no object has this OID. */
uint32_t platform_oid_add_reference(zur_domain* D, uint64_t oid);
/** References to the object; 0 when there is none of this OID. */
uint32_t platform_oid_references(zur_domain* D, uint64_t oid);

/**
 * Makes a field of a foreign type report these OIDs as references that it holds, until it is destroyed; a length of 0
 * ends that. An OID of 0 among them makes the field's `_get_object_references` fail with 22.
 *
 * @return 0, or 12 without memory; the field reports what it did before then
 */
uint32_t platform_field_set_oids(zur_domain* D, const void* field, const uint64_t* oids, uint32_t length);
uint32_t platform_field_oid_count(zur_domain* D, const void* field);
/** Copies at most length OIDs; the result is 0 or 22. */
uint32_t platform_field_oids(zur_domain* D, const void* field, uint64_t* oids, uint32_t length);

/**
 * Forgets where the state flags of nested Instances lie, as a store must that has rolled back. `<type>_offset_update()`
 * says it again.
 */
void platform_domain_forget_places(zur_domain* D);

/** Moves the TypeInfo pointer into a block of its own from obj_alloc_fn, and sets ZUR_OWN_HEADER; 12 without memory. */
uint32_t platform_instance_separate_header(zur_domain* D, uint32_t S, zur_instance* instance);

/* Marks. */

enum platform_mark_kind {
    PLATFORM_MARK_CONTAINED, /**< parent and flag are given; instance may be null */
    PLATFORM_MARK_DIRTY,
    PLATFORM_MARK_DESTROYED,
    PLATFORM_MARK_DETACHED /**< flag is given */
};

typedef struct platform_mark {
    enum platform_mark_kind kind;
    uint32_t set_id;
    void* instance;
    void* parent;
    uint32_t flag;
} platform_mark;

/** Receives each mark as it is made; null for none, which is the default. */
void platform_domain_set_mark_sink(zur_domain* D, void (*sink)(void* context, const platform_mark* mark),
                                   void* context);

/* Ranges. */

/** Judges a range announced by lumeo_set_range(): 1 accepts it, 0 refuses. */
typedef int (*platform_range_fn)(void* context, void* store, void* address, uint32_t length, uint32_t set_id);

/**
 * Sets the one judge of all ranges in this process, for any store; null, the default, accepts every range that has an
 * address and a length. Not to be called while another thread announces ranges.
 */
void platform_set_range_judge(platform_range_fn judge, void* context);

#ifdef __cplusplus
}
#endif

#endif
