// The position of a writer or a reader: the next byte, the room behind it, and the state flag bytes that travel between
// the fields in tracked mode. The files of the field kinds define what each field looks like.
#pragma once

#include "frame/contents.hpp"
#include "frame/imports.hpp"
#include "lifecycle/tracking.hpp"

#include <limits>

namespace epm::wire {

/// The Instance flags that travel. All others are cleared on the way out and on the way in; otherwise a peer could
/// claim memory arrangements that the destination does not have.
inline constexpr std::uint8_t travelling_flags = ZUR_TRACKED | ZUR_RA_DATA;

/// A record's variant byte, flag byte and jump word, without an ra block.
inline constexpr std::uint32_t frame_length = 6;
inline constexpr std::uint32_t jump_offset = 2;

/// Passes through the template of another record, from a field that holds one.
template <const Record& R>
std::uint32_t marshal_worker(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                             int check, std::uint32_t* st);
/// `reuse` is what the caller said; `going_on` has a meaning of its own.
template <const Record& R>
std::uint32_t unmarshal_worker(Domain* D, std::uint32_t S, const void* buffer, Instance* x, std::int32_t length,
                               std::uint64_t reuse, std::uint32_t* st);

/// Refuses a buffer without a single byte.
[[gnu::cold, gnu::noinline]] inline std::uint32_t refuse_buffer(Domain* D, std::uint32_t* st) {
    fail(D, st, ZUR_WRONG_LENGTH);
    return 0;
}

inline constexpr std::size_t longest_block = [] {
    std::size_t longest = 0;
    for (const Record* r : catalogue::all_records) longest = std::max(longest, catalogue::lay_out(*r).block_length(*r));
    return longest;
}();

/// What travels for an Instance without state flags: all zero, and no element flags.
alignas(8) inline constexpr std::array<std::uint8_t, longest_block> no_state_flags{};

/// The block to send in tracked mode; the Instance's own flags decide which.
template <const Record& R>
const std::uint8_t* flags_to_send(Domain* D, std::uint32_t S, const Instance* x, std::uint8_t instance_flags) {
    if ((instance_flags & ZUR_TRACKED) == 0) return no_state_flags.data();
    return flag_block<R>(D, S, const_cast<Instance*>(x));
}
template <const Record& R>
const std::uint8_t* flags_to_send(Domain* D, std::uint32_t S, const Instance* x) {
    return flags_to_send<R>(D, S, x, x->flags);
}

struct Writer {
    Domain* D;
    std::uint32_t S;
    unsigned char* cursor;
    std::int32_t room;
    std::uint32_t* st;
    const std::uint8_t* flags = nullptr; ///< the state flags to send; null when none travel

    void advance(std::uint32_t bytes) {
        cursor += bytes;
        room -= static_cast<std::int32_t>(bytes);
    }
    /// In a full buffer the flag goes directly behind the end and is not counted; the caller leaves room for that byte.
    [[gnu::always_inline]] void put_flag(std::size_t offset) {
        if (flags == nullptr) return;
        *cursor = flags[offset];
        advance(room != 0);
    }
    /// For lists and arms: writes the flag only if a byte is left after it.
    [[gnu::always_inline]] void put_flag_with_room(std::size_t offset) {
        if (flags == nullptr || room < 2) return;
        *cursor = flags[offset];
        advance(1);
    }
};

/// The room after the offset has moved beyond the end. It never falls below what a signed length can hold.
[[gnu::cold, gnu::noinline]] inline std::int32_t room_beyond(std::int32_t room, std::uint32_t bytes) {
    constexpr std::int64_t least = -std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::max(std::int64_t{room} - bytes, least));
}

enum class StateFlags : std::uint8_t {
    absent,
    stored,
    skipped,
};

/// A jump word may move the offset beyond the buffer. The room then becomes negative and the cursor stays at the end,
/// so the codecs refuse and nothing more is read.
struct Reader {
    Domain* D;
    std::uint32_t S;
    std::uint32_t reuse;
    const unsigned char* cursor;
    std::int32_t room;
    std::uint32_t* st;
    StateFlags state_flags = StateFlags::absent; ///< what is done with the flags between the fields
    bool places_blocks = false;                  ///< the elements of arrays have state flags behind them
    std::uint8_t* block = nullptr;               ///< where flags are stored
    bool ends_message = false;                   ///< the record's jump word reaches the end of the message

    /// Whether the present storage can be used again: reuse is on, and it holds as many units as will come.
    bool keeps(std::uint32_t count, std::uint32_t former) const {
        if (reuse == 0) [[likely]]
            return false;
        return count == former;
    }
    std::uint32_t rest() const { return room > 0 ? static_cast<std::uint32_t>(room) : 0; }

    /// Moves past what a codec has read, which is never more than the room.
    void advance(std::uint32_t bytes) {
        cursor += bytes;
        room -= static_cast<std::int32_t>(bytes);
    }
    /// Moves past what a codec or nested record reports. It may exceed the room, or the room may be negative already.
    [[gnu::always_inline]] void pass(std::uint32_t bytes) {
        if (bytes <= static_cast<std::uint32_t>(room)) [[likely]]
            advance(bytes);
        else
            leave(bytes);
    }
    /// Moves past more bytes than there are.
    [[gnu::always_inline]] void leave(std::uint32_t bytes) {
        cursor += rest();
        room = room_beyond(room, bytes);
    }
    /// The flag behind a field, if at least `needed` bytes are left.
    [[gnu::always_inline]] void take_flag(std::size_t offset, std::int32_t needed = 1) {
        if (state_flags == StateFlags::absent) [[likely]]
            return;
        if (room < needed) return;
        if (state_flags == StateFlags::stored) block[offset] = *cursor;
        advance(1);
    }
    /// The flag behind a text or an array that is not empty. At a room of 0 the byte directly behind the end is stored.
    /// An unwanted flag is passed if at least `needed` bytes are left.
    [[gnu::always_inline]] void take_due_flag(std::size_t offset, std::int32_t needed) {
        if (state_flags == StateFlags::absent) [[likely]]
            return;
        if (state_flags == StateFlags::skipped) return advance(room >= needed);
        if (room >= 0) block[offset] = *cursor;
        advance(room >= 1);
    }
};

} // namespace epm::wire
