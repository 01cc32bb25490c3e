// The static identity of each type: how a TypeInfo is made from the catalogue, and how to find a type's exported
// TypeInfo. type_tables.cpp has the variant records with their counters.
#pragma once

#include "catalogue/catalogue.hpp"
#include "catalogue/hex.hpp"
#include "frame/instance.hpp"

extern "C" {
/// Copies the Bundle's type table into a set; exported, and handed to the runtime by address.
void orlan_epm_typeinfo_initialize(zur_domain* D, std::uint32_t S, std::uint32_t* st);
}

namespace epm {

/// The exported TypeInfo of a record or enumeration. The stamp specialises it, because only the stamp knows the symbol.
template <const auto& T>
struct Symbol;

template <const auto& T>
constexpr const zur_type_info* type_info() {
    return &Symbol<T>::type_info;
}

namespace frame {

inline constexpr std::size_t record_count = catalogue::all_records.size();
inline constexpr std::size_t type_count = record_count + catalogue::all_enums.size();

/// Tables in type-table order, records before enumerations.
extern const std::array<zur_variant_table, type_count> variant_tables;

/// The exported TypeInfos in type-table order, closed by a null.
extern const zur_type_info* const type_table[type_count + 1];

/// Copies the type table into a set and refreshes types that are there already.
void initialize_type_table(Domain* D, std::uint32_t S, std::uint32_t* st);

/// Prints every type's variants in type-table order.
void dump_usage(int (*print)(const char* format, ...));

template <std::size_t N>
constexpr void spell(char (&destination)[N], std::string_view text) {
    std::copy_n(text.begin(), std::min(text.size(), N - 1), destination);
}

constexpr zur_type_info make_type_info(const char* name, const char* kind, const catalogue::Digests& digests,
                                       const zur_variant_table* table) {
    zur_type_info t{};
    t.magic = ZUR_TYPE_INFO_MAGIC;
    for (std::size_t i = 0; i < sizeof t.digest; ++i)
        t.digest[i] = static_cast<std::uint8_t>(catalogue::hex_byte(digests.identity + 2 * i));
    spell(t.hex_digest, digests.identity);
    spell(t.name, name);
    spell(t.bundle, "orlan_epm");
    spell(t.kind, kind);
    t.type_index = -1;
    t.variant_table = table;
    return t;
}

template <std::size_t I>
constexpr zur_type_info make_type_info() {
    if constexpr (I < record_count) {
        constexpr const Record& r = *catalogue::all_records[I];
        return make_type_info(r.name, "type", r.digests, variant_tables.data() + I);
    } else {
        constexpr const Enum& e = *catalogue::all_enums[I - record_count];
        return make_type_info(e.name, "enum", e.digests, variant_tables.data() + I);
    }
}

/// The counters of a variant. A negative variant is not checked: the address is computed from it all the same.
inline zur_variant_record* variant_record(const zur_variant_table* table, std::int8_t variant) {
    return reinterpret_cast<zur_variant_record*>(reinterpret_cast<std::uintptr_t>(table->records) +
                                                 static_cast<std::uintptr_t>(std::intptr_t{variant}) *
                                                     sizeof(zur_variant_record));
}

} // namespace frame
} // namespace epm
