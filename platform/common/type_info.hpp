// TypeInfos of the foreign types, and their way into a store. Each has one variant.
#pragma once

#include "contract.hpp"
#include "hex.hpp"

#include <cstring>
#include <string_view>

namespace platform {

// Replaces the digest of a type's definition, which for these types is only their name.
constexpr uint64_t name_digest(std::string_view name, uint64_t start) {
    for (const char c : name) start = (start ^ static_cast<uint8_t>(c)) * 0x100000001B3u;
    return start;
}

constexpr void copy_text(char* to, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) to[i] = text[i];
}

constexpr zur_type_info make_type_info(std::string_view name, std::string_view bundle, std::string_view kind,
                                       const zur_variant_table* table) {
    zur_type_info info{};
    info.magic = ZUR_TYPE_INFO_MAGIC;
    const uint64_t halves[2] = {name_digest(name, 0xCBF29CE484222325u), name_digest(name, 0x84222325CBF29CE4u)};
    for (std::size_t i = 0; i < 16; ++i) {
        info.digest[i] = static_cast<uint8_t>(halves[i / 8] >> (i % 8 * 8));
        info.hex_digest[2 * i] = hex_digits[info.digest[i] >> 4];
        info.hex_digest[2 * i + 1] = hex_digits[info.digest[i] & 15];
    }
    copy_text(info.name, name);
    copy_text(info.bundle, bundle);
    copy_text(info.kind, kind);
    info.type_index = -1;
    info.variant_table = table;
    return info;
}

// Refreshes one type's copy in the set; instances of it are the callbacks for zur_type_info_ptr_get().
template <const zur_type_info& type>
void initialize_type_info(zur_domain* D, uint32_t S, uint32_t* st) {
    if (zur_type_info* found = D->type_lookup_fn(D->type_table, S, type.hex_digest)) {
        zur_update_variant_info(D, S, found, &type, 0);
        return;
    }
    constexpr std::size_t copy_size = sizeof(zur_type_info) + 2 * sizeof(void*);
    void* memory = D->type_alloc_fn(D->type_store, ZUR_NO_SET, copy_size);
    if (memory == nullptr) return fail(D, ZUR_NO_MEMORY, st);
    std::memset(memory, 0, copy_size);
    auto* copy = static_cast<zur_type_info*>(memory);
    *copy = type;
    copy->plain_counters = D->store_mode;
    D->type_insert_fn(D->type_table, S, copy->hex_digest, copy);
    zur_update_variant_info(D, S, copy, &type, 1);
}

} // namespace platform
