// How records are written and read where the runtime has declared its steps plain. A field whose length is known
// beforehand is copied in line; the room is compared once for all of them up to the next field of another length. At
// the first irregularity the writer starts anew by calls; the reader goes on by calls from the field that was reached.
// So what comes of it is the same.
#pragma once

#include "frame/plain.hpp"
#include "wire/enumeration.hpp"

namespace epm::wire {

enum class Mode : std::uint8_t { untracked, tracked, closed };

/// Whether plain steps may be taken in an idle Domain, and with state flags.
inline Mode mode_of(const Domain* D) {
    if (!plain::is_settled(D)) return Mode::closed;
    const zur_tracking_handle* handle = D->tracking_handle;
    if (handle == nullptr || handle->handle_kind == ZUR_UNTRACKED_MODE) return Mode::untracked;
    return handle->handle_kind == ZUR_TRACKED_MODE ? Mode::tracked : Mode::closed;
}

/// Whether a field takes the same bytes whatever it holds, and needs no call.
constexpr bool is_fixed(const Field& f) {
    switch (f.kind) {
    case Kind::value:
    case Kind::length:
    case Kind::object: return f.is_own_enum() || plain::is_number(*f.foreign) || plain::is_bytes(*f.foreign);
    case Kind::characters: return true;
    case Kind::run: return f.foreign->length == 1;
    default: return false;
    }
}

/// Whether the room that a record needs up to an open field goes on behind this one: of an arm that is not selected
/// only the flag travels.
constexpr bool is_passed(const Field& f, Mode mode) {
    return is_fixed(f) || (f.kind == Kind::arm && mode == Mode::tracked);
}

/// What a field takes, with its flags; an arm takes its flag.
constexpr std::uint32_t fixed_length(const Field& f, Mode mode) {
    if (f.kind == Kind::arm) return 1;
    const bool has_flags = mode == Mode::tracked && f.is_tracked();
    const std::uint32_t flags = !has_flags ? 0 : f.kind == Kind::run ? 1u + f.capacity : 1u;
    if (f.is_own_enum()) return enum_wire_length + flags;
    return (f.kind == Kind::characters || f.kind == Kind::run ? f.capacity : f.foreign->length) + flags;
}

/// The room that a record needs from a field on, up to the next one whose length is not fixed, by the variant that
/// travels.
template <const Record& R, std::size_t First, Mode mode>
inline constexpr auto fixed_room = [] {
    std::array<std::int32_t, R.variants()> room{};
    for (std::size_t v = 0; v < room.size(); ++v)
        for (std::size_t i = First; i < R.count && static_cast<std::size_t>(R.fields[i].since) <= v; ++i) {
            if (!is_passed(R.fields[i], mode)) break;
            room[v] += static_cast<std::int32_t>(fixed_length(R.fields[i], mode));
        }
    return room;
}();

/// Whether the room is enough for these fields and some bytes in front of them.
template <const Record& R, std::size_t First, Mode mode, std::int32_t in_front = 0>
[[gnu::always_inline]] inline bool has_fixed_room(std::int32_t room, std::int8_t variant) {
    constexpr auto& needed = fixed_room<R, First, mode>;
    constexpr bool is_same = std::all_of(needed.begin(), needed.end(), [](std::int32_t n) { return n == needed[0]; });
    if constexpr (is_same && needed[0] + in_front == 0)
        return true;
    else if constexpr (is_same)
        return room >= needed[0] + in_front;
    else
        return room - in_front >= needed[static_cast<std::size_t>(std::min(variant, R.top()))];
}

} // namespace epm::wire
