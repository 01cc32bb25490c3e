// A counted text on the heap; its length is in another field. Callers get a copy, and the storage always has the exact
// size. Ordinary functions do the work; the templates only pass the layout.
#pragma once

#include "lifecycle/prologue.hpp"

#include <cstring>

namespace epm::access {

/// Where a text's two members and its flag lie.
struct TextLayout {
    std::uint16_t pointer;
    std::uint16_t length;
    bool is_short; ///< the length has 16 bits
    Gate field;
    FlagLayout flag;
};

template <const Record& R, std::size_t I>
inline constexpr TextLayout text_layout = {
    .pointer = catalogue::layout<R>.offset[I],
    .length = catalogue::layout<R>.offset[catalogue::companion<R, I>],
    .is_short = R.fields[catalogue::companion<R, I>].foreign->length == 2,
    .field = gate<R, I>,
    .flag = flag_layout<R, I, trace::Operation::field_set>,
};

/// Opens a copy. It checks the room before the variant.
inline bool open_copy(Domain* D, const Instance* x, std::uint32_t size, Gate field, std::uint32_t* st) {
    if (size != 0 && open_read_plainly(D, x, field, st)) return true;
    if (*st != 0) return false;
    zur_clear_last_error(D);
    if (size == 0) {
        fail(D, st, ZUR_BAD_ARGUMENT);
        return false;
    }
    return in_variant(D, x, field.since(), field.is_enumerated(), st);
}

/// What fits is delivered all the same, and always terminated.
inline void copy_out(Domain* D, char* destination, std::uint32_t size, const char* text, std::uint32_t length,
                     std::uint32_t* st) {
    if (length >= size) {
        fail(D, st, ZUR_BUFFER_TOO_SMALL);
        length = size - 1;
    }
    if (length != 0) std::strncpy(destination, text, length);
    destination[length] = 0;
}

[[gnu::noinline]] inline void get_text(Domain* D, const Instance* x, char* destination, std::uint32_t size,
                                       std::uint32_t* st, const TextLayout& layout) {
    if (!open_copy(D, x, size, layout.field, st)) return;
    const char* text = *at<char*>(x, layout.pointer);
    std::uint32_t length = 0; // without storage the length field counts for nothing
    if (text != nullptr)
        length = layout.is_short ? *at<std::uint16_t>(x, layout.length) : *at<std::uint32_t>(x, layout.length);
    copy_out(D, destination, size, text, length, st);
}

/// Announces and stores a text's or array's length.
inline void store_length(Domain* D, std::uint32_t S, Instance* x, std::uint16_t offset, bool is_short,
                         std::uint32_t length) {
    if (is_short)
        store(D, S, at<std::uint16_t>(x, offset), static_cast<std::uint16_t>(length), x);
    else
        store(D, S, at<std::uint32_t>(x, offset), length, x);
}

/// Releases the old text first, whatever happens next. Fills up with zeros when the source ends early.
[[gnu::noinline]] inline void set_text(Domain* D, std::uint32_t S, Instance* x, const char* source,
                                       std::uint32_t length, std::uint32_t* st, const TextLayout& layout) {
    if (!open_write_here(D, S, x, layout.field, st)) return;
    if (layout.is_short) length = static_cast<std::uint16_t>(length);
    char** text = at<char*>(x, layout.pointer);
    if (*text != nullptr) release(D, S, *text);
    announce(D, S, text, pointer_length, x);
    *text = nullptr;
    if (length != 0) {
        *text = static_cast<char*>(allocate(D, S, std::size_t{length} + 1));
        if (*text == nullptr) return fail(D, st, ZUR_NO_MEMORY);
        std::strncpy(*text, source, length);
        (*text)[length] = 0;
    }
    store_length(D, S, x, layout.length, layout.is_short, length);
    if (mark(D, S, x, st, layout.flag)) record_containment(D, S, *text, x);
}

template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::text>
void get(Domain* D, std::uint32_t /*S*/, const Instance* x, char* destination, std::uint32_t size, std::uint32_t* st) {
    get_text(D, x, destination, size, st, text_layout<R, I>);
}

template <const Record& R, std::size_t I>
void set(Domain* D, std::uint32_t S, Instance* x, const char* source, std::uint32_t length, std::uint32_t* st) {
    set_text(D, S, x, source, length, st, text_layout<R, I>);
}

} // namespace epm::access
