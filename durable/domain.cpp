// Durable Domains: the stand-in's Domains with hooks that allocate in a pool and remember what is about to change.
#include "private.hpp"

#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/store.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <shared_mutex>

using namespace durable;

namespace {

// ---- the stores of this process, for announcements that name only one of them ----

std::shared_mutex stores_mutex;
std::vector<const Store*> all_stores;

bool is_store(const void* address) {
    const std::shared_lock lock(stores_mutex);
    return std::ranges::count(all_stores, address) != 0;
}

void remember(Store& store, void* address, std::size_t length) {
    durable_pool& pool = *store.pool;
    if (!pool.contains(address)) return; // an Instance that the caller has elsewhere
    if (pool.writer != &store || !pool.is_open()) {
        std::fprintf(stderr, "durable: a write at %p outside of a transaction of its Domain\n", address);
        std::abort();
    }
    pool.remember(address, std::min(length, pool.size - (reinterpret_cast<std::uintptr_t>(address) - pool.address())));
}

int judge_range(void*, void* store, void* address, uint32_t length, uint32_t) {
    if (is_store(store)) remember(*static_cast<Store*>(store), address, length);
    return 1;
}

// ---- hooks ----

void* allocate(void* store, uint32_t, std::size_t size) {
    return static_cast<Store*>(store)->pool->allocate(size);
}

void release(void* store, uint32_t, void* block) {
    durable_pool& pool = *static_cast<Store*>(store)->pool;
    if (pool.contains(block)) pool.release(block);
}

// The setter of fixed characters writes a NUL behind them that it does not announce.
void announce_write(zur_domain* D, void* address, uint32_t length, uint32_t, void*) {
    remember(*static_cast<Store*>(D->obj_store), address, std::size_t{length} + 1);
}

// A counter is announced as one byte, and has eight.
void announce_counter(void* store, void* address, uint32_t, uint32_t) {
    remember(*static_cast<Store*>(store), address, sizeof(uint64_t));
}

// The runtime lets a new copy refer to variants in the process. Those in the pool take their place.
void adopt(durable_pool& pool, TypeEntry& entry) {
    if (entry.table.records != nullptr && entry.copy->variant_table != &entry.table)
        pool.store(&entry.copy->variant_table, &entry.table);
}

// The Bundle computes places in front of the first record for negative variants, and counts there.
constexpr std::size_t spare_records = 128;

// Nobody looks at the result. A copy that is not entered is not found, so that the Instance which wanted it is refused.
int insert_type(void* store, uint32_t, const char*, zur_type_info* copy) {
    durable_pool& pool = *static_cast<Store*>(store)->pool;
    const zur_variant_table* table = copy->variant_table;
    const auto count = static_cast<std::size_t>(table != nullptr ? std::max<int>(table->count, 0) : 0);
    void* memory = pool.allocate(sizeof(TypeEntry) + (spare_records + count) * sizeof(zur_variant_record));
    if (memory == nullptr) return 0;
    auto* entry = new (memory) TypeEntry{pool.header->types, copy, {}};
    const durable_status status = guarded([&] {
        pool.types.insert_or_assign(copy->hex_digest, entry);
        return DURABLE_GOOD;
    });
    if (status != DURABLE_GOOD) return pool.release(entry), 0;
    pool.store(&pool.header->types, entry);
    if (table == nullptr) return 1;
    auto* spare = reinterpret_cast<zur_variant_record*>(entry + 1);
    std::memset(spare, 0, (spare_records + count) * sizeof *spare);
    for (std::size_t i = 0; i < count; ++i) {
        zur_variant_record& record = spare[spare_records + i];
        record = table->records[i];
        record.created = record.destroyed = 0; // this process counts others
    }
    entry->table = {table->count, spare + spare_records};
    return 1;
}

zur_type_info* find_type(void* store, uint32_t, const char* hex_digest) {
    durable_pool& pool = *static_cast<Store*>(store)->pool;
    const auto found = pool.types.find(hex_digest);
    if (found == pool.types.end()) return nullptr;
    adopt(pool, *found->second);
    return found->second->copy;
}

} // namespace

void DestroyDomain::operator()(Store* store) const {
    if (store->pool->writer == store && store->pool->is_open()) store->pool->end(false);
    {
        const std::unique_lock lock(stores_mutex);
        std::erase(all_stores, store);
    }
    platform_domain_destroy(store->D);
    delete store;
}

zur_domain* durable_domain_create(durable_pool* pool, uint32_t tracking) {
    if (pool == nullptr) return nullptr;
    zur_domain* D = nullptr;
    guarded([&] {
        OwnedStore store(new Store{pool, nullptr, 0});
        platform_domain_options options{};
        options.tracking = tracking;
        options.store_mode = 1;
        options.obj_store = store.get();
        options.obj_alloc_fn = allocate;
        options.obj_free_fn = release;
        options.memory_limit = SIZE_MAX; // the places of state flags, as many as the pool needs
        D = store->D = platform_domain_create(&options);
        if (D == nullptr) return DURABLE_NO_MEMORY;
        D->write_range_fn = announce_write;
        D->counter_range_fn = announce_counter;
        D->type_alloc_fn = allocate;
        D->type_insert_fn = insert_type;
        D->type_lookup_fn = find_type;
        D->type_store = D->type_table = store.get();
        {
            const std::unique_lock lock(stores_mutex);
            all_stores.push_back(store.get());
        }
        platform_set_range_judge(judge_range, nullptr);
        place_flags(*store);
        pool->stores.push_back(std::move(store));
        return DURABLE_GOOD;
    });
    return D;
}

void durable_domain_destroy(zur_domain* D) {
    if (D == nullptr) return;
    auto* store = static_cast<Store*>(D->obj_store);
    std::erase_if(store->pool->stores, [&](const OwnedStore& owned) { return owned.get() == store; });
}

durable_status durable::refresh_types(durable_pool& pool) {
    zur_domain* D = durable_domain_create(&pool, PLATFORM_NO_HANDLE);
    if (D == nullptr) return DURABLE_NO_MEMORY;
    durable_status status = durable_begin(D);
    if (status == DURABLE_GOOD) {
        uint32_t st = 0;
        orlan_epm_typeinfo_initialize(D, ZUR_NO_SET, &st);
        for (const auto& [digest, entry] : pool.types) adopt(pool, *entry);
        status = st == 0 ? durable_commit(D) : fail(DURABLE_FULL, "no room for the types");
    }
    durable_domain_destroy(D);
    return status;
}
