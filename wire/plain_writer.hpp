// The writer of records in a Domain whose runtime has declared its steps plain. It writes what marshal.hpp writes, and
// gives up at the first irregularity. Until then only the buffer has changed, so the writer by calls starts anew.
#pragma once

#include "wire/array_field.hpp"
#include "wire/plain_steps.hpp"

namespace epm::wire {

/// What stays the same from the first record to the last.
struct PlainWriter {
    Domain* D;
    std::uint32_t S;
    std::uint32_t* st;
    unsigned char* end; ///< of the buffer
    std::int8_t agreed;

    std::int32_t room(const unsigned char* cursor) const { return static_cast<std::int32_t>(end - cursor); }
    Writer by_calls(unsigned char* cursor) const { return {D, S, cursor, room(cursor), st}; }
};

/// Writes a record and returns where it ends, or null to give up. The second is for elements, of which there can be
/// thousands, and is told which state flags to send.
template <const Record& R, Mode mode>
unsigned char* put_plainly(const PlainWriter& out, unsigned char* cursor, const Instance* x);
template <const Record& R, Mode mode>
unsigned char* put_record(const PlainWriter& out, unsigned char* cursor, const Instance* x, const std::uint8_t* flags);

/// A field for which there is room, without its flag.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline unsigned char* put_fixed(const PlainWriter& out, unsigned char* cursor,
                                                       const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum()) {
        const auto* nested = field<R, I, EnumInstance>(x);
        if (nested->variant > out.agreed) [[unlikely]]
            return nullptr;
        *cursor = static_cast<unsigned char>(std::min(nested->variant, f.enumeration->top()));
        plain::swap_number<sizeof nested->value>(cursor + 1, &nested->value);
        return cursor + enum_wire_length;
    } else if constexpr (f.kind == Kind::characters || f.kind == Kind::run) {
        std::memcpy(cursor, field<R, I>(x), f.capacity);
        return cursor + f.capacity;
    } else {
        plain::copy<*f.foreign>(cursor, readable<R, I>(x));
        return cursor + f.foreign->length;
    }
}

/// Where the elements of an array have their state flags. Their blocks lie behind all of them, so the runtime need not
/// be asked for each: it told of the first how many elements there were when they got their places.
template <const Record& E, Mode mode>
class ElementBlocks {
public:
    ElementBlocks(Domain* D, std::uint32_t S, const void* storage, std::uint32_t count) : D_(D), S_(S) {
        if constexpr (mode == Mode::tracked)
            if (const Instance* first = lifecycle::element_in<E>(storage, 0); count > 1 && has_place(first)) {
                const std::uint32_t distance = zurlib_get_sttr_offset(D, S, const_cast<Instance*>(first));
                if (distance % catalogue::size<E> == 0 && distance / catalogue::size<E> >= count)
                    blocks_ = at<std::uint8_t>(storage, distance);
            }
    }
    [[gnu::always_inline]] const std::uint8_t* of(const Instance* element, std::size_t i) const {
        if constexpr (mode == Mode::untracked) return nullptr;
        if (blocks_ == nullptr || !has_place(element)) return flags_to_send<E>(D_, S_, element);
        return blocks_ + i * catalogue::block_length<E>;
    }

private:
    static bool has_place(const Instance* element) {
        constexpr std::uint8_t both = ZUR_TRACKED | ZUR_MOVED_FLAGS;
        return (element->flags & both) == both;
    }

    Domain* D_;
    std::uint32_t S_;
    const std::uint8_t* blocks_ = nullptr; ///< null where each is asked for
};

/// Elements of an array.
template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline unsigned char* put_elements_plainly(const PlainWriter& out, unsigned char* cursor,
                                                                  const Instance* x, std::uint32_t count) {
    constexpr const Field& f = R.fields[I];
    const void* storage = *field<R, I, void*>(x);
    if constexpr (f.is_of_record()) {
        const ElementBlocks<*f.record, mode> blocks(out.D, out.S, storage, count);
        for (std::size_t i = 0; i < count && cursor != nullptr; ++i) {
            const Instance* element = lifecycle::element_in<*f.record>(storage, i);
            cursor = put_record<*f.record, mode>(out, cursor, element, blocks.of(element, i));
        }
        return cursor;
    } else {
        if (std::int64_t{count} * f.foreign->length > out.room(cursor)) [[unlikely]]
            return nullptr;
        return cursor + put_run<*f.foreign>(out.by_calls(cursor), storage, count);
    }
}

/// A field whose length is not known beforehand, without its flag.
template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline unsigned char* put_open(const PlainWriter& out, unsigned char* cursor,
                                                      const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.kind == Kind::text) {
        const std::uint32_t length = present_length<R, I>(x);
        if (std::int64_t{length} > out.room(cursor)) [[unlikely]]
            return nullptr;
        if (length != 0) std::memcpy(cursor, *field<R, I, void*>(x), length);
        return cursor + length;
    } else if constexpr (f.kind == Kind::array) {
        return put_elements_plainly<R, I, mode>(out, cursor, x, element_count<R, I>(x));
    } else if constexpr (f.kind == Kind::list) {
        if (out.room(cursor) < 4) [[unlikely]]
            return nullptr;
        plain::swap_number<sizeof(std::uint32_t)>(cursor, &field<R, I, ListHead>(x)->count);
        cursor += sizeof(std::uint32_t);
        for (const Instance* element = first_in_list<R, I>(x); element != nullptr && cursor != nullptr;
             element = next_in_list<R, I>(x, element))
            cursor = put_plainly<*f.record, mode>(out, cursor, element);
        return cursor;
    } else if constexpr (f.kind == Kind::embedded) {
        return put_plainly<*f.record, mode>(out, cursor, field<R, I, Instance>(x));
    } else if constexpr (f.kind == Kind::run) {
        return cursor + put_run<*f.foreign>(out.by_calls(cursor), field<R, I>(x), f.capacity);
    } else {
        return cursor + Codec<*f.foreign>::marshal(out.D, out.S, cursor, field<R, I>(x), out.room(cursor), out.st);
    }
}

/// Whether there is room from a field on. The flag of an arm is only written where a byte is left after it.
template <const Record& R, std::size_t First, Mode mode, std::int32_t in_front = 0>
[[gnu::always_inline]] inline bool fits(std::int32_t room, std::int8_t variant) {
    constexpr bool has_arms = mode == Mode::tracked && R.is_union() && First < R.count;
    return has_fixed_room<R, First, mode, in_front + has_arms>(room, variant);
}

/// An arm, or nothing, and the flag.
template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline unsigned char* put_arm_plainly(const PlainWriter& out, unsigned char* cursor,
                                                             const Instance* x, const std::uint8_t* flags,
                                                             std::int8_t variant) {
    if (is_selected<R, I>(x)) {
        const Instance* arm = *field<R, I, Instance*>(x);
        if (arm == nullptr) return nullptr;
        cursor = put_plainly<*R.fields[I].record, mode>(out, cursor, arm);
        if (cursor == nullptr || !fits<R, I, mode>(out.room(cursor), variant)) [[unlikely]]
            return nullptr;
    }
    if constexpr (mode == Mode::tracked) *cursor++ = flags[catalogue::layout<R>.flag[I]];
    return cursor;
}

/// The flags behind a field. Returns null where they do not fit for certain.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline unsigned char* put_flags(const PlainWriter& out, unsigned char* cursor, const Instance* x,
                                                       const std::uint8_t* flags) {
    constexpr const Field& f = R.fields[I];
    std::uint32_t count = 0;
    if constexpr (f.kind == Kind::text) {
        if (present_length<R, I>(x) == 0) return cursor;
    } else if constexpr (f.has_element_flags()) {
        count = element_count<R, I>(x);
        if (count == 0) return cursor;
    }
    // The flag of a list is only written where a byte is left after it.
    if (!is_fixed(f) && out.room(cursor) < std::int64_t{count} + 2) [[unlikely]]
        return nullptr;
    *cursor++ = flags[catalogue::layout<R>.flag[I]];
    if constexpr (f.has_element_flags())
        cursor += put_element_flags(cursor, element_flags<R, I>(flags), count, out.room(cursor));
    return cursor;
}

template <const Record& R, std::size_t I, Mode mode>
[[gnu::always_inline]] inline unsigned char* put_field_plainly(const PlainWriter& out, unsigned char* cursor,
                                                               const Instance* x, const std::uint8_t* flags,
                                                               std::int8_t variant) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.kind == Kind::arm) {
        return put_arm_plainly<R, I, mode>(out, cursor, x, flags, variant);
    } else {
        if constexpr (is_fixed(f))
            cursor = put_fixed<R, I>(out, cursor, x);
        else
            cursor = put_open<R, I, mode>(out, cursor, x);
        constexpr bool may_give_up = f.is_own_enum() || !is_fixed(f);
        if (may_give_up && cursor == nullptr) return nullptr;
        if constexpr (f.kind == Kind::object && !is_fixed(f))
            if (*out.st != 0) return nullptr;
        if constexpr (mode == Mode::tracked && f.is_tracked()) {
            cursor = put_flags<R, I>(out, cursor, x, flags);
            if (!is_fixed(f) && cursor == nullptr) return nullptr;
        }
        if (!is_fixed(f) && !fits<R, I + 1, mode>(out.room(cursor), variant)) [[unlikely]]
            return nullptr;
        return cursor;
    }
}

template <const Record& R, Mode mode, std::size_t... I>
[[gnu::always_inline]] inline unsigned char* put_fields_plainly(const PlainWriter& out, unsigned char* cursor,
                                                                const Instance* x, const std::uint8_t* flags,
                                                                std::int8_t variant, std::index_sequence<I...>) {
    (void)(((R.fields[I].since != 0 && variant < R.fields[I].since) ||
            (cursor = put_field_plainly<R, I, mode>(out, cursor, x, flags, variant)) != nullptr) &&
           ...);
    return cursor;
}

template <const Record& R, Mode mode>
[[gnu::always_inline]] inline unsigned char* put_record(const PlainWriter& out, unsigned char* cursor,
                                                        const Instance* x, const std::uint8_t* flags) {
    const std::int8_t variant = std::min(x->variant, R.top());
    if (x->variant < 0 || x->variant > out.agreed || has_flag(x, ZUR_RA_DATA) ||
        !fits<R, 0, mode, frame_length>(out.room(cursor), variant)) [[unlikely]]
        return nullptr;
    unsigned char* const start = cursor;
    start[0] = static_cast<unsigned char>(variant);
    start[1] = mode == Mode::tracked ? ZUR_TRACKED : 0;
    cursor =
        put_fields_plainly<R, mode>(out, cursor + frame_length, x, flags, variant, std::make_index_sequence<R.count>{});
    if (cursor == nullptr) [[unlikely]]
        return nullptr;
    const auto jump = static_cast<std::uint32_t>(cursor - start) - jump_offset;
    plain::swap_number<sizeof jump>(start + jump_offset, &jump);
    return cursor;
}

template <const Record& R, Mode mode>
unsigned char* put_plainly(const PlainWriter& out, unsigned char* cursor, const Instance* x) {
    return put_record<R, mode>(out, cursor, x, mode == Mode::tracked ? flags_to_send<R>(out.D, out.S, x) : nullptr);
}

/// The writers of one record.
struct Writers {
    unsigned char* (*untracked)(const PlainWriter&, unsigned char*, const Instance*);
    unsigned char* (*tracked)(const PlainWriter&, unsigned char*, const Instance*);
    decltype(&marshal_worker<*catalogue::all_records[0]>) by_calls;
};
template <const Record& R>
inline constexpr Writers writers = {put_plainly<R, Mode::untracked>, put_plainly<R, Mode::tracked>, marshal_worker<R>};

/// Writes a record, in plain steps if they are enough.
[[gnu::noinline]] inline std::uint32_t marshal_plainly(Domain* D, std::uint32_t S, void* buffer, const Instance* x,
                                                       std::int32_t length, std::uint32_t* st, const Writers& type) {
    const Mode mode = mode_of(D);
    if (mode != Mode::closed && *st == 0 && x != nullptr && length > 0) [[likely]] {
        D->last_error = 0;
        auto* const start = static_cast<unsigned char*>(buffer);
        const PlainWriter out{D, S, st, start + length, plain::agreed(D)};
        const unsigned char* const end = (mode == Mode::untracked ? type.untracked : type.tracked)(out, start, x);
        if (end != nullptr) [[likely]]
            return static_cast<std::uint32_t>(end - start);
        *st = 0;
    }
    return type.by_calls(D, S, buffer, x, length, 1, st);
}

} // namespace epm::wire
