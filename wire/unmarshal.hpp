// The reader of records; marshal.hpp has the form. A reader with fewer fields than the writer jumps over what it does
// not know; one with more leaves its extra fields as they are. The bytes may come from anywhere, so nothing beyond the
// buffer is read, except for the one byte directly behind it when the flag of a text or an array is due.
#pragma once

#include "wire/arm_field.hpp"
#include "wire/array_field.hpp"
#include "wire/enumeration.hpp"
#include "wire/list_field.hpp"
#include "wire/plain_steps.hpp"
#include "wire/text_field.hpp"

namespace epm::wire {

/// Whether to go on reading fields.
enum class Progress : std::uint8_t {
    next,
    last,    ///< no further fields, the rest of the record is still processed
    refused, ///< no memory, the record stays as it is
};

/// Reads an ra block and drops its content.
[[gnu::cold, gnu::noinline]] inline std::uint32_t take_ra_block(Domain* D, std::uint32_t S, const void* source,
                                                                std::int32_t room, std::uint32_t* st) {
    std::uint64_t word = 0;
    std::uint8_t byte = 0;
    return _zur_instance_ra_data_unmarshal(D, S, source, &word, &byte, room, st);
}

/// The bytes that the jump word skips behind the fields that were read. A jump word that leads beyond any signed offset
/// is treated like one that leads backwards: no error, and nothing is skipped.
[[gnu::cold, gnu::noinline]] inline std::uint32_t jump_over(std::uint32_t site, std::uint32_t offset,
                                                            std::uint32_t base, std::uint32_t jump) {
    const std::uint64_t goal = std::uint64_t{base} + jump;
    if (goal <= offset || goal > std::uint64_t{std::numeric_limits<std::int32_t>::max()}) return 0;
    trace::jumped(site, offset, base, jump);
    return static_cast<std::uint32_t>(goal) - offset;
}

/// The record that traces that a Domain tracks and the Instance does not. The reader sets up the elements of an array
/// in the Domain's mode, so this only happens with an element that the caller supplies; the array's owner then traces
/// it.
template <const Record& R>
constexpr const Record& teller_of_mismatch() {
    for (const Record* owner : catalogue::all_records)
        if (owner->any([](const Field& f) { return f.kind == Kind::array && f.is_of_record() && f.record == &R; }))
            return *owner;
    return R;
}

/// Decides what to do with the state flags, from the Domain's mode and the flag byte. Changes the flag byte to what the
/// Instance gets.
template <const Record& R>
[[gnu::always_inline]] inline void choose_state_flags(Reader& in, Instance* x, std::uint8_t& flags) {
    using trace::site, trace::Operation, trace::Text;
    const bool is_sent = (flags & ZUR_TRACKED) != 0;
    if (is_tracking(in.D, site<R, Operation::unmarshal, Text::corrupted_handle>)) {
        if (!has_flag(x, ZUR_TRACKED))
            trace::die(site<teller_of_mismatch<R>(), Operation::unmarshal, Text::tracking_mismatch>);
        in.places_blocks = true;
        flags |= ZUR_TRACKED;
        if (!is_sent) return;
        in.state_flags = StateFlags::stored;
        in.block = flag_block<R>(in.D, in.S, x);
    } else if (is_sent) {
        in.state_flags = StateFlags::skipped;
        flags &= static_cast<std::uint8_t>(~ZUR_TRACKED);
    }
}

/// Lengths as they were before the reading, by the index of the length field.
using FormerLengths = std::array<std::uint32_t, catalogue::most_fields>;

template <const Record& R, std::size_t I>
std::uint32_t present_number(const Instance* x) {
    if constexpr (R.fields[I].foreign->length == sizeof(std::uint16_t))
        return *field<R, I, std::uint16_t>(x);
    else
        return *field<R, I, std::uint32_t>(x);
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline Progress take_field(Reader& in, Instance* x, [[maybe_unused]] std::size_t first,
                                                  [[maybe_unused]] FormerLengths& former) {
    constexpr const Field& f = R.fields[I];
    constexpr std::size_t flag = catalogue::layout<R>.flag[I];
    if constexpr (f.kind == Kind::text) {
        return take_text<R, I>(in, x, former[catalogue::companion<R, I>]) ? Progress::next : Progress::refused;
    } else if constexpr (f.kind == Kind::array && f.is_of_record()) {
        return take_array_of_records<R, I>(in, x, former[catalogue::companion<R, I>]) ? Progress::next
                                                                                      : Progress::refused;
    } else if constexpr (f.kind == Kind::array) {
        return take_array_of_values<R, I>(in, x, former[catalogue::companion<R, I>]) ? Progress::next
                                                                                     : Progress::refused;
    } else if constexpr (f.kind == Kind::list) {
        take_list<R, I>(in, x);
    } else if constexpr (f.kind == Kind::arm) {
        take_arm<R, I>(in, x, I >= first);
        if (*in.st != 0) return Progress::last;
    } else if constexpr (f.kind == Kind::run || f.kind == Kind::characters) {
        in.advance(take_run<*f.foreign>(in, field<R, I>(x), f.capacity));
        if constexpr (f.kind == Kind::run)
            take_array_flags<R, I>(in, f.capacity);
        else
            in.take_flag(flag);
    } else if constexpr (f.kind == Kind::embedded) {
        in.pass(unmarshal_worker<*f.record>(in.D, in.S, in.cursor, field<R, I, Instance>(x), in.room, in.reuse, in.st));
        in.take_flag(flag);
    } else if constexpr (f.is_own_enum()) {
        in.advance(
            unmarshal<*f.enumeration>(in.D, in.S, in.cursor, field<R, I, Instance>(x), in.room, in.reuse, in.st));
        in.take_flag(flag);
        if (R.is_union() && I == 0 && *in.st != 0) return Progress::last;
    } else {
        if constexpr (f.kind == Kind::length) former[I] = present_number<R, I>(x);
        in.pass(Codec<*f.foreign>::unmarshal(in.D, in.S, in.cursor, field<R, I>(x), in.room, in.reuse, in.st));
        if constexpr (f.is_tracked()) in.take_flag(flag);
    }
    return Progress::next;
}

/// A record whose first fields have been read in plain steps; the rest of them is read by calls.
struct Interrupted {
    Reader in;
    std::int8_t variant; ///< up to which fields are read
    Progress progress;
    std::size_t next; ///< the field to go on with
    FormerLengths former;
};

/// In place of `reuse`: the buffer is an Interrupted, and only its fields are read.
inline constexpr std::uint64_t going_on = std::uint64_t{1} << 32;

/// Fields are read in groups: those that take the same bytes whatever they hold, the arms of a union, any other one by
/// itself. Among fields that take the same bytes, reading only goes on at the first. The numbers of the groups' first
/// fields, closed by the number of fields.
template <const Record& R>
constexpr bool starts_group(std::size_t i) {
    if (i == 0 || i == R.count) return true;
    const Field &f = R.fields[i], &before = R.fields[i - 1];
    return !(is_fixed(f) && is_fixed(before)) && !(f.kind == Kind::arm && before.kind == Kind::arm);
}
template <const Record& R>
inline constexpr std::size_t group_count = [] {
    std::size_t count = 0;
    for (std::size_t i = 0; i < R.count; ++i) count += starts_group<R>(i);
    return count;
}();
template <const Record& R>
inline constexpr auto groups = [] {
    std::array<std::size_t, group_count<R> + 1> first{};
    for (std::size_t i = 0, n = 0; i <= R.count; ++i)
        if (starts_group<R>(i)) first[n++] = i;
    return first;
}();

template <const Record& R, std::size_t First, std::size_t... I>
[[gnu::always_inline]] inline Progress take_group(Reader& in, Instance* x, std::int8_t variant, std::size_t first,
                                                  FormerLengths& former, std::index_sequence<I...>) {
    Progress progress = Progress::next;
    (void)(((R.fields[First + I].since != 0 && variant < R.fields[First + I].since) ||
            (progress = take_field<R, First + I>(in, x, first, former)) == Progress::next) &&
           ...);
    return progress;
}

template <const Record& R, std::size_t... G>
[[gnu::always_inline]] inline Progress take_fields(Reader& in, Instance* x, std::int8_t variant, std::size_t first,
                                                   FormerLengths& former, std::index_sequence<G...>) {
    constexpr auto& group = groups<R>;
    Progress progress = Progress::next;
    (void)((group[G + 1] <= first || (progress = take_group<R, group[G]>(
                                          in, x, variant, first, former,
                                          std::make_index_sequence<group[G + 1] - group[G]>{})) == Progress::next) &&
           ...);
    return progress;
}

/// Releases what fields of later variants own before the Instance's variant falls below them. Afterwards no operation
/// sees these fields, not even the destruction.
template <const Record& R>
[[gnu::cold, gnu::noinline]] void release_later_fields(Domain* D, std::uint32_t S, Instance* x, std::int8_t variant) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if (variant < R.fields[I].since && R.fields[I].since <= x->variant) lifecycle::empty_field<R, I>(D, S, x);
    });
}

/// The last steps are not announced. Reading never clears a flag of the Instance.
template <const Record& R>
std::uint32_t unmarshal_worker(Domain* D, std::uint32_t S, const void* buffer, Instance* x, std::int32_t length,
                               std::uint64_t reuse, std::uint32_t* st) {
    const bool is_interrupted = reuse == going_on;
    if (*st != 0 && !is_interrupted) return 0;
    Reader in{.D = D,
              .S = S,
              .reuse = static_cast<std::uint32_t>(reuse),
              .cursor = static_cast<const unsigned char*>(buffer),
              .room = length,
              .st = st};
    std::int8_t known_variant = 0;
    std::uint8_t flags = 0;
    std::int32_t base_room = 0;
    std::uint32_t jump = 0;
    std::size_t first = 0;
    FormerLengths former;
    if (!is_interrupted) [[likely]] {
        zur_clear_last_error(D);
        if (length < 1) return refuse_buffer(D, st);
        std::int8_t variant = 0;
        in.advance(_zur_instance_variant_unmarshal(D, S, in.cursor, &variant, in.room, st));
        in.advance(_zur_instance_obj_flag_unmarshal(D, S, in.cursor, &flags, in.room, st));
        flags &= travelling_flags;
        if ((flags & ZUR_RA_DATA) != 0) [[unlikely]]
            in.pass(take_ra_block(D, S, in.cursor, in.room, st));
        known_variant = std::min(variant, static_cast<std::int8_t>(known_layout(x, R.top())));
        base_room = in.room;
        in.advance(_zur_variant_jump_unmarshal(D, S, in.cursor, &jump, in.room, st));
        in.ends_message = jump >= static_cast<std::uint32_t>(base_room);
        choose_state_flags<R>(in, x, flags);
    } else {
        const auto* record = static_cast<const Interrupted*>(buffer);
        in = record->in;
        known_variant = record->variant;
        first = record->next;
        former = record->former;
    }
    Progress progress = Progress::next;
    if (known_variant >= 0)
        progress = take_fields<R>(in, x, known_variant, first, former, std::make_index_sequence<group_count<R>>{});
    if (is_interrupted) [[unlikely]] {
        auto* record = static_cast<Interrupted*>(const_cast<void*>(buffer));
        record->in.room = in.room;
        record->progress = progress;
        return 0;
    }
    if (progress == Progress::refused) { // the destruction must see what has been read
        x->variant = std::max(x->variant, known_variant);
        return 0;
    }
    const auto passed = static_cast<std::uint32_t>(std::int64_t{base_room} - in.room);
    if (jump > passed) [[unlikely]] {
        const auto base = static_cast<std::uint32_t>(std::int64_t{length} - base_room);
        const std::uint32_t over =
            jump_over(trace::site<R, trace::Operation::unmarshal, trace::Text::jumped>, base + passed, base, jump);
        over <= in.rest() ? in.advance(over) : in.leave(over);
    }
    if (known_variant < x->variant) [[unlikely]]
        release_later_fields<R>(D, S, x, known_variant);
    x->variant = known_variant;
    x->flags |= flags;
    const zur_type_info** type = zur_get_manifested_type_info_ptr_mem(x);
    *type = lifecycle::stored_type(D, S, type_info<R>());
    return static_cast<std::uint32_t>(length) - static_cast<std::uint32_t>(in.room);
}

} // namespace epm::wire
