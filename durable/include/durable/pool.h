/*
 * Instances that live in a file. A pool is a file that is mapped into memory at an address of its own, and a durable
 * Domain allocates there. Its Instances are used like any others, between durable_begin() and durable_commit(). A
 * process that is killed at any point finds, when it opens the pool again, what it committed last.
 */
#ifndef DURABLE_POOL_H
#define DURABLE_POOL_H

#include <zur/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** An open pool. One process at a time has it open. */
typedef struct durable_pool durable_pool;

typedef enum durable_status {
    DURABLE_GOOD,
    DURABLE_NO_FILE,        /**< the file cannot be opened or made */
    DURABLE_EXISTS,         /**< the file to be created, or the root to be set, is there already */
    DURABLE_IN_USE,         /**< another process has the pool open, or this one has it open already */
    DURABLE_FULL,           /**< there is no room: on the disk, or in the pool for what a transaction changes */
    DURABLE_DAMAGED,        /**< not a pool, or a damaged one */
    DURABLE_OTHER_LAYOUT,   /**< a pool of another program, or of another version of this library */
    DURABLE_OTHER_BUILD,    /**< a pool whose types have other digests or another layout than this process */
    DURABLE_ADDRESS_TAKEN,  /**< something else lies at the pool's address; nothing was changed */
    DURABLE_NO_LIBRARY,     /**< libpmemobj cannot be loaded */
    DURABLE_NO_MEMORY,      /**< this process has no memory */
    DURABLE_BUSY,           /**< a transaction is open: of this pool, or of another one in this thread */
    DURABLE_NO_TRANSACTION, /**< this Domain has no transaction open in this thread */
    DURABLE_ABSENT,         /**< there is no such root */
    DURABLE_BAD_ARGUMENT    /**< null, a size or name out of bounds, or an address that is no block of the pool */
} durable_status;

/** A sentence for the status. */
const char* durable_status_text(durable_status status);

/** What the last failure in this thread was about: which file, which type, and what the system said. */
const char* durable_reason(void);

/** The smallest and the largest size of a pool, in bytes. */
#define DURABLE_SMALLEST ((size_t)8 << 20)
#define DURABLE_LARGEST ((size_t)64 << 30)

/**
 * Makes a pool of a fixed size and opens it. The file appears under its name when it is complete; `path` with `.new`
 * behind it is used before.
 *
 * @param pool  receives the pool; null on failure
 */
durable_status durable_create(const char* path, size_t size, durable_pool** pool);

/** Opens a pool, and first rolls back what was not committed. */
durable_status durable_open(const char* path, durable_pool** pool);

/**
 * Opens a copy of a pool that no process has open. The copy is in memory and ends with durable_close(); the file stays
 * as it is, and needs to be readable only.
 */
durable_status durable_open_copy(const char* path, durable_pool** pool);

/** Takes the pool and its Domains, and aborts an open transaction. Null does nothing. */
void durable_close(durable_pool* pool);

/* Domains. */

/**
 * Adds a Domain to the pool. There may be several, which speak different variants (platform_domain_agree_all()), and
 * all of them use the same Instances. Its hooks, obj_store and store_mode must stay as they are.
 *
 * @param tracking  as platform_domain_options::tracking; the same in all Domains that change an Instance
 * @return the Domain; null without memory
 */
zur_domain* durable_domain_create(durable_pool* pool, uint32_t tracking);

/** Takes the Domain; aborts its transaction. The Instances stay. Null does nothing. */
void durable_domain_destroy(zur_domain* D);

/* Transactions. Outside of them Instances may only be read. A write there ends the process, since it could not be
 * undone; an allocation there is refused, and leaves 12. */

/** Opens a transaction. All writes until its end are made through this Domain, by this thread. */
durable_status durable_begin(zur_domain* D);

/**
 * Makes the changes of the transaction durable, all or none. After any failure they are all undone. DURABLE_FULL says
 * that the pool had no room to remember a former content.
 */
durable_status durable_commit(zur_domain* D);

/** Undoes the changes of the transaction. Instances that it created are gone; those that it destroyed are back. */
durable_status durable_abort(zur_domain* D);

/**
 * Remembers the content of a whole block, for the few operations that write without an announcement.
 *
 * @param block  a separate Instance, or the storage of a text or array as its getter returns it
 */
durable_status durable_touch(zur_domain* D, void* block);

/* Roots: the Instances that a pool is entered by. A root has a type and a name; different types may use one name. */

typedef struct durable_root_info {
    const char* type; /**< the type's name */
    const char* name;
    void* instance;
} durable_root_info;

/** Enters an Instance as a root. The name has at most 255 bytes. Needs a transaction. */
durable_status durable_root_set(zur_domain* D, const char* name, void* instance);

/** Removes a root. Its Instance is the caller's again, who destroys it or places it elsewhere. Needs a transaction. */
durable_status durable_root_remove(zur_domain* D, const char* type, const char* name);

/** The Instance of a root; null when there is none. */
void* durable_root(const durable_pool* pool, const char* type, const char* name);

/**
 * Walks over the roots, ordered by type and name. Start with all members null. The texts are valid until a root
 * changes.
 *
 * @return 1, or 0 behind the last one
 */
int durable_root_next(const durable_pool* pool, durable_root_info* root);

/* Looking after a pool. */

/** Asks libpmemobj whether a pool that no process has open is consistent. Looks at a copy in memory. */
durable_status durable_check(const char* path);

typedef struct durable_report {
    size_t size;   /**< of the pool */
    size_t blocks; /**< allocated, this library's own among them */
    size_t bytes;  /**< in these */
    size_t roots;
    size_t lost;          /**< blocks that nothing refers to any more */
    size_t damaged_roots; /**< roots whose Instance is gone or has another type */
} durable_report;

/**
 * Counts what is in the pool. A word counts as a reference when it is the address of a block, so a block may be lost
 * and not be found out, but one that is found is lost.
 *
 * @return DURABLE_DAMAGED when a root is damaged
 */
durable_status durable_look(const durable_pool* pool, durable_report* report);

#ifdef __cplusplus
}
#endif

#endif
