// How an array gets larger storage. The storage always has the exact size; the old elements move into it, and the run
// of element flags grows with it.
#pragma once

#include "access/array_field.hpp"

namespace epm::access {

/// Whether the record's notice of a reallocation has been given in this process.
template <const Record& R>
inline constinit bool reallocation_is_told = false;

template <const Record& R, std::size_t I>
void tell_reallocation() {
    if (reallocation_is_told<R>) return;
    trace::plain(trace::site<R, trace::Operation::field_set, trace::Text::reallocating, I>, trace::failure);
    reallocation_is_told<R> = true;
}

/// Gives the field new storage, which the caller fills, and returns the old one. Returns null when the Domain refuses
/// memory.
template <const Record& R, std::size_t I>
void* renew_storage(Domain* D, std::uint32_t S, Instance* x, std::size_t size, void** former, std::uint32_t* st) {
    auto** member = field<R, I, void*>(x);
    *former = *member;
    void* storage = allocate(D, S, size);
    if (storage == nullptr) {
        fail(D, st, ZUR_NO_MEMORY);
        return nullptr;
    }
    store(D, S, member, storage, x);
    return storage;
}

template <const Record& R, std::size_t I>
std::uint32_t* length_of(Instance* x) {
    return field<R, catalogue::companion<R, I>, std::uint32_t>(x);
}

/// Grows the element flags with the array. Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
bool grow_element_flags(Domain* D, std::uint32_t S, Instance* x, std::uint32_t count, std::uint32_t former,
                        bool tracking, std::uint32_t* st) {
    if (tracking)
        return replace_element_flags(D, S, at<void*>(flag_block<R>(D, S, x), catalogue::layout<R>.nested[I]), count,
                                     former, st);
    drop_element_flags<R, I>(D, S, x);
    return true;
}

/// Whether a setter of elements goes on, and in tracked mode. A refusal comes before anything changes.
enum class Tracking : std::uint8_t { off, on, refused };

inline Tracking test_tracking(Domain* D, const Instance* x, std::uint32_t* st, const FlagLayout& layout) {
    if (!is_tracking(D, layout.corrupted_site)) return Tracking::off;
    if (has_flag(x, ZUR_TRACKED)) return Tracking::on;
    refuse_untracked(D, st, layout.untracked_site);
    return Tracking::refused;
}

/// The same for the owner of an array, whose element flags must match the number of elements.
template <const Record& R>
Tracking test_tracking(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st, const FlagLayout& layout) {
    const Tracking tracking = test_tracking(D, x, st, layout);
    if (tracking != Tracking::off || reaches_element_flags<R>(D, S, x)) return tracking;
    fail(D, st, ZUR_BAD_ARGUMENT);
    return Tracking::refused;
}

/// The number of elements that an index asks for. Returns 0 when the array cannot grow: either the number is too large
/// to count, and the error is left, or the adjustment has raised the status word, so that new elements could not be set
/// up.
inline std::uint32_t count_for(Domain* D, std::uint32_t index, std::uint32_t* st) {
    if (*st != 0) return 0;
    if (index == UINT32_MAX) fail(D, st, ZUR_NO_MEMORY);
    return index + 1;
}

} // namespace epm::access
