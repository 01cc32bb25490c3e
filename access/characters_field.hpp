// A fixed run of characters inside the record. It ends in a NUL only if there is room for one; callers get a copy.
#pragma once

#include "access/text_field.hpp"

namespace epm::access {

/// Where a fixed run lies.
struct CharactersPlace {
    std::uint16_t offset;
    std::uint16_t capacity;
    Gate field;
};

template <const Record& R, std::size_t I>
inline constexpr CharactersPlace characters_place = {catalogue::layout<R>.offset[I], R.fields[I].capacity, gate<R, I>};

[[gnu::noinline]] inline void get_characters(Domain* D, const Instance* x, char* destination, std::uint32_t size,
                                             std::uint32_t* st, CharactersPlace place) {
    if (!open_copy(D, x, size, place.field, st)) return;
    copy_out(D, destination, size, at<char>(x, place.offset), place.capacity, st);
}

/// Writes the closing NUL after the state flag, and does not announce it.
[[gnu::noinline]] inline void set_characters(Domain* D, std::uint32_t S, Instance* x, const char* source,
                                             std::int32_t length, std::uint32_t* st, CharactersPlace place,
                                             const FlagPlace& flag) {
    if (!open_write_here(D, S, x, place.field, st)) return;
    if (length < 0 || length > place.capacity) return fail(D, st, ZUR_BAD_ARGUMENT);
    char* characters = at<char>(x, place.offset);
    const auto used = static_cast<std::uint32_t>(length);
    announce(D, S, characters, used, x);
    if (used != 0) std::strncpy(characters, source, used);
    if (mark(D, S, x, st, flag) && length < place.capacity) characters[used] = 0;
}

/// Copies the characters out, up to a NUL.
template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::characters>
void get(Domain* D, std::uint32_t /*S*/, const Instance* x, char* destination, std::uint32_t size, std::uint32_t* st) {
    get_characters(D, x, destination, size, st, characters_place<R, I>);
}

template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::characters>
void set(Domain* D, std::uint32_t S, Instance* x, const char* source, std::int32_t length, std::uint32_t* st) {
    set_characters(D, S, x, source, length, st, characters_place<R, I>, flag_place<R, I, trace::Operation::field_set>);
}

template <const Record& R, std::size_t I>
std::uint32_t set_chained(Domain* D, Instance* x, const char* source,
                          std::int32_t length) requires is_of_kind<R, I, Kind::characters> {
    set<R, I>(D, D->cr_set_id, x, source, length, &D->last_error);
    return D->last_error;
}

} // namespace epm::access
