/*
 * Domains of the stand-in runtime: creation, modes, and which variant of each type a Domain speaks.
 * The contract's own fields (hooks, cr_set_id, containment_on, ...) may be read and replaced in zur_domain directly.
 */
#ifndef PLATFORM_DOMAIN_H
#define PLATFORM_DOMAIN_H

#include <zur/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Values of platform_domain_options::tracking. */
#define PLATFORM_NO_HANDLE 0u /**< tracking_handle is null; otherwise ZUR_UNTRACKED_MODE or ZUR_TRACKED_MODE */

/** The variant that stands for "the highest that the type has"; a Bundle caps it. */
#define PLATFORM_HIGHEST_VARIANT 127

/** All zero is a Domain on malloc and free, untracked, without a store, speaking the highest variants. */
typedef struct platform_domain_options {
    uint32_t tracking;       /**< PLATFORM_NO_HANDLE, ZUR_UNTRACKED_MODE or ZUR_TRACKED_MODE */
    uint32_t store_mode;     /**< as zur_domain::store_mode */
    uint32_t workspace_size; /**< bytes of the workspace for clones; 0: 1 MiB */
    void* obj_store;         /**< handed to the allocation hooks and to lumeo_set_range(); may be null */
    void* (*obj_alloc_fn)(void* obj_store, uint32_t set_id, size_t size); /**< null: malloc */
    void (*obj_free_fn)(void* obj_store, uint32_t set_id, void* block);   /**< null: free */
} platform_domain_options;

/**
 * Creates a Domain. The tracking handle is the Domain's own; a caller may change its handle_kind.
 * cr_set_id is ZUR_NO_SET; the write and counter hooks do nothing; the type table lives in the Domain.
 *
 * @param options  borrowed; null for all defaults
 * @return the Domain, which platform_domain_destroy() takes; null when memory runs out
 */
zur_domain* platform_domain_create(const platform_domain_options* options);

/** Takes the Domain, its TypeInfo copies and its maps. Instances must be gone by then. Null does nothing. */
void platform_domain_destroy(zur_domain* D);

/** Sets the size of the workspace; a workspace handed out earlier is no longer valid. */
void platform_domain_set_workspace(zur_domain* D, uint32_t size);

/**
 * Agrees with the peer on a variant of one type, instead of the Domain's default. Negative: the peer does not know the
 * type. Instances created earlier keep their variant until a setter raises it.
 */
void platform_domain_agree(zur_domain* D, const char* type_name, int8_t variant);

/** Sets the default: the variant of every type that has no agreement of its own. */
void platform_domain_agree_all(zur_domain* D, int8_t variant);

/** Forgets all agreements; the default is PLATFORM_HIGHEST_VARIANT again. */
void platform_domain_clear_agreement(zur_domain* D);

#ifdef __cplusplus
}
#endif

#endif
