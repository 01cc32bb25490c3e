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

/** The variant that means "the highest of the type"; a Bundle caps it. */
#define PLATFORM_HIGHEST_VARIANT 127

/**
 * All zero is a Domain on malloc and free within limits, untracked, without a store, speaking the highest variants.
 *
 * The limits protect against messages from strangers, where a few bytes can ask for very much memory. They apply to the
 * default allocation hooks, which a Domain uses if its options name no hook and no obj_store; its obj_store is then the
 * account of that memory. In every Domain memory_limit also covers the places of nested state flags, which the Domain
 * keeps itself. A refusal by a limit leaves 12, and platform_domain_refusal() names the limit.
 *
 * With the default hooks a Domain keeps released blocks of up to 1,032 bytes for its next ones, at most 1 MiB of them.
 * With the memory in use they never take more than memory_limit, and they are given back before anything is refused.
 * Each stays a block of malloc: another Domain may release it, also after its own has ended. Under a sanitizer, or with
 * PLATFORM_PLAIN_MALLOC in the environment, as for valgrind, every block comes from malloc and goes back to free, which
 * then notices a block that is released twice.
 */
typedef struct platform_domain_options {
    uint32_t tracking;       /**< PLATFORM_NO_HANDLE, ZUR_UNTRACKED_MODE or ZUR_TRACKED_MODE */
    uint32_t store_mode;     /**< as zur_domain::store_mode */
    uint32_t workspace_size; /**< bytes of the workspace for clones; 0: 1 MiB */
    void* obj_store;         /**< handed to the allocation hooks and to lumeo_set_range(); may be null */
    void* (*obj_alloc_fn)(void* obj_store, uint32_t set_id, size_t size); /**< null: malloc */
    void (*obj_free_fn)(void* obj_store, uint32_t set_id, void* block);   /**< null: free */
    size_t block_limit;  /**< bytes of one block; 0: 1 MiB, SIZE_MAX: none */
    size_t memory_limit; /**< bytes of all blocks together; 0: 64 MiB, SIZE_MAX: none */
} platform_domain_options;

/**
 * Creates a Domain. The tracking handle is the Domain's own; a caller may change its handle_kind.
 * cr_set_id is ZUR_NO_SET; the write and counter hooks do nothing; the type table lives in the Domain.
 *
 * @param options  borrowed; null for all defaults
 * @return the Domain, which platform_domain_destroy() takes; null when memory runs out
 */
zur_domain* platform_domain_create(const platform_domain_options* options);

/**
 * What a status word says: "the field or value does not exist in the record's variant" for 43. The numbers are Linux
 * errno values, but strerror() has other words for what they mean here. For a number that is no zur_error, as a
 * runtime's own hook may leave it, the result is strerror()'s.
 *
 * @return static text without a full stop; never null
 */
const char* platform_status_text(uint32_t status);

/**
 * Why the Domain itself last refused memory, the reason behind a 12: a sentence with the size asked for and the limit
 * by its name in the options, or that malloc has none.
 *
 * @return borrowed, valid until the next refusal; null while nothing has been refused
 */
const char* platform_domain_refusal(const zur_domain* D);

/** Takes the Domain, its TypeInfo copies and its maps. Instances must be gone by then. Null does nothing. */
void platform_domain_destroy(zur_domain* D);

/** Sets the size of the workspace; a workspace handed out earlier is no longer valid. */
void platform_domain_set_workspace(zur_domain* D, uint32_t size);

/**
 * Agrees with the peer on a variant of one type, instead of the Domain's default. Negative: the peer does not know the
 * type. Instances created earlier keep their variant until a setter raises it.
 *
 * @return 0, or 12 when there is no memory; nothing has changed then
 */
uint32_t platform_domain_agree(zur_domain* D, const char* type_name, int8_t variant);

/** Sets the default: the variant of every type that has no agreement of its own. */
void platform_domain_agree_all(zur_domain* D, int8_t variant);

/** Forgets all agreements; the default is PLATFORM_HIGHEST_VARIANT again. */
void platform_domain_clear_agreement(zur_domain* D);

#ifdef __cplusplus
}
#endif

#endif
