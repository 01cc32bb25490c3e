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

/// What must be known of a field before it is touched; literals of one field. They are one number, so that passing them
/// takes one instruction.
class Gate {
public:
    constexpr Gate(std::int8_t top, std::int8_t since, bool is_enumerated)
        : bits_(static_cast<std::uint8_t>(top) | static_cast<std::uint32_t>(since) << 8 |
                (is_enumerated ? 0x10000u : 0u)) {}

    constexpr std::int8_t top() const { return static_cast<std::int8_t>(bits_); } ///< the record's highest variant
    constexpr std::int8_t since() const { return static_cast<std::int8_t>(bits_ >> 8); }
    constexpr bool is_enumerated() const { return bits_ >> 16 != 0; }

private:
    std::uint32_t bits_;
};

template <const Record& R, std::size_t I>
inline constexpr Gate gate = {R.top(), R.fields[I].since, R.fields[I].is_enumerated()};

/// Opens a read in plain steps. Returns false when it must be opened by calls, which may still succeed.
[[gnu::always_inline]] inline bool open_read_plainly(Domain* D, const Instance* x, Gate field,
                                                     const std::uint32_t* st) {
    if (!plain::is_believed() || *st != 0 || x == nullptr || x->variant < field.since() || D->containment_on != 0)
        return false;
    D->last_error = 0;
    return true;
}

/// Opens every read. Returns false when the accessor must return its neutral result.
inline bool open_read(Domain* D, const Instance* x, Gate field, std::uint32_t* st) {
    if (*st != 0) return false;
    zur_clear_last_error(D);
    return in_variant(D, x, field.since(), field.is_enumerated(), st);
}

/// Opens a read in plain steps or by calls.
inline bool open_any_read(Domain* D, const Instance* x, Gate field, std::uint32_t* st) {
    return open_read_plainly(D, x, field, st) || open_read(D, x, field, st);
}

/// Opens a write in plain steps: the Instance has the field, and its variant cannot rise.
inline bool open_write_plainly(Domain* D, const Instance* x, Gate field, const std::uint32_t* st) {
    if (!plain::is_believed() || *st != 0 || x == nullptr || x->variant < field.since() ||
        x->variant < std::min(field.top(), x->layout_variant))
        return false;
    D->last_error = 0;
    return true;
}

/// Opens every write, and may raise the Instance's variant. Returns false when nothing may be written.
[[gnu::always_inline]] inline bool open_write_here(Domain* D, std::uint32_t S, Instance* x, Gate field,
                                                   std::uint32_t* st) {
    if (open_write_plainly(D, x, field, st)) return true;
    if (*st != 0) return false;
    zur_clear_last_error(D);
    lifecycle::adjust(D, S, x, field.top(), st);
    return in_variant(D, x, field.since(), field.is_enumerated(), st);
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
