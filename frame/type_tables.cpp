// The variant tables of all types with their counters, the copying of the type table into a set, and the usage report.
#include "frame/type_tables.hpp"
#include "frame/sites.hpp"

namespace epm::frame {

namespace {

// A peer's variant may be any negative byte, and a record's address is computed from it without a check. Spare records
// below the first one, and one in front of each type, keep such an address inside this block. -1, which means that the
// peer does not know the type, leads to the type's own spare.
inline constexpr std::size_t spare_below = 127;

constexpr std::size_t variants_of(std::size_t type) {
    return type < record_count ? catalogue::all_records[type]->variants()
                               : static_cast<std::size_t>(catalogue::all_enums[type - record_count]->top()) + 1;
}

constexpr std::size_t first_record(std::size_t type) {
    std::size_t index = spare_below + 1;
    for (std::size_t t = 0; t < type; ++t) index += variants_of(t) + 1;
    return index;
}

constexpr zur_variant_record make_record(std::size_t type, std::size_t variant) {
    const auto index = static_cast<std::uint32_t>(variant);
    if (type >= record_count) return {index, catalogue::enum_length, 0, 0, 0, 0};
    const Record& r = *catalogue::all_records[type];
    const catalogue::Layout l = catalogue::lay_out(r);
    return {index, l.used[variant], static_cast<std::uint32_t>(l.size(r) - l.used[variant]), 0, 0, 0};
}

using VariantRecords = std::array<zur_variant_record, first_record(type_count)>;

constinit VariantRecords variant_records = [] {
    VariantRecords all{};
    for (std::size_t type = 0; type < type_count; ++type)
        for (std::size_t variant = 0; variant < variants_of(type); ++variant)
            all[first_record(type) + variant] = make_record(type, variant);
    return all;
}();

/// Enters one type into a set, or refreshes the set's copy. Returns false when there is no memory for it.
bool enter(Domain* D, std::uint32_t S, const zur_type_info* type, std::uint32_t* st) {
    zur_type_info* copy = D->type_lookup_fn(D->type_table, S, type->hex_digest);
    const bool is_new = copy == nullptr;
    if (is_new) {
        constexpr std::size_t further_words = 2 * sizeof(std::uint64_t);
        copy = static_cast<zur_type_info*>(D->type_alloc_fn(D->type_store, ZUR_NO_SET, sizeof *copy + further_words));
        if (copy == nullptr) {
            fail(D, st, ZUR_NO_MEMORY);
            return false;
        }
        *copy = *type;
        std::memset(copy + 1, 0, further_words);
        copy->plain_counters = D->store_mode;
        copy->type_index = -1;
        D->type_insert_fn(D->type_table, S, copy->hex_digest, copy);
    }
    if (type->variant_table != nullptr) zur_update_variant_info(D, S, copy, type, is_new ? 1 : 0);
    return true;
}

} // namespace

constinit const std::array<zur_variant_table, type_count> variant_tables = [] {
    std::array<zur_variant_table, type_count> tables{};
    for (std::size_t type = 0; type < type_count; ++type)
        tables[type] = {static_cast<std::int8_t>(variants_of(type)), variant_records.data() + first_record(type)};
    return tables;
}();

void initialize_type_table(Domain* D, std::uint32_t S, std::uint32_t* st) {
    for (const zur_type_info* const* type = type_table; *type != nullptr; ++type)
        if (!enter(D, S, *type, st)) return;
}

void dump_usage(int (*print)(const char* format, ...)) {
    for (const zur_type_info* const* type = type_table; *type != nullptr; ++type) {
        const zur_variant_table* table = (*type)->variant_table;
        if (table == nullptr) {
            trace::plain(trace::usage_site, trace::failure);
            continue;
        }
        print("n_variants %d\n", table->count);
        for (int variant = 0; variant < table->count; ++variant) {
            const zur_variant_record& r = table->records[variant];
            print("variant %d used length %d alloc slop %d\n", variant, static_cast<int>(r.used_length),
                  static_cast<int>(r.alloc_slop));
        }
    }
}

} // namespace epm::frame
