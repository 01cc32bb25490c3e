// Steps that a runtime has declared plain, done in line; zur/plain.h has what each of them promises. In any irregular
// case the runtime is called instead.
#pragma once

#include "catalogue/description.hpp"

#include <zur/plain.h>

#include <cstring>

namespace epm {

using catalogue::Foreign;

namespace plain {

/// The write hook that does nothing; null while no declaration is believed. Set when the library is loaded.
[[gnu::visibility("hidden")]] extern constinit decltype(zur_domain::write_range_fn) idle_hook;

/// Not 0 while counting needs no atomic step.
[[gnu::visibility("hidden")]] extern constinit const char* single_threaded;

inline bool is_believed() {
    return idle_hook != nullptr;
}

/// Whether nobody hears of writes.
inline bool is_idle(const zur_domain* D) {
    return D->write_range_fn == idle_hook;
}

/// Whether the operations on whole records may take plain steps where nobody hears of writes: there is no store, and
/// one agreed variant holds for all types.
inline bool is_settled(const zur_domain* D) {
    return D->store_mode == 0 && D->containment_on == 0 && D->variant_context.opaque[ZUR_PLAIN_AGREEMENT] != 0;
}

inline bool is_open(const zur_domain* D) {
    return is_idle(D) && is_settled(D);
}

/// The variant that is agreed in an open Domain.
inline std::int8_t agreed(const zur_domain* D) {
    return static_cast<std::int8_t>(D->variant_context.opaque[ZUR_PLAIN_AGREEMENT]);
}

/// Adds 1 to a type's counter.
inline void count(std::uint64_t* counter) {
    if (*single_threaded != 0)
        ++*counter;
    else
        __atomic_fetch_add(counter, 1, __ATOMIC_RELAXED);
}

/// Whether a foreign type's values are bare numbers of its length.
constexpr bool is_number(const Foreign& f) {
    return f.shape == Foreign::Shape::primitive || &f == &catalogue::zur_boolean;
}
/// Whether they travel as the bytes that they are in memory.
constexpr bool is_bytes(const Foreign& f) {
    return &f == &catalogue::zur_mac_addr;
}

/// Copies a number of some length between memory and wire.
template <std::size_t length>
[[gnu::always_inline]] inline void swap_number(void* to, const void* from) {
    if constexpr (length == 1) {
        std::memcpy(to, from, 1);
    } else if constexpr (length == 2) {
        std::uint16_t number;
        std::memcpy(&number, from, length);
        number = __builtin_bswap16(number);
        std::memcpy(to, &number, length);
    } else if constexpr (length == 4) {
        std::uint32_t number;
        std::memcpy(&number, from, length);
        number = __builtin_bswap32(number);
        std::memcpy(to, &number, length);
    } else {
        static_assert(length == 8);
        std::uint64_t number;
        std::memcpy(&number, from, length);
        number = __builtin_bswap64(number);
        std::memcpy(to, &number, length);
    }
}

/// Copies a value of a plain type between memory and wire, in either direction.
template <const Foreign& F>
[[gnu::always_inline]] inline void copy(void* to, const void* from) {
    if constexpr (is_bytes(F))
        std::memcpy(to, from, F.length);
    else
        swap_number<F.length>(to, from);
}

} // namespace plain
} // namespace epm
