// Counted characters on the wire. The length n is where the length field is, which is not always directly in front:
//
//   size  content
//   n     the characters as they are, without a terminator
//   0, 1  state flag, only when n is not 0
#pragma once

#include "wire/cursor.hpp"
#include "wire/storage.hpp"

namespace epm::wire {

/// Writes the part of a text that fits and leaves the error.
[[gnu::cold, gnu::noinline]] inline std::uint32_t cut_text(Domain* D, std::int32_t room, std::uint32_t* st) {
    fail(D, st, ZUR_WRONG_LENGTH);
    return room > 0 ? static_cast<std::uint32_t>(room) : 0;
}

inline void put_text(Writer& out, const void* text, std::uint32_t length) {
    if (std::int64_t{length} > out.room) [[unlikely]]
        length = cut_text(out.D, out.room, out.st);
    std::memcpy(out.cursor, text, length);
    out.advance(length);
}

/// Reads the characters into storage with a terminator. Returns the bytes read, or -1 when the Domain refuses memory.
inline std::int32_t take_characters(Storage storage, const void* source, std::int32_t room, std::uint32_t length,
                                    bool may_keep) {
    void** text = storage.pointer;
    const std::size_t size =
        storage.provide(may_keep && *text != nullptr, std::size_t{length} + 1, Codec<catalogue::character>::size_of);
    if (size == 0) return -1;
    const auto used = static_cast<std::uint32_t>(std::clamp(std::int64_t{room}, std::int64_t{0}, std::int64_t{length}));
    std::memcpy(*text, source, used);
    // Zero the terminator; for a text that was cut, more than that.
    if (size - used == 1) [[likely]]
        *at<char>(*text, used) = 0;
    else
        std::memset(at(*text, used), 0, size - used);
    return static_cast<std::int32_t>(used);
}

/// Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline bool take_text(Reader& in, Instance* x, std::uint32_t former) {
    const Storage text{in.D, in.S, field<R, I, void*>(x), x, in.st};
    const std::uint32_t length = stored_length<R, I>(x);
    if (length == 0) {
        text.drop();
        return true;
    }
    const std::int32_t used = take_characters(text, in.cursor, in.room, length, in.keeps(length, former));
    if (used < 0) return false;
    in.advance(static_cast<std::uint32_t>(used));
    in.take_due_flag(catalogue::layout<R>.flag[I], 2);
    return true;
}

} // namespace epm::wire
