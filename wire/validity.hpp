// Whether a field exists in the variant in force. Field ids count the declared fields from 0. Each variant after the
// first starts with one id that belongs to no field.
#pragma once

#include "frame/type_tables.hpp"

namespace epm::wire {

/// The first id that belongs to no variant up to this one.
template <const Record& R>
constexpr std::uint32_t end_of_ids(std::int8_t variant) {
    auto ids = static_cast<std::uint32_t>(variant);
    for (std::size_t i = 0; i < R.count && R.fields[i].since <= variant; ++i) ++ids;
    return ids;
}

/// With bit 0 of the options set, the Instance's own variant is ignored.
template <const Record& R>
std::uint32_t is_valid_chained(Domain* D, const Instance* x, std::uint32_t id, std::uint32_t options) {
    const std::int32_t agreed = zur_domain_lookup_variant(D, &D->variant_context, type_info<R>(), &D->last_error);
    if constexpr (R.variants() == 1) {
        return id < R.count;
    } else {
        std::int8_t variant = capped(agreed, R.top());
        if ((options & 1) == 0) variant = std::min(variant, zur_get_instance_variant(x, 1, 0));
        return variant >= 0 && id < end_of_ids<R>(variant);
    }
}

} // namespace epm::wire
