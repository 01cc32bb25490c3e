// The writer of records. A marshalled record is:
//
//   offset  size     content
//   0       1        variant byte, signed: the variant in which the body is written
//   1       1        flag byte: 0x08 state flags travel in the body, 0x20 an ra block follows
//   2       R        ra block, only with 0x20; the runtime's business
//   2+R     4        jump word: bytes from its own first byte to the last one of the record
//   6+R     jump-4   body: the fields of variant 0, then of variant 1 and so on; none in a negative variant
//
// Everything nested has the same form and is written by plain recursion.
#pragma once

#include "wire/arm_field.hpp"
#include "wire/array_field.hpp"
#include "wire/enumeration.hpp"
#include "wire/list_field.hpp"
#include "wire/plain_writer.hpp"
#include "wire/text_field.hpp"

namespace epm::wire {

/// Writes an ra block without data; the Bundle has none to add.
[[gnu::cold, gnu::noinline]] inline std::uint32_t put_ra_block(Domain* D, std::uint32_t S, void* destination,
                                                               std::int32_t room, std::uint32_t* st) {
    std::uint64_t word = 0;
    std::uint8_t byte = 0;
    return _zur_instance_ra_data_marshal(D, S, destination, &word, &byte, room, st);
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void put_field(Writer& out, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    constexpr std::size_t flag = catalogue::layout<R>.flag[I];
    if constexpr (f.kind == Kind::text) {
        const std::uint32_t length = present_length<R, I>(x);
        if (length == 0) return;
        put_text(out, *field<R, I, void*>(x), length);
        out.put_flag(flag);
    } else if constexpr (f.kind == Kind::array) {
        put_array<R, I>(out, x);
    } else if constexpr (f.kind == Kind::list) {
        put_list<R, I>(out, x);
    } else if constexpr (f.kind == Kind::arm) {
        put_arm<R, I>(out, x);
    } else if constexpr (f.kind == Kind::run) {
        out.advance(put_run<*f.foreign>(out, field<R, I>(x), f.capacity));
        put_array_flags<R, I>(out, f.capacity);
    } else {
        if constexpr (f.kind == Kind::characters)
            out.advance(put_run<*f.foreign>(out, field<R, I>(x), f.capacity));
        else if constexpr (f.kind == Kind::embedded)
            out.advance(
                marshal_worker<*f.record>(out.D, out.S, out.cursor, field<R, I, Instance>(x), out.room, 1, out.st));
        else if constexpr (f.is_own_enum())
            out.advance(marshal<*f.enumeration>(out.D, out.S, out.cursor, field<R, I, Instance>(x), out.room, out.st));
        else
            out.advance(Codec<*f.foreign>::marshal(out.D, out.S, out.cursor, readable<R, I>(x), out.room, out.st));
        if constexpr (f.is_tracked()) out.put_flag(flag);
    }
}

template <const Record& R, std::size_t... I>
[[gnu::always_inline]] inline void put_fields(Writer& out, const Instance* x, std::int8_t variant,
                                              std::index_sequence<I...>) {
    ((R.fields[I].since == 0 || variant >= R.fields[I].since ? put_field<R, I>(out, x) : void()), ...);
}

/// With `check` the Domain's variant caps the Instance's. Writing goes on after an error, so that the jump word always
/// says where the record ends.
template <const Record& R>
std::uint32_t marshal_worker(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                             int check, std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    if (length < 1) return refuse_buffer(D, st);
    const std::int8_t own_variant = zur_get_instance_variant(x, 1, 0);
    const zur_type_info* type = x != nullptr ? zur_get_manifested_type_info(x) : nullptr;
    if (x != nullptr && type == nullptr) [[unlikely]]
        type = type_info<R>(); // an element that was not set up because one before it could not be read
    const std::int8_t variant = variant_to_write(D, own_variant, type, check != 0, R.top(), st);
    Writer out{.D = D, .S = S, .cursor = static_cast<unsigned char*>(buffer), .room = length, .st = st};
    out.advance(_zur_instance_variant_marshal(D, S, out.cursor, &variant, out.room, st));
    const std::uint8_t instance_flags = zur_get_instance_obj_flag(x, 1, 0);
    auto flags = static_cast<std::uint8_t>(instance_flags & ZUR_RA_DATA);
    if (is_tracking(D, trace::site<R, trace::Operation::marshal, trace::Text::corrupted_handle>)) {
        flags |= ZUR_TRACKED;
        out.flags = flags_to_send<R>(D, S, x, instance_flags);
    }
    out.advance(_zur_instance_obj_flag_marshal(D, S, out.cursor, &flags, out.room, st));
    if ((flags & ZUR_RA_DATA) != 0) [[unlikely]]
        out.advance(put_ra_block(D, S, out.cursor, out.room, st));
    unsigned char* const base = out.cursor;
    // If the placeholder does not fit, the final jump word must not be written either.
    const std::int32_t base_room = std::min(out.room, std::int32_t{sizeof(std::uint32_t)});
    std::uint32_t jump = 0;
    out.advance(_zur_variant_jump_marshal(D, S, base, &jump, out.room, st));
    if (variant >= 0) put_fields<R>(out, x, variant, std::make_index_sequence<R.count>{});
    jump = static_cast<std::uint32_t>(out.cursor - base);
    _zur_variant_jump_marshal(D, S, base, &jump, base_room, st);
    return static_cast<std::uint32_t>(length - out.room);
}

template <const Record& R>
std::uint32_t marshal(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                      std::uint32_t* st) {
    if (plain::is_idle(D)) return marshal_plainly(D, S, buffer, x, length, st, writers<R>);
    return marshal_worker<R>(D, S, buffer, x, length, 1, st);
}

} // namespace epm::wire
