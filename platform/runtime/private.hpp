// What the runtime keeps behind a Domain's last contract field.
#pragma once

#include "../common/block_lists.hpp"
#include "../common/contract.hpp"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <tsl/robin_map.h>
#include <unordered_map>
#include <vector>

namespace platform {

struct Free {
    void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<void, Free>;

// Looks names up by their characters, without making a string.
struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
};

// The limits of a Domain's memory, the memory in use, and the sentence about the last refusal. Released blocks are kept
// for the next ones of their size: at most so many bytes, and with the memory in use never more than the limit.
class Account {
public:
    Account(std::size_t block_limit, std::size_t memory_limit);
    ~Account() { give_back_kept(); }
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    void* allocate(std::size_t request) {
        if (request <= largest_kept_) [[likely]] {
            const std::size_t size = BlockLists::size_for(request);
            const std::ptrdiff_t left = left_ - static_cast<std::ptrdiff_t>(size);
            if (kept_.has(size) && left >= 0) [[likely]] {
                left_ = left;
                return kept_.pop(size);
            }
        }
        return allocate_new(request);
    }
    void release(void* block) {
        const std::size_t usable = malloc_usable_size(block);
        if (BlockLists::takes(usable)) [[likely]] {
            const std::size_t size = BlockLists::size_of(usable);
            const std::ptrdiff_t left = left_ + static_cast<std::ptrdiff_t>(size);
            if (left <= left_to_keep_) [[likely]] {
                left_ = left;
                return kept_.push(size, block);
            }
        }
        free_block(block, usable);
    }

    // For memory that comes from elsewhere. Returns false when it is refused.
    bool charge(std::size_t size);
    void discharge(std::size_t size);

    const char* refusal() const { return refusal_[0] != 0 ? refusal_ : nullptr; }

private:
    [[gnu::noinline]] void* allocate_new(std::size_t size);
    [[gnu::noinline]] void free_block(void* block, std::size_t usable);
    void give_back_kept();
    bool admits(std::size_t size);
    void take(std::ptrdiff_t size);
    std::ptrdiff_t counted_size(std::size_t usable) const;

    std::size_t largest_kept_; // 0 when nothing is kept
    std::ptrdiff_t left_;      // the limit less what is in use; a block may be larger than asked for, so it can be < 0
    std::ptrdiff_t left_to_keep_; // a block is kept while no more than this is left, or too much would be kept
    BlockLists kept_;
    std::ptrdiff_t untouched_; // the limit less what is in use and what is kept
    std::ptrdiff_t memory_limit_;
    std::size_t block_limit_;
    char refusal_[120] = "";
};

// The allocator of a container that counts towards the Domain's limit.
template <class T>
struct Counted {
    using value_type = T;

    explicit Counted(Account& a) : account(&a) {}
    template <class U>
    Counted(const Counted<U>& other) : account(other.account) {} // NOLINT(*-explicit-*): an allocator needs it

    T* allocate(std::size_t count) {
        const std::size_t size = count * sizeof(T);
        if (!account->charge(size)) throw std::bad_alloc();
        void* memory = ::operator new(size, std::nothrow);
        if (memory != nullptr) return static_cast<T*>(memory);
        account->discharge(size);
        throw std::bad_alloc();
    }
    void deallocate(T* memory, std::size_t count) {
        account->discharge(count * sizeof(T));
        ::operator delete(memory);
    }
    bool operator==(const Counted&) const = default;

    Account* account;
};

// The agreed variants, by type name.
class Agreement {
public:
    int8_t variant_of(const zur_type_info* type) const {
        return names_.empty() || type == nullptr ? default_ : variant_of_name(type->name);
    }
    void agree(const char* type_name, int8_t variant) { names_[type_name] = variant; }
    void agree_all(int8_t variant) { default_ = variant; }
    void clear() {
        names_.clear();
        default_ = PLATFORM_HIGHEST_VARIANT;
    }
    bool is_for_all() const { return names_.empty(); } // whether one answer holds for every type
    int8_t for_all() const { return default_; }

private:
    [[gnu::noinline]] int8_t variant_of_name(std::string_view name) const {
        const auto named = names_.find(name);
        return named != names_.end() ? named->second : default_;
    }

    std::unordered_map<std::string, int8_t, NameHash, std::equal_to<>> names_;
    int8_t default_ = PLATFORM_HIGHEST_VARIANT;
};

// Variant data of a TypeInfo copy that the Domain has given a table of its own.
struct VariantData {
    zur_variant_table table;
    std::unique_ptr<zur_variant_record[]> records;
};

struct OidState {
    void* instance;
    platform_oid_destroy_fn destroy;
    uint32_t set_id;
    uint32_t references;
    bool destroy_put_off;
};

// The default type table and context of the Domain's three type hooks. A copy's own digest is its key.
struct TypeTable {
    tsl::robin_map<std::string_view, zur_type_info*> by_digest;
    std::vector<Block> copies;
};

// Addresses of objects differ little and are multiples of 8.
struct AddressHash {
    std::size_t operator()(const void* address) const {
        return reinterpret_cast<uintptr_t>(address) * 0x9E3779B97F4A7C15u >> 32;
    }
};

// Whether an Instance got no place in the map of flag offsets, and whether a caller knows already; see
// zurlib_update_sttr_offset().
enum class RefusedPlace : uint8_t { none, untold, told };

struct Private {
    explicit Private(const platform_domain_options& options) : account(options.block_limit, options.memory_limit) {}

    Account account;
    zur_tracking_handle handle{};
    Agreement agreement;
    TypeTable types;
    std::unordered_map<const zur_type_info*, VariantData> variant_data;
    // Instance to its state-flag block.
    tsl::robin_map<const void*, uint32_t, AddressHash, std::equal_to<const void*>,
                   Counted<std::pair<const void*, uint32_t>>>
        flag_offsets{Counted<std::pair<const void*, uint32_t>>(account)};
    RefusedPlace refused_place = RefusedPlace::none;
    zur_instance* unplaced = nullptr;        // an Instance being set up that got no place there
    const zur_type_info* uncopied = nullptr; // the type whose copy could not be made
    bool is_telling = false;                 // whether counting an Instance must look at these three
    std::unordered_map<uint64_t, OidState> oids;
    std::unordered_map<const void*, uint64_t> oid_of_instance;
    std::unordered_map<const void*, std::vector<uint64_t>> field_oids;
    void (*mark_sink)(void* context, const platform_mark* mark) = nullptr;
    void* mark_context = nullptr;
    Block workspace;
    uint32_t workspace_size = 0;
};

struct Domain {
    zur_domain contract;
    Private own;
};

inline Private& own(zur_domain* D) {
    return reinterpret_cast<Domain*>(D)->own;
}

// The write hook of a Domain whose writes nobody wants to hear.
void ignore_write(zur_domain*, void*, uint32_t, uint32_t, void*);

// Renews the word by which a Bundle may answer for zur_domain_lookup_variant().
void show_agreement(zur_domain* D);

void tell_refused_place(zur_domain* D, uint32_t* st);
void untrack_unplaced(zur_domain* D, uint32_t S);

} // namespace platform
