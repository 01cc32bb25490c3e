// Domains: creation with the default hooks, errors, the workspace, the marks of a store, and the root of modules.
#include "private.hpp"

#include <cstdio>
#include <malloc.h>
#include <new>

namespace platform {

bool Account::admits(std::size_t size) {
    const bool is_admitted = size <= memory_limit_ - std::min(used_, memory_limit_);
    if (!is_admitted)
        std::snprintf(refusal_, sizeof refusal_, "%zu bytes are refused: %zu of the memory_limit of %zu are in use",
                      size, used_, memory_limit_);
    return is_admitted;
}

bool Account::charge(std::size_t size) {
    const bool is_admitted = admits(size);
    if (is_admitted) used_ += size;
    return is_admitted;
}

// Counts what malloc really gave.
void* Account::allocate(std::size_t size) {
    if (size > block_limit_) {
        std::snprintf(refusal_, sizeof refusal_, "a block of %zu bytes is refused: the block_limit is %zu", size,
                      block_limit_);
        return nullptr;
    }
    if (!admits(size)) return nullptr;
    void* block = std::malloc(size);
    if (block == nullptr)
        std::snprintf(refusal_, sizeof refusal_, "a block of %zu bytes is refused: malloc has no memory", size);
    else
        used_ += malloc_usable_size(block);
    return block;
}

void Account::release(void* block) {
    discharge(malloc_usable_size(block));
    std::free(block);
}

} // namespace platform

using namespace platform;

zur_module_root zur_module_tot_root = {0, nullptr, &zur_module_tot_root.first};

namespace {

constexpr uint32_t default_workspace = 1u << 20;

void* allocate_counted(void* account, uint32_t, std::size_t size) {
    return static_cast<Account*>(account)->allocate(size);
}

void free_counted(void* account, uint32_t, void* block) {
    static_cast<Account*>(account)->release(block);
}

void* allocate_object(void*, uint32_t, std::size_t size) {
    return std::malloc(size);
}

void free_object(void*, uint32_t, void* block) {
    std::free(block);
}

void ignore_write(zur_domain*, void*, uint32_t, uint32_t, void*) {}

void ignore_count(void*, void*, uint32_t, uint32_t) {}

void* allocate_type(void* type_store, uint32_t, std::size_t size) {
    Block block(std::malloc(size));
    void* memory = block.get();
    if (memory == nullptr) return nullptr;
    auto* types = static_cast<TypeTable*>(type_store);
    const uint32_t code = guarded([&] {
        types->by_digest.reserve(types->copies.size() + 1); // now: entering the copy later cannot report a refusal
        types->copies.push_back(std::move(block));
    });
    return code == 0 ? memory : nullptr;
}

// Copies live in no set, so the set plays no part in the key.
int insert_type(void* type_table, uint32_t, const char*, zur_type_info* copy) {
    bool is_new = false;
    guarded([&] {
        is_new = static_cast<TypeTable*>(type_table)->by_digest.insert_or_assign(copy->hex_digest, copy).second;
    });
    return is_new ? 1 : 0;
}

zur_type_info* find_type(void* type_table, uint32_t, const char* hex_digest) {
    const auto& types = static_cast<TypeTable*>(type_table)->by_digest;
    const auto found = types.find(hex_digest);
    return found != types.end() ? found->second : nullptr;
}

void mark(zur_domain* D, platform_mark_kind kind, uint32_t S, void* instance, void* parent, uint32_t flag) {
    const platform_mark made = {kind, S, instance, parent, flag};
    if (own(D).mark_sink != nullptr) own(D).mark_sink(own(D).mark_context, &made);
}

} // namespace

zur_domain* platform_domain_create(const platform_domain_options* options) {
    const platform_domain_options chosen = options != nullptr ? *options : platform_domain_options{};
    auto* domain = new (std::nothrow) Domain{{}, Private(chosen)};
    if (domain == nullptr) return nullptr;
    zur_domain& D = domain->contract;
    D.type_alloc_fn = allocate_type;
    if (chosen.obj_alloc_fn == nullptr && chosen.obj_free_fn == nullptr && chosen.obj_store == nullptr) {
        D.obj_alloc_fn = allocate_counted;
        D.obj_free_fn = free_counted;
        D.obj_store = &domain->own.account;
    } else {
        D.obj_alloc_fn = chosen.obj_alloc_fn != nullptr ? chosen.obj_alloc_fn : allocate_object;
        D.obj_free_fn = chosen.obj_free_fn != nullptr ? chosen.obj_free_fn : free_object;
        D.obj_store = chosen.obj_store;
    }
    D.write_range_fn = ignore_write;
    D.counter_range_fn = ignore_count;
    D.type_insert_fn = insert_type;
    D.type_lookup_fn = find_type;
    D.store_mode = chosen.store_mode;
    D.type_table = &domain->own.types;
    D.type_store = &domain->own.types;
    D.variant_context.opaque[0] = reinterpret_cast<uintptr_t>(&domain->own.agreement);
    D.cr_set_id = ZUR_NO_SET;
    if (chosen.tracking != PLATFORM_NO_HANDLE) {
        domain->own.handle.handle_kind = chosen.tracking;
        D.tracking_handle = &domain->own.handle;
    }
    platform_domain_set_workspace(&D, chosen.workspace_size);
    return &D;
}

const char* platform_domain_refusal(const zur_domain* D) {
    return own(const_cast<zur_domain*>(D)).account.refusal();
}

void platform_domain_destroy(zur_domain* D) {
    delete reinterpret_cast<Domain*>(D);
}

void platform_domain_set_workspace(zur_domain* D, uint32_t size) {
    own(D).workspace.reset();
    own(D).workspace_size = size != 0 ? size : default_workspace;
}

void platform_domain_set_mark_sink(zur_domain* D, void (*sink)(void* context, const platform_mark* mark),
                                   void* context) {
    own(D).mark_sink = sink;
    own(D).mark_context = context;
}

void zur_store_err(zur_domain* D, uint32_t code) {
    D->last_error = code;
}

void zur_store_epoch_err(zur_domain* D, uint32_t code, uint32_t* st) {
    fail(D, code, st);
}

void zur_clear_last_error(zur_domain* D) {
    D->last_error = 0;
}

// All clones of a Domain use one workspace, one after the other.
void zurlib_get_handle_ws(zur_domain* D, void** workspace, uint32_t* length, void*) {
    Private& p = own(D);
    if (p.workspace == nullptr) p.workspace.reset(std::malloc(p.workspace_size));
    *workspace = p.workspace.get();
    *length = p.workspace != nullptr ? p.workspace_size : 0;
}

void zurdb_record_containment2(zur_domain* D, uint32_t S, void* child, void* parent, uint32_t flag) {
    mark(D, PLATFORM_MARK_CONTAINED, S, child, parent, flag);
}

void zurdb_plat_set_dirty(zur_domain* D, uint32_t S, void* instance) {
    mark(D, PLATFORM_MARK_DIRTY, S, instance, nullptr, 0);
}

void zurdb_plat_set_destroy(zur_domain* D, uint32_t S, void* instance) {
    mark(D, PLATFORM_MARK_DESTROYED, S, instance, nullptr, 0);
}

void zurdb_plat_set_detach(zur_domain* D, uint32_t S, void* instance, uint32_t flag) {
    mark(D, PLATFORM_MARK_DETACHED, S, instance, nullptr, flag);
}
