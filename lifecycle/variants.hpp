// The operations that adapt a type's variant: capping, adjusting, and the call of the runtime's luid operation.
#pragma once

#include "frame/type_tables.hpp"

namespace epm::lifecycle {

/// The number with its low byte capped at the type's top; a negative low byte stays, and so do the upper 24 bits.
template <const auto& T>
std::uint32_t cap_variant_index(std::uint32_t number) {
    const std::int8_t variant = capped(static_cast<std::int32_t>(number), T.top());
    return (number & 0xFFFFFF00u) | static_cast<std::uint8_t>(variant);
}

template <const auto& T>
std::uint32_t get_luid(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return zur_get_luid(D, S, x, st);
}

/// Opens every write to a record: the runtime may raise the Instance's variant.
inline void adjust(Domain* D, std::uint32_t S, Instance* x, std::int8_t top, std::uint32_t* st) {
    const zur_type_info* type = x != nullptr ? zur_get_manifested_type_info(x) : nullptr;
    zurlib_adjust_variant(D, S, x, type, top, st);
}

template <const Record& R>
std::int32_t adjust_variant(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    const zur_type_info* type = x != nullptr ? zur_get_manifested_type_info(x) : nullptr;
    return zurlib_adjust_variant(D, S, x, type, R.top(), st);
}

template <const Enum& E>
std::int32_t adjust_variant(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return zurlib_adjust_variant(D, S, x, x != nullptr ? x->type_info : nullptr, E.top(), st);
}

} // namespace epm::lifecycle
