// What the runtime keeps behind a Domain's last contract field.
#pragma once

#include "../common/contract.hpp"

#include <cstdlib>
#include <memory>
#include <string>
#include <tsl/robin_map.h>
#include <unordered_map>
#include <vector>

namespace platform {

struct Free {
    void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<void, Free>;

// The agreed variants. They are told by type name; a look-up goes by the TypeInfo's address and is one probe of a small
// open table, filled from the names as types are first asked for. The digest's first half guards an entry against
// another type at the address of one that was unloaded.
class Agreement {
public:
    int8_t variant_of(const zur_type_info* type);
    void agree(const char* type_name, int8_t variant);
    void agree_all(int8_t variant);
    void clear();

private:
    struct Entry {
        const zur_type_info* type;
        uint64_t half_digest;
        int8_t variant;
    };

    int8_t resolve(const zur_type_info* type, uint64_t half_digest);

    std::unordered_map<std::string, int8_t> names_;
    std::vector<Entry> table_; // empty, or a power of two at most half full
    std::size_t entries_ = 0;
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

// The default type table; the context of the Domain's three type hooks.
struct TypeTable {
    std::unordered_map<std::string, zur_type_info*> by_digest;
    std::vector<Block> copies;
};

// Addresses of objects differ little and are multiples of 8.
struct AddressHash {
    std::size_t operator()(const void* address) const {
        return reinterpret_cast<uintptr_t>(address) * 0x9E3779B97F4A7C15u >> 32;
    }
};

struct Private {
    zur_tracking_handle handle{};
    Agreement agreement;
    TypeTable types;
    std::unordered_map<const zur_type_info*, VariantData> variant_data;
    tsl::robin_map<const void*, uint32_t, AddressHash> flag_offsets; // Instance to its state-flag block
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

} // namespace platform
