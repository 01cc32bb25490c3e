// Reads and writes the values of the Bundle's own enumerations, within what the Instance's variant accepts. An
// enumeration inside a record is written here too, after the record's own prologue.
#pragma once

#include "lifecycle/prologue.hpp"

namespace epm::access {

/// How many enumerators exist in each variant.
struct EnumLimits {
    std::array<std::uint32_t, catalogue::most_variants> accepted;
    std::int8_t top;
};

template <const Enum& E>
inline constexpr EnumLimits limits = [] {
    EnumLimits l{{}, E.top()};
    for (std::int8_t variant = 0; variant <= l.top; ++variant)
        l.accepted[static_cast<std::size_t>(variant)] = E.accepted(variant);
    return l;
}();

/// Hands an Instance out as one value.
template <const auto& T>
Instance* get(Domain* D, std::uint32_t S, Instance* x) {
    record_containment(D, S, x, nullptr);
    return x;
}

template <const Enum& E>
std::uint32_t get_value(Domain* D, std::uint32_t /*S*/, const Instance* x, std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    if (x != nullptr) return enumerator_of(x);
    fail(D, st, ZUR_BAD_ARGUMENT);
    return 0;
}

/// Prepares an enumeration for a value. It reads the Instance's variant again for each bound, because each variant has
/// its own.
inline bool open_enum_write(Domain* D, std::uint32_t S, Instance* x, std::uint32_t value, const EnumLimits& bounds,
                            std::uint32_t* st) {
    if (plain::is_believed() && x != nullptr && x->variant >= bounds.top &&
        value < bounds.accepted[static_cast<std::size_t>(bounds.top)]) [[likely]] {
        D->last_error = 0;
        return true;
    }
    zur_clear_last_error(D);
    zurlib_adjust_variant(D, S, x, x != nullptr ? x->type_info : nullptr, bounds.top, st);
    for (std::int8_t k = 0; k <= bounds.top; ++k) {
        const std::int8_t variant = zur_get_instance_variant(x, 0, 1);
        if (value < bounds.accepted[static_cast<std::size_t>(k)] || variant > k) continue;
        fail_variant(D, st);
        return false;
    }
    return true;
}

[[gnu::noinline]] inline void set_enum_value(Domain* D, std::uint32_t S, Instance* x, std::uint32_t value,
                                             const EnumLimits& bounds, std::uint32_t* st) {
    if (*st != 0 || !open_enum_write(D, S, x, value, bounds, st)) return;
    store(D, S, at<std::uint32_t>(x, catalogue::header_length), value, x);
}

/// Copies the header along with the value.
[[gnu::noinline]] inline void set_enum(Domain* D, std::uint32_t S, Instance* destination, const Instance* source,
                                       const EnumLimits& bounds, std::uint32_t* st) {
    if (*st != 0 || !open_enum_write(D, S, destination, enumerator_of(source), bounds, st)) return;
    announce(D, S, destination, catalogue::enum_length, destination);
    *at<EnumInstance>(destination, 0) = *at<EnumInstance>(source, 0);
}

template <const Enum& E>
void set_value(Domain* D, std::uint32_t S, Instance* x, std::uint32_t value, std::uint32_t* st) {
    set_enum_value(D, S, x, value, limits<E>, st);
}

template <const Enum& E>
void set(Domain* D, std::uint32_t S, Instance* destination, const Instance* source, std::uint32_t* st) {
    set_enum(D, S, destination, source, limits<E>, st);
}

/// Users see the number that is stored.
template <const Enum& E>
constexpr std::uint32_t map_value(std::uint32_t value) {
    return value;
}

} // namespace epm::access
