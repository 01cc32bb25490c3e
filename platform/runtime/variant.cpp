// Variants agreed with the peer, TypeInfos in a store, and the counts of Instances.
#include "private.hpp"

#include <algorithm>
#include <cstddef>
#include <sys/single_threaded.h>

using namespace platform;

namespace {

[[gnu::noinline]] int32_t variant_of_type(zur_domain* D, const Agreement& agreement, const zur_type_info* type,
                                          uint32_t* st) {
    if (own(D).refused_place != RefusedPlace::none) tell_refused_place(D, st);
    return agreement.variant_of(type);
}

[[gnu::noinline]] int32_t raise_variant(zur_domain* D, uint32_t S, zur_instance* header, const zur_type_info* type,
                                        int32_t highest, uint32_t* st) {
    const int32_t variant = header->variant;
    const int32_t agreed = static_cast<int8_t>(zur_domain_lookup_variant(D, &D->variant_context, type, st));
    const int32_t wanted = std::min({agreed, highest, int32_t{header->layout_variant}});
    if (wanted > variant) {
        D->write_range_fn(D, &header->variant, sizeof header->variant, S, header);
        header->variant = static_cast<int8_t>(wanted);
    }
    return header->variant;
}

// Whether a counter of created Instances lies in one of the type's records, as it does not for a negative variant.
bool is_counted(const zur_type_info* type, uint64_t* created) {
    if (type == nullptr || type->variant_table == nullptr) return false;
    const zur_variant_table& table = *type->variant_table;
    const auto place = reinterpret_cast<uintptr_t>(created) - reinterpret_cast<uintptr_t>(&table.records->created);
    return place < static_cast<std::size_t>(table.count) * sizeof *table.records;
}

// The count of a type whose counters are updated plainly, or while there are several threads.
[[gnu::noinline]] void count_for_others(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                        uint64_t* counter) {
    if (!is_counted(type, created)) return;
    if (type->plain_counters != 0) {
        D->counter_range_fn(D->obj_store, counter, 1, S);
        ++*counter;
    } else {
        __atomic_fetch_add(counter, 1, __ATOMIC_RELAXED);
    }
}

[[gnu::always_inline]] inline void count(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                         uint64_t* counter) {
    if (is_counted(type, created) && type->plain_counters == 0 && __libc_single_threaded != 0) [[likely]]
        ++*counter;
    else
        count_for_others(D, S, type, created, counter);
}

// Reports what could not be reported where it happened.
[[gnu::noinline]] void count_created_and_tell(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                              uint32_t* st) {
    Private& p = own(D);
    if (type == p.uncopied && type != nullptr) {
        p.uncopied = nullptr;
        if (*st == 0) fail(D, ZUR_NO_MEMORY, st);
    }
    if (p.refused_place == RefusedPlace::told) untrack_unplaced(D, S);
    p.is_telling = p.uncopied != nullptr || p.refused_place != RefusedPlace::none;
    count(D, S, type, created, created);
}

} // namespace

uint32_t platform_domain_agree(zur_domain* D, const char* type_name, int8_t variant) {
    const uint32_t code = guarded([&] { own(D).agreement.agree(type_name, variant); });
    show_agreement(D);
    return code;
}

void platform_domain_agree_all(zur_domain* D, int8_t variant) {
    own(D).agreement.agree_all(variant);
    show_agreement(D);
}

void platform_domain_clear_agreement(zur_domain* D) {
    own(D).agreement.clear();
    show_agreement(D);
}

void platform::show_agreement(zur_domain* D) {
    const Private& p = own(D);
    const bool is_plain = p.refused_place == RefusedPlace::none && p.agreement.is_for_all();
    D->variant_context.opaque[ZUR_PLAIN_AGREEMENT] =
        is_plain ? ZUR_PLAIN_AGREED | static_cast<uint8_t>(p.agreement.for_all()) : 0;
}

int32_t zur_domain_lookup_variant(zur_domain* D, zur_variant_context* context, const zur_type_info* type,
                                  uint32_t* st) {
    const auto& agreement = *reinterpret_cast<const Agreement*>(static_cast<uintptr_t>(context->opaque[0]));
    if (own(D).refused_place == RefusedPlace::none && agreement.is_for_all()) [[likely]]
        return agreement.for_all();
    return variant_of_type(D, agreement, type, st);
}

int32_t zurlib_adjust_variant(zur_domain* D, uint32_t S, void* instance, const zur_type_info* type, int32_t highest,
                              uint32_t* st) {
    if (*st != 0 || instance == nullptr) return 0;
    auto* header = static_cast<zur_instance*>(instance);
    const int32_t variant = header->variant;
    if (variant >= header->layout_variant || variant >= highest || type == nullptr) [[likely]]
        return variant;
    return raise_variant(D, S, header, type, highest, st);
}

const zur_type_info* zur_type_info_ptr_get(zur_domain* D, uint32_t S, const zur_type_info* type,
                                           zur_typeinfo_initialize_fn initialize) {
    if (D->store_mode == 0) return type;
    const zur_type_info* copy = D->type_lookup_fn(D->type_table, S, type->hex_digest);
    if (copy == nullptr && initialize != nullptr) {
        uint32_t st = 0;
        initialize(D, S, &st);
        copy = D->type_lookup_fn(D->type_table, S, type->hex_digest);
    }
    if (copy != nullptr) return copy;
    // Without a copy the Instance is still usable, but must not stay in a store. There is no status word here, so the
    // counting of the Instance reports it.
    zur_store_err(D, ZUR_NO_MEMORY);
    own(D).uncopied = type;
    own(D).is_telling = true;
    return type;
}

void zur_update_variant_info(zur_domain* D, uint32_t, zur_type_info* copy, const zur_type_info* type, uint32_t is_new) {
    if (type->variant_table == nullptr) return;
    const zur_variant_table& now = *type->variant_table;
    const auto count = static_cast<std::size_t>(std::max<int>(now.count, 0));
    // A new copy still points to the static table. A copy that was found has a table of its own, perhaps from another
    // Domain; its counters go on, so it is replaced only when it is too short.
    const zur_variant_table* old = is_new != 0 || copy->variant_table == &now ? nullptr : copy->variant_table;
    const auto kept = std::min(count, static_cast<std::size_t>(old != nullptr ? std::max<int>(old->count, 0) : 0));
    zur_variant_record* records = old != nullptr ? old->records : nullptr;
    if (kept < count) {
        // For a negative variant a Bundle computes an address in front of the first record, so spare records lie there.
        constexpr std::size_t spare = 128;
        VariantData* data = nullptr;
        const uint32_t code = guarded([&] {
            std::unique_ptr<zur_variant_record[]> longer(new zur_variant_record[spare + count]());
            std::copy_n(records, kept, longer.get() + spare);
            data = &own(D).variant_data[copy];
            data->records = std::move(longer);
        });
        if (code != 0) {
            // The static table is long enough for all variants, so it serves until the next update tries again.
            copy->variant_table = &now;
            return zur_store_err(D, code);
        }
        records = data->records.get() + spare;
        data->table = {now.count, records};
        copy->variant_table = &data->table;
    }
    for (std::size_t i = 0; i < count; ++i) {
        records[i].index = now.records[i].index;
        records[i].used_length = now.records[i].used_length;
        records[i].alloc_slop = now.records[i].alloc_slop;
    }
}

void zurlib_type_stats_create_object(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                     uint32_t* st) {
    if (own(D).is_telling) [[unlikely]]
        return count_created_and_tell(D, S, type, created, st);
    count(D, S, type, created, created);
}

void zurlib_type_stats_destroy_object(zur_domain* D, uint32_t S, const zur_type_info* type, uint64_t* created,
                                      uint32_t*) {
    static_assert(offsetof(zur_variant_record, destroyed) == offsetof(zur_variant_record, created) + sizeof *created);
    count(D, S, type, created, created + 1);
}
