// Enumerations on the wire, in order and in a hash. An enumeration is 5 bytes:
//
//   offset  size  content
//   0       1     variant byte, signed
//   1       4     enumerator's number, u_int32; any number travels
//
// There is neither a flag byte nor a jump word.
#pragma once

#include "lifecycle/create.hpp"
#include "wire/cursor.hpp"

namespace epm::wire {

inline constexpr std::uint32_t enum_wire_length = 5;

/// The variant to write: the Instance's, capped by the Domain's if `is_bound`, and by the type's highest.
inline std::int8_t variant_to_write(Domain* D, std::int8_t variant, const zur_type_info* type, bool is_bound,
                                    std::int8_t top, std::uint32_t* st) {
    const auto agreed = static_cast<std::int8_t>(zur_domain_lookup_variant(D, &D->variant_context, type, st));
    if (is_bound && variant > agreed) [[unlikely]] {
        fail_variant(D, st);
        variant = agreed;
    }
    return std::min(variant, top);
}

inline const EnumInstance* enumeration(const Instance* x) {
    return reinterpret_cast<const EnumInstance*>(x);
}

inline std::uint32_t put_enumerator(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                                    std::int8_t top, std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    if (length < 1) return refuse_buffer(D, st);
    const std::int8_t variant = variant_to_write(D, zur_get_instance_variant(x, 0, 1), x->type_info, true, top, st);
    Writer out{.D = D, .S = S, .cursor = static_cast<unsigned char*>(buffer), .room = length, .st = st};
    out.advance(_zur_instance_variant_marshal(D, S, out.cursor, &variant, out.room, st));
    const std::uint32_t value = enumeration(x)->value;
    out.advance(u_int32_marshal(D, S, out.cursor, &value, out.room, st));
    return static_cast<std::uint32_t>(length - out.room);
}

inline std::uint32_t take_enumerator(Domain* D, std::uint32_t S, const void* buffer, Instance* x, std::int32_t length,
                                     std::uint32_t reuse, const zur_type_info* type, std::int8_t top,
                                     std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    if (length < 1) return refuse_buffer(D, st);
    Reader in{
        .D = D, .S = S, .reuse = reuse, .cursor = static_cast<const unsigned char*>(buffer), .room = length, .st = st};
    std::int8_t variant = 0;
    in.advance(_zur_instance_variant_unmarshal(D, S, in.cursor, &variant, in.room, st));
    x->variant = std::min(variant, static_cast<std::int8_t>(known_layout(x, top)));
    x->type_info = lifecycle::stored_type(D, S, type);
    std::uint32_t* value = &reinterpret_cast<EnumInstance*>(x)->value;
    in.advance(u_int32_unmarshal(D, S, in.cursor, value, in.room, reuse, st));
    store(D, S, value, *value, x);
    return static_cast<std::uint32_t>(length - in.room);
}

template <const Enum& E>
std::uint32_t marshal(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                      std::uint32_t* st) {
    return put_enumerator(D, S, buffer, x, length, E.top(), st);
}

template <const Enum& E>
std::uint32_t unmarshal(Domain* D, std::uint32_t S, const void* buffer, Instance* x, std::int32_t length,
                        std::uint32_t reuse, std::uint32_t* st) {
    return take_enumerator(D, S, buffer, x, length, reuse, type_info<E>(), E.top(), st);
}

template <const Enum& E>
constexpr std::uint32_t length() {
    return enum_wire_length;
}

template <const Enum& E>
std::uint32_t length_chained(const Domain* D) {
    return D->last_error != 0 ? 0 : enum_wire_length;
}

/// Whether the Domain's variant has an enumerator. All comparisons are signed, so a negative number passes.
template <const Enum& E>
std::uint32_t is_valid_chained(Domain* D, std::int32_t value) {
    const auto agreed =
        static_cast<std::int8_t>(zur_domain_lookup_variant(D, &D->variant_context, type_info<E>(), &D->last_error));
    if (value < static_cast<std::int32_t>(E.accepted(0))) return 1;
    return E.top() > 0 && agreed > 0 && value < static_cast<std::int32_t>(E.accepted(E.top()));
}

/// Orders two Instances of which at least one is null; returns 2 when neither is.
inline constexpr std::int32_t both_there = 2;
constexpr std::int32_t compare_null(const Instance* a, const Instance* b) {
    if (a == nullptr) return b == nullptr ? 0 : -1;
    return b == nullptr ? 1 : both_there;
}

/// The plain difference of two enumerators, not only its sign.
inline std::int32_t compare_enumerators(const EnumInstance* a, const EnumInstance* b) {
    return static_cast<std::int32_t>(a->value - b->value);
}

inline std::uint32_t hash_enumerator(const EnumInstance* x, std::uint32_t seed) {
    return SuperFastHash(&x->value, sizeof x->value, seed);
}

template <const Enum& E>
std::int32_t compare(const Instance* a, const Instance* b) {
    const std::int32_t order = compare_null(a, b);
    return order == both_there ? compare_enumerators(enumeration(a), enumeration(b)) : order;
}

template <const Enum& E>
std::uint32_t hash(const Instance* x, std::uint32_t seed) {
    return x == nullptr ? seed : hash_enumerator(enumeration(x), seed);
}

} // namespace epm::wire
