// Transactions on a pool: what is remembered of former content, and what happens where there is no room for it.
#include "private.hpp"

#include <zur/runtime.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

using namespace durable;

namespace {

// A change that cannot be undone is never made.
[[noreturn]] void die(const char* what, const void* address) {
    std::fprintf(stderr, "durable: %s at %p\n", what, address);
    std::abort();
}

constexpr std::uint64_t type_of_blocks = 1;

} // namespace

// Private pages show the file as it is, and keep what is written to them for themselves.
bool durable_pool::map_heap(bool is_private) {
    const auto map = [&](int flags) {
        return mmap(mapped.get(), size, PROT_READ | PROT_WRITE, flags | MAP_FIXED, file.number(), 0) != MAP_FAILED;
    };
    if (is_private) return map(MAP_PRIVATE | MAP_NORESERVE);
    return map(MAP_SHARED_VALIDATE | MAP_SYNC) || map(MAP_SHARED); // the first one on persistent memory
}

// The hook for writes cannot refuse one. So the library goes on, in memory that is nobody else's, until the end of the
// transaction; libpmemobj is not called before the file is there again.
void durable_pool::doom() {
    if (is_doomed) return;
    if (!map_heap(true)) die("no room to remember a write, and no private memory", mapped.get());
    is_doomed = true;
}

void durable_pool::remember(void* first, std::size_t length) {
    if (length == 0 || is_doomed) return;
    if (pmemobj.tx_xadd_range_direct(first, length, POBJ_XADD_NO_ABORT | POBJ_XADD_ASSUME_INITIALIZED) != 0) doom();
}

void* durable_pool::allocate(std::size_t length) {
    if (is_doomed || !is_open()) return nullptr;
    return block_of(pmemobj.tx_xalloc(length != 0 ? length : 1, type_of_blocks, POBJ_XALLOC_NO_ABORT));
}

// A block is free when the transaction is committed, so until then its content is still there.
void durable_pool::release(void* block) {
    if (!is_open()) die("a block is released outside of a transaction", block);
    if (!is_doomed && pmemobj.tx_xfree(oid_of(block), POBJ_XFREE_NO_ABORT) != 0) doom();
}

durable_status durable_pool::begin(Store& store) {
    if (writer != nullptr || pmemobj.tx_stage() != TX_STAGE_NONE)
        return fail(DURABLE_BUSY, "a transaction is open already");
    if (const int code = pmemobj.tx_begin(mapped.get(), nullptr, TX_PARAM_NONE)) {
        pmemobj.tx_end();
        return fail(code == ENOMEM ? DURABLE_FULL : DURABLE_DAMAGED, pmemobj.errormsg());
    }
    writer = &store;
    if (store.placed != generation) place_flags(store);
    return DURABLE_GOOD;
}

durable_status durable_pool::end(bool is_commit) {
    const bool is_lost = is_commit && is_doomed;
    if (is_doomed && !map_heap(false)) die("the pool cannot be mapped again", mapped.get());
    const bool is_undone = !is_commit || is_doomed;
    is_doomed = false;
    if (is_undone)
        pmemobj.tx_abort(ECANCELED);
    else
        pmemobj.tx_commit();
    pmemobj.tx_end();
    Store& store = *std::exchange(writer, nullptr);
    const std::uint64_t former = generation++;
    if (is_undone) {
        if (!read_index()) return fail(DURABLE_DAMAGED, "the pool's index is damaged");
        place_flags(store);
    } else if (store.placed == former) {
        store.placed = generation;
    }
    return is_lost ? fail(DURABLE_FULL, std::string("a former content was not remembered: ") + pmemobj.errormsg())
                   : DURABLE_GOOD;
}

// ---- the C interface ----

namespace {

Store* store_of(zur_domain* D) {
    return D != nullptr ? static_cast<Store*>(D->obj_store) : nullptr;
}

// Runs what needs an open transaction of the Domain.
template <class Body>
durable_status within(zur_domain* D, const Body& body) noexcept {
    Store* store = store_of(D);
    if (store == nullptr) return fail(DURABLE_BAD_ARGUMENT, "no Domain");
    durable_pool& pool = *store->pool;
    if (pool.writer != store || !pool.is_open()) return fail(DURABLE_NO_TRANSACTION, "no transaction is open");
    return guarded([&] { return body(pool); });
}

// The status of a change that was made, if it could be remembered.
durable_status done(const durable_pool& pool) {
    return pool.is_doomed ? fail(DURABLE_FULL, "no room to remember a former content") : DURABLE_GOOD;
}

} // namespace

durable_status durable_begin(zur_domain* D) {
    Store* store = store_of(D);
    if (store == nullptr) return fail(DURABLE_BAD_ARGUMENT, "no Domain");
    return guarded([&] { return store->pool->begin(*store); });
}

durable_status durable_commit(zur_domain* D) {
    return within(D, [](durable_pool& pool) { return pool.end(true); });
}

durable_status durable_abort(zur_domain* D) {
    return within(D, [](durable_pool& pool) { return pool.end(false); });
}

durable_status durable_touch(zur_domain* D, void* block) {
    return within(D, [&](durable_pool& pool) {
        if (!pool.contains(block)) return fail(DURABLE_BAD_ARGUMENT, "the block is not in the pool");
        if (!pool.is_doomed) pool.remember(block, pmemobj.alloc_usable_size(pool.oid_of(block)));
        return done(pool);
    });
}

durable_status durable_root_set(zur_domain* D, const char* name, void* instance) {
    return within(D, [&](durable_pool& pool) {
        constexpr std::size_t longest = 255;
        const std::size_t length = name != nullptr ? strnlen(name, longest + 1) : 0;
        if (length == 0 || length > longest) return fail(DURABLE_BAD_ARGUMENT, "a root has a name of 1 to 255 bytes");
        if (!pool.contains(instance, sizeof(zur_instance)))
            return fail(DURABLE_BAD_ARGUMENT, "the Instance is not in the pool");
        const zur_type_info* type = zur_get_manifested_type_info(instance);
        if (!pool.contains(type, sizeof *type)) return fail(DURABLE_BAD_ARGUMENT, "the Instance has no type");
        if (pool.roots.contains({type->name, name})) return fail(DURABLE_EXISTS, std::string(type->name) + " " + name);
        void* memory = pool.allocate(sizeof(RootEntry) + length + 1);
        if (memory == nullptr) return fail(DURABLE_FULL, "no room for a root");
        auto* entry = new (memory) RootEntry{pool.header->roots, &pool.header->roots, instance, type};
        std::memcpy(entry->name(), name, length + 1);
        const durable_status status = guarded([&] {
            pool.roots.emplace(RootKey{type->name, entry->name()}, entry);
            return DURABLE_GOOD;
        });
        if (status != DURABLE_GOOD) {
            pool.release(entry);
            return status;
        }
        if (entry->next != nullptr) pool.store(&entry->next->link, &entry->next);
        pool.store(&pool.header->roots, entry);
        return done(pool);
    });
}

durable_status durable_root_remove(zur_domain* D, const char* type, const char* name) {
    return within(D, [&](durable_pool& pool) {
        if (type == nullptr || name == nullptr) return fail(DURABLE_BAD_ARGUMENT, "a root has a type and a name");
        const auto found = pool.roots.find({type, name});
        if (found == pool.roots.end()) return fail(DURABLE_ABSENT, std::string(type) + " " + name);
        RootEntry* entry = found->second;
        pool.roots.erase(found);
        pool.store(entry->link, entry->next);
        if (entry->next != nullptr) pool.store(&entry->next->link, entry->link);
        pool.release(entry);
        return done(pool);
    });
}
