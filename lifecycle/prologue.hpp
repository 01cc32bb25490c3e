// How every accessor begins: the status word, the Domain's sticky error, the variant. How a setter ends is in
// lifecycle/tracking.hpp.
#pragma once

#include "frame/contents.hpp"
#include "frame/imports.hpp"
#include "lifecycle/tracking.hpp"
#include "lifecycle/variants.hpp"

namespace epm {

template <const Record& R, std::size_t I, Kind K>
inline constexpr bool is_of_kind = R.fields[I].kind == K;

/// What must be known of a field before it is touched; literals of one field.
struct Gate {
    std::int8_t top; ///< the record's highest variant
    std::int8_t since;
    bool is_enumerated;
};

template <const Record& R, std::size_t I>
inline constexpr Gate gate = {R.top(), R.fields[I].since, R.fields[I].is_enumerated()};

/// Opens every read. Returns false when the accessor must return its neutral result.
inline bool open_read(Domain* D, const Instance* x, Gate field, std::uint32_t* st) {
    if (*st != 0) return false;
    zur_clear_last_error(D);
    return in_variant(D, x, field.since, field.is_enumerated, st);
}

/// Opens every write, and may raise the Instance's variant. Returns false when nothing may be written.
[[gnu::always_inline]] inline bool open_write_here(Domain* D, std::uint32_t S, Instance* x, Gate field,
                                                   std::uint32_t* st) {
    if (*st != 0) return false;
    zur_clear_last_error(D);
    lifecycle::adjust(D, S, x, field.top, st);
    return in_variant(D, x, field.since, field.is_enumerated, st);
}

/// The same as a function that is not inlined, for setters that exist once for each field.
[[gnu::noinline]] inline bool open_write(Domain* D, std::uint32_t S, Instance* x, Gate field, std::uint32_t* st) {
    return open_write_here(D, S, x, field, st);
}

/// Marks an Instance that leaves its parent, for stores that want to know.
inline void mark_detached(Domain* D, std::uint32_t S, void* child, std::uint32_t flag) {
    if (marks_store(D, S)) zurdb_plat_set_detach(D, S, child, flag);
}

} // namespace epm
