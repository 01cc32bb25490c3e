// The reader of records in a Domain whose runtime has declared its steps plain. It reads what unmarshal.hpp reads. A
// reader cannot start anew, so at the first irregularity the fields that are left are read by calls.
#pragma once

#include "wire/plain_steps.hpp"
#include "wire/unmarshal.hpp"

namespace epm::wire {

/// What stays the same from the first record to the last.
struct PlainReader {
    Domain* D;
    std::uint32_t S;
    std::uint32_t reuse;
    std::uint32_t* st;
    const unsigned char* end;   ///< of the buffer
    std::int32_t overdrawn = 0; ///< the room, below 0, behind a record that ends beyond the buffer

    std::int32_t room(const unsigned char* cursor) const {
        return cursor != nullptr ? static_cast<std::int32_t>(end - cursor) : overdrawn;
    }
    /// The cursor for a room; null when that is below 0.
    const unsigned char* at_room(std::int32_t room) {
        if (room >= 0) [[likely]]
            return end - room;
        overdrawn = room;
        return nullptr;
    }
    /// The cursor behind what a codec or nested record reports.
    const unsigned char* behind(const unsigned char* cursor, std::uint32_t used) {
        const std::int32_t left = room(cursor);
        return at_room(left >= 0 && used <= static_cast<std::uint32_t>(left) ? left - static_cast<std::int32_t>(used)
                                                                             : room_beyond(left, used));
    }
};

/// Reads a record. Returns the cursor behind it. The second is for elements, of which there can be thousands, and may
/// be told where the state flags are.
template <const Record& R, Mode mode>
const unsigned char* take_plainly(PlainReader& in, const unsigned char* cursor, Instance* x);
template <const Record& R, Mode mode>
const unsigned char* take_record(PlainReader& in, const unsigned char* cursor, Instance* x, void* block);

/// A record that is being read.
struct Opening {
    Instance* x;
    std::uint8_t* block; ///< where state flags are stored; null when none travel
    std::int8_t variant; ///< up to which fields are read
    bool ends_message;   ///< the jump word reaches the end of the message
    FormerLengths former;
};

/// The flags behind an array, by calls.
template <const Record& R, std::size_t I>
void take_flags_behind_array(Reader& in, const Instance* x) {
    take_array_flags<R, I>(in, stored_length<R, I>(x));
}

/// How the rest of a record is read by calls, from one field or from behind it; constants of that field.
struct Resumption {
    decltype(&unmarshal_worker<*catalogue::all_records[0]>) worker;
    void (*array_flags)(Reader&, const Instance*); ///< only of an array that has flags
    std::uint16_t field;
    std::uint16_t flag;
    Kind kind;
    bool is_tracked;
};

template <const Record& R, std::size_t I>
inline constexpr Resumption resumption = [] {
    constexpr const Field& f = R.fields[I];
    Resumption result{unmarshal_worker<R>, nullptr, I, catalogue::layout<R>.flag[I], f.kind, f.is_tracked()};
    if constexpr (f.kind == Kind::array && f.is_tracked()) result.array_flags = take_flags_behind_array<R, I>;
    return result;
}();

/// Where the reading of fields has ended, and whether it goes on.
struct Rest {
    Progress progress;
    const unsigned char* cursor;
};

/// How far an open field has been read.
enum class Reached : std::uint8_t {
    nothing, ///< it is left to calls
    flags,   ///< all but its flags
    end,
    refused, ///< no memory
};

/// Reads the rest of a record's fields by calls.
[[gnu::cold, gnu::noinline]] inline Rest take_rest(PlainReader& plain, const unsigned char* cursor,
                                                   const Opening& opening, const Resumption& from, Reached reached) {
    const bool is_tracked = opening.block != nullptr;
    Interrupted rest{.in = {.D = plain.D,
                            .S = plain.S,
                            .reuse = plain.reuse,
                            .cursor = cursor != nullptr ? cursor : plain.end,
                            .room = plain.room(cursor),
                            .st = plain.st,
                            .state_flags = is_tracked ? StateFlags::stored : StateFlags::absent,
                            .places_blocks = is_tracked,
                            .block = opening.block,
                            .ends_message = opening.ends_message},
                     .variant = opening.variant,
                     .progress = Progress::next,
                     .next = from.field + std::size_t{reached != Reached::nothing},
                     .former = opening.former};
    Reader& in = rest.in;
    if (reached == Reached::flags) {
        if (from.array_flags != nullptr)
            from.array_flags(in, opening.x);
        else if (from.is_tracked)
            in.take_flag(from.flag, from.kind == Kind::list && !in.ends_message ? 2 : 1);
    }
    if (reached != Reached::nothing && from.kind == Kind::arm && *in.st != 0)
        rest.progress = Progress::last;
    else
        from.worker(in.D, in.S, &rest, opening.x, 0, going_on, in.st);
    return {rest.progress == Progress::refused ? rest.progress : Progress::last, plain.at_room(in.room)};
}

/// A field whose bytes are there.
template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline const unsigned char* take_fixed(const unsigned char* cursor, Opening& opening) {
    constexpr const Field& f = R.fields[I];
    Instance* const x = opening.x;
    if constexpr (f.is_own_enum()) {
        auto* nested = field<R, I, EnumInstance>(x);
        nested->variant = std::min(static_cast<std::int8_t>(*cursor),
                                   static_cast<std::int8_t>(known_layout(header(nested), f.enumeration->top())));
        nested->type_info = type_info<*f.enumeration>();
        plain::swap_number<sizeof nested->value>(&nested->value, cursor + 1);
        cursor += enum_wire_length;
    } else if constexpr (f.kind == Kind::characters || f.kind == Kind::run) {
        std::memcpy(field<R, I>(x), cursor, f.capacity);
        cursor += f.capacity;
    } else {
        if constexpr (f.kind == Kind::length) opening.former[I] = present_number<R, I>(x);
        plain::copy<*f.foreign>(field<R, I>(x), cursor);
        cursor += f.foreign->length;
    }
    if constexpr (mode == Mode::tracked && f.is_tracked()) {
        opening.block[catalogue::layout<R>.flag[I]] = *cursor++;
        if constexpr (f.kind == Kind::run) {
            std::memcpy(element_flags<R, I>(opening.block), cursor, f.capacity);
            cursor += f.capacity;
        }
    }
    return cursor;
}

/// New characters for a text, with a terminator. Returns false when the Domain refuses memory.
[[gnu::noinline]] inline bool take_characters_plainly(const PlainReader& in, const unsigned char* cursor, void** text,
                                                      std::uint32_t length) {
    if (*text != nullptr) release(in.D, in.S, *text);
    *text = allocate(in.D, in.S, std::size_t{length} + 1);
    if (*text == nullptr) {
        fail(in.D, in.st, ZUR_NO_MEMORY);
        return false;
    }
    std::memcpy(*text, cursor, length);
    *at<char>(*text, length) = 0;
    return true;
}

template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline Reached take_text_plainly(PlainReader& in, const unsigned char*& cursor,
                                                        Opening& opening) {
    void** text = field<R, I, void*>(opening.x);
    const std::uint32_t length = stored_length<R, I>(opening.x);
    if (length == 0 && *text == nullptr) return Reached::end;
    constexpr bool is_tracked = mode == Mode::tracked;
    if (length == 0 || in.reuse != 0 || in.room(cursor) < std::int64_t{length} + is_tracked) [[unlikely]]
        return Reached::nothing;
    if (!take_characters_plainly(in, cursor, text, length)) [[unlikely]]
        return Reached::refused;
    cursor += length;
    if constexpr (is_tracked) opening.block[catalogue::layout<R>.flag[I]] = *cursor++;
    return Reached::end;
}

/// An array that holds nothing yet.
template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline Reached take_array_plainly(PlainReader& in, const unsigned char*& cursor,
                                                         Opening& opening) {
    constexpr const Field& f = R.fields[I];
    constexpr bool is_tracked = mode == Mode::tracked;
    void*& storage = *field<R, I, void*>(opening.x);
    const std::uint32_t count = stored_length<R, I>(opening.x);
    if (storage != nullptr) return Reached::nothing;
    if (count == 0) return Reached::end;
    [[maybe_unused]] void** const flags =
        is_tracked ? at<void*>(opening.block, catalogue::layout<R>.nested[I]) : nullptr;
    if constexpr (is_tracked)
        if (element_flags_at(flags) != nullptr) return Reached::nothing;
    std::size_t unit = f.is_of_record() ? element_length<R, I> : f.foreign->length;
    if constexpr (f.is_of_record()) unit += is_tracked ? catalogue::block_length<*f.record> : 0;
    const std::size_t size = count * unit;
    if (size > std::numeric_limits<std::uint32_t>::max()) return Reached::nothing;
    if (!f.is_of_record() && static_cast<std::size_t>(in.room(cursor)) < size) return Reached::nothing;
    storage = allocate(in.D, in.S, size);
    if (storage == nullptr) {
        fail(in.D, in.st, ZUR_NO_MEMORY);
        return Reached::refused;
    }
    if (f.is_of_record() || is_tracked) std::memset(storage, 0, size);
    if constexpr (is_tracked)
        if (!allocate_element_flags(in.D, in.S, flags, count, in.st)) return Reached::refused;
    if constexpr (f.is_of_record()) {
        const lifecycle::Elements<*f.record> elements{storage, count};
        const bool is_plain = plain::agreed(in.D) >= lifecycle::highest_top<*f.record>;
        for (std::size_t i = 0; i < count && *in.st == 0; ++i) {
            void* block = is_plain ? elements.set_up(in.D, in.S, i, is_tracked, in.st)
                                   : elements.initialize(in.D, in.S, i, is_tracked, in.st);
            cursor = take_record<*f.record, mode>(in, cursor, elements[i], block);
        }
    } else {
        const Reader run{.D = in.D, .S = in.S, .reuse = 0, .cursor = cursor, .room = in.room(cursor), .st = in.st};
        cursor += take_run<*f.foreign>(run, storage, count);
    }
    return Reached::flags;
}

template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline Reached take_list_plainly(PlainReader& in, const unsigned char*& cursor,
                                                        Opening& opening) {
    constexpr const Record& type = *R.fields[I].record;
    if (in.reuse != 0 || in.room(cursor) < 4) [[unlikely]]
        return Reached::nothing;
    std::uint32_t count;
    plain::swap_number<sizeof count>(&count, cursor);
    cursor += sizeof count;
    for (std::uint32_t i = 0; i < count && *in.st == 0; ++i) {
        Instance* element = lifecycle::create_internal<type>(in.D, in.S);
        if (element == nullptr) {
            fail(in.D, in.st, ZUR_NO_MEMORY);
            break;
        }
        cursor = take_plainly<type, mode>(in, cursor, element);
        attach_new_element<R, I>(in.D, in.S, opening.x, element, in.st);
    }
    return Reached::flags;
}

template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline Reached take_open(PlainReader& in, const unsigned char*& cursor, Opening& opening) {
    constexpr const Field& f = R.fields[I];
    Instance* const x = opening.x;
    if constexpr (f.kind == Kind::text) return take_text_plainly<R, I, mode>(in, cursor, opening);
    if constexpr (f.kind == Kind::array) return take_array_plainly<R, I, mode>(in, cursor, opening);
    if constexpr (f.kind == Kind::list) return take_list_plainly<R, I, mode>(in, cursor, opening);
    if constexpr (f.kind == Kind::embedded) {
        cursor = take_plainly<*f.record, mode>(in, cursor, field<R, I, Instance>(x));
    } else if constexpr (f.kind == Kind::value || f.kind == Kind::object) {
        cursor = in.behind(
            cursor, Codec<*f.foreign>::unmarshal(in.D, in.S, cursor, field<R, I>(x), in.room(cursor), in.reuse, in.st));
    }
    return Reached::flags;
}

template <const Record& R, std::size_t I>
inline constexpr bool only_arms_follow = std::all_of(R.fields.begin() + I, R.fields.begin() + R.count,
                                                     [](const Field& f) { return f.kind == Kind::arm; });

/// An arm if it is selected, and the flag.
template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline Rest take_arm_plainly(PlainReader& in, const unsigned char* cursor, Opening& opening) {
    bool is_last = false;
    if (is_selected<R, I>(opening.x)) {
        if (Instance* arm = arm_to_fill<R, I>(in.D, in.S, opening.x); arm != nullptr)
            cursor = take_plainly<*R.fields[I].record, mode>(in, cursor, arm);
        else
            fail(in.D, in.st, ZUR_NO_MEMORY);
        if (cursor == nullptr || *in.st != 0 || !has_fixed_room<R, I, mode>(in.room(cursor), opening.variant))
            [[unlikely]]
            return take_rest(in, cursor, opening, resumption<R, I>, Reached::flags);
        is_last = mode == Mode::untracked && only_arms_follow<R, I>; // one arm is selected at most
    }
    if constexpr (mode == Mode::tracked) opening.block[catalogue::layout<R>.flag[I]] = *cursor++;
    return {is_last ? Progress::last : Progress::next, cursor};
}

template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline Rest take_field_plainly(PlainReader& in, const unsigned char* cursor, Opening& opening) {
    constexpr const Field& f = R.fields[I];
    if constexpr (is_fixed(f)) {
        return {Progress::next, take_fixed<R, I, mode>(cursor, opening)};
    } else if constexpr (f.kind == Kind::arm) {
        return take_arm_plainly<R, I, mode>(in, cursor, opening);
    } else {
        const Reached reached = take_open<R, I, mode>(in, cursor, opening);
        if (reached == Reached::refused) return {Progress::refused, cursor};
        if (reached == Reached::nothing) return take_rest(in, cursor, opening, resumption<R, I>, reached);
        if constexpr (f.kind != Kind::text) {
            std::uint32_t flags = mode == Mode::tracked && f.is_tracked() && reached == Reached::flags;
            if constexpr (f.kind == Kind::array)
                if (flags != 0) flags += stored_length<R, I>(opening.x);
            // The flag of a list is only read where a byte is left behind it.
            if (cursor == nullptr || *in.st != 0 ||
                (flags != 0 && in.room(cursor) < std::int64_t{flags} + (f.kind == Kind::list))) [[unlikely]]
                return take_rest(in, cursor, opening, resumption<R, I>, reached);
            if constexpr (mode == Mode::tracked && f.is_tracked())
                if (flags != 0) {
                    opening.block[catalogue::layout<R>.flag[I]] = *cursor;
                    if constexpr (f.kind == Kind::array)
                        std::memcpy(element_flags<R, I>(opening.block), cursor + 1, flags - 1);
                    cursor += flags;
                }
        }
        if (!has_fixed_room<R, I + 1, mode>(in.room(cursor), opening.variant)) [[unlikely]]
            return take_rest(in, cursor, opening, resumption<R, I>, Reached::end);
        return {Progress::next, cursor};
    }
}

template <const Record& R, Mode mode, std::size_t... I>
[[gnu::always_inline]] inline Rest take_fields_plainly(PlainReader& in, const unsigned char* cursor, Opening& opening,
                                                       std::index_sequence<I...>) {
    Rest rest{Progress::next, cursor};
    (void)(((R.fields[I].since != 0 && opening.variant < R.fields[I].since) ||
            (rest = take_field_plainly<R, I, mode>(in, rest.cursor, opening)).progress == Progress::next) &&
           ...);
    return rest;
}

/// Reads a whole record by calls.
template <const Record& R>
[[gnu::cold, gnu::noinline]] const unsigned char* take_by_calls(PlainReader& in, const unsigned char* cursor,
                                                                Instance* x) {
    return in.behind(cursor, unmarshal_worker<R>(in.D, in.S, cursor != nullptr ? cursor : in.end, x, in.room(cursor),
                                                 in.reuse, in.st));
}

/// Skips what the jump word says is left of a record.
template <const Record& R>
[[gnu::cold, gnu::noinline]] const unsigned char* skip(PlainReader& in, const unsigned char* cursor,
                                                       std::uint32_t passed, std::uint32_t jump) {
    return in.behind(cursor, jump_over(trace::site<R, trace::Operation::unmarshal, trace::Text::jumped>,
                                       jump_offset + passed, jump_offset, jump));
}

template <const Record& R, Mode mode>
[[gnu::always_inline]] inline const unsigned char* take_record(PlainReader& in, const unsigned char* start, Instance* x,
                                                               void* block) {
    constexpr std::uint8_t flags = mode == Mode::tracked ? ZUR_TRACKED : 0;
    const std::int32_t length = in.room(start);
    if (length < static_cast<std::int32_t>(frame_length) || *in.st != 0 || static_cast<std::int8_t>(start[0]) < 0 ||
        (start[1] & travelling_flags) != flags || (x->flags & flags) != flags ||
        !has_fixed_room<R, 0, mode, frame_length>(length, static_cast<std::int8_t>(start[0]))) [[unlikely]]
        return take_by_calls<R>(in, start, x);
    in.D->last_error = 0;
    const std::int32_t base_room = length - static_cast<std::int32_t>(jump_offset);
    std::uint32_t jump;
    plain::swap_number<sizeof jump>(&jump, start + jump_offset);
    Opening opening;
    opening.x = x;
    opening.block = static_cast<std::uint8_t*>(block);
    if (mode == Mode::tracked && block == nullptr) opening.block = flag_block<R>(in.D, in.S, x);
    opening.variant = std::min(static_cast<std::int8_t>(start[0]), static_cast<std::int8_t>(known_layout(x, R.top())));
    opening.ends_message = jump >= static_cast<std::uint32_t>(base_room);
    const Rest rest =
        take_fields_plainly<R, mode>(in, start + frame_length, opening, std::make_index_sequence<R.count>{});
    if (rest.progress == Progress::refused) [[unlikely]] {
        x->variant = std::max(x->variant, opening.variant);
        return start;
    }
    const unsigned char* cursor = rest.cursor;
    const auto passed = static_cast<std::uint32_t>(std::int64_t{base_room} - in.room(cursor));
    if (jump > passed) [[unlikely]]
        cursor = skip<R>(in, cursor, passed, jump);
    if (opening.variant < x->variant) [[unlikely]]
        release_later_fields<R>(in.D, in.S, x, opening.variant);
    x->variant = opening.variant;
    x->flags |= flags;
    *(has_flag(x, ZUR_OWN_HEADER) ? zur_get_manifested_type_info_ptr_mem(x) : &x->type_info) = type_info<R>();
    return cursor;
}

template <const Record& R, Mode mode>
const unsigned char* take_plainly(PlainReader& in, const unsigned char* start, Instance* x) {
    return take_record<R, mode>(in, start, x, nullptr);
}

/// The readers of one record.
struct Readers {
    const unsigned char* (*untracked)(PlainReader&, const unsigned char*, Instance*);
    const unsigned char* (*tracked)(PlainReader&, const unsigned char*, Instance*);
    decltype(&unmarshal_worker<*catalogue::all_records[0]>) by_calls;
};
template <const Record& R>
inline constexpr Readers readers = {take_plainly<R, Mode::untracked>, take_plainly<R, Mode::tracked>,
                                    unmarshal_worker<R>};

[[gnu::noinline]] inline std::uint32_t unmarshal_plainly(Domain* D, std::uint32_t S, const void* buffer, Instance* x,
                                                         std::int32_t length, std::uint32_t reuse, std::uint32_t* st,
                                                         const Readers& type) {
    const Mode mode = mode_of(D);
    if (mode == Mode::closed || *st != 0 || length < 1) [[unlikely]]
        return type.by_calls(D, S, buffer, x, length, reuse, st);
    const auto* start = static_cast<const unsigned char*>(buffer);
    PlainReader in{.D = D, .S = S, .reuse = reuse, .st = st, .end = start + length};
    const unsigned char* const end = (mode == Mode::untracked ? type.untracked : type.tracked)(in, start, x);
    return static_cast<std::uint32_t>(length) - static_cast<std::uint32_t>(in.room(end));
}

template <const Record& R>
std::uint32_t unmarshal(Domain* D, std::uint32_t S, const void* buffer, Instance* x, std::int32_t length,
                        std::uint32_t reuse, std::uint32_t* st) {
    if (plain::is_idle(D)) return unmarshal_plainly(D, S, buffer, x, length, reuse, st, readers<R>);
    return unmarshal_worker<R>(D, S, buffer, x, length, reuse, st);
}

} // namespace epm::wire
