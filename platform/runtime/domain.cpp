// Domains: creation with the default hooks, errors, the workspace, the marks of a store, and the root of modules.
#include "private.hpp"

#include <cstdio>
#include <new>

namespace platform {

void ignore_write(zur_domain*, void*, uint32_t, uint32_t, void*) {}

namespace {

// Where a sanitizer or valgrind watches, it is to see every block come and go.
#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
constexpr bool is_watched = true;
#elif defined __has_feature
constexpr bool is_watched = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool is_watched = false;
#endif

bool keeps_blocks() {
    static const bool keeps = !is_watched && secure_getenv("PLATFORM_PLAIN_MALLOC") == nullptr;
    return keeps;
}

constexpr std::ptrdiff_t most_kept = 1 << 20;

// A limit, or the default in place of 0. Half of what fits, so that sums fit too.
std::ptrdiff_t limit(std::size_t chosen, std::size_t by_default) {
    return static_cast<std::ptrdiff_t>(std::min(chosen != 0 ? chosen : by_default, std::size_t{PTRDIFF_MAX} / 2));
}

} // namespace

Account::Account(std::size_t block_limit, std::size_t memory_limit)
    : left_(limit(memory_limit, std::size_t{64} << 20)), untouched_(left_), memory_limit_(left_),
      block_limit_(block_limit != 0 ? block_limit : std::size_t{1} << 20) {
    largest_kept_ = keeps_blocks() ? std::min(block_limit_, BlockLists::largest) : 0;
    take(0);
}

// Takes memory that is not on the lists, or less than none to give it back. One Domain may destroy an Instance that
// another made, so more can be given back than was taken.
void Account::take(std::ptrdiff_t size) {
    size = std::max(size, left_ - memory_limit_);
    left_ -= size;
    untouched_ -= size;
    left_to_keep_ = largest_kept_ != 0 ? std::min(memory_limit_, untouched_ + most_kept) : PTRDIFF_MIN;
}

std::ptrdiff_t Account::counted_size(std::size_t usable) const {
    const bool is_kept = largest_kept_ != 0 && BlockLists::takes(usable);
    return static_cast<std::ptrdiff_t>(is_kept ? BlockLists::size_of(usable) : usable);
}

bool Account::admits(std::size_t size) {
    const auto fits = [&](std::ptrdiff_t room) { return room >= 0 && size <= static_cast<std::size_t>(room); };
    if (!fits(untouched_)) give_back_kept();
    const bool is_admitted = fits(left_);
    if (!is_admitted)
        std::snprintf(refusal_, sizeof refusal_, "%zu bytes are refused: %td of the memory_limit of %td are in use",
                      size, memory_limit_ - left_, memory_limit_);
    return is_admitted;
}

bool Account::charge(std::size_t size) {
    const bool is_admitted = admits(size);
    if (is_admitted) take(static_cast<std::ptrdiff_t>(size));
    return is_admitted;
}

void Account::discharge(std::size_t size) {
    take(-static_cast<std::ptrdiff_t>(size));
}

void Account::give_back_kept() {
    kept_.clear(std::free);
    untouched_ = left_;
    take(0);
}

// Counts what malloc really gave.
void* Account::allocate_new(std::size_t size) {
    if (size > block_limit_) {
        std::snprintf(refusal_, sizeof refusal_, "a block of %zu bytes is refused: the block_limit is %zu", size,
                      block_limit_);
        return nullptr;
    }
    if (!admits(size)) return nullptr;
    const std::size_t wanted = size <= largest_kept_ ? BlockLists::size_for(size) : size;
    void* block = std::malloc(wanted);
    if (block == nullptr && untouched_ != left_) {
        give_back_kept();
        block = std::malloc(wanted);
    }
    if (block == nullptr)
        std::snprintf(refusal_, sizeof refusal_, "a block of %zu bytes is refused: malloc has no memory", size);
    else
        take(counted_size(malloc_usable_size(block)));
    return block;
}

void Account::free_block(void* block, std::size_t usable) {
    take(-counted_size(usable));
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
    show_agreement(&D);
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
