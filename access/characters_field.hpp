// A fixed run of characters inside the record. It ends in a NUL only if there is room for one; callers get a copy.
#pragma once

#include "access/text_field.hpp"

namespace epm::access {

/// Where a fixed run and its flag lie.
struct CharactersLayout {
    std::uint16_t offset;
    std::uint16_t capacity;
    Gate field;
    FlagLayout flag;
};

template <const Record& R, std::size_t I>
inline constexpr CharactersLayout characters_layout = {catalogue::layout<R>.offset[I], R.fields[I].capacity, gate<R, I>,
                                                       flag_layout<R, I, trace::Operation::field_set>};

[[gnu::noinline]] inline void get_characters(Domain* D, const Instance* x, char* destination, std::uint32_t size,
                                             std::uint32_t* st, const CharactersLayout& layout) {
    if (!open_copy(D, x, size, layout.field, st)) return;
    copy_out(D, destination, size, at<char>(x, layout.offset), layout.capacity, st);
}

/// Writes the closing NUL after the state flag, and does not announce it.
[[gnu::noinline]] inline void set_characters(Domain* D, std::uint32_t S, Instance* x, const char* source,
                                             std::int32_t length, std::uint32_t* st, const CharactersLayout& layout) {
    if (!open_write_here(D, S, x, layout.field, st)) return;
    if (length < 0 || length > layout.capacity) return fail(D, st, ZUR_BAD_ARGUMENT);
    char* characters = at<char>(x, layout.offset);
    const auto used = static_cast<std::uint32_t>(length);
    announce(D, S, characters, used, x);
    if (used != 0) std::strncpy(characters, source, used);
    if (mark(D, S, x, st, layout.flag) && length < layout.capacity) characters[used] = 0;
}

/// Copies the characters out, up to a NUL.
template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::characters>
void get(Domain* D, std::uint32_t /*S*/, const Instance* x, char* destination, std::uint32_t size, std::uint32_t* st) {
    get_characters(D, x, destination, size, st, characters_layout<R, I>);
}

template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::characters>
void set(Domain* D, std::uint32_t S, Instance* x, const char* source, std::int32_t length, std::uint32_t* st) {
    set_characters(D, S, x, source, length, st, characters_layout<R, I>);
}

} // namespace epm::access
