// Compares two records field by field, in declaration order. It only looks at memory, never at header or Domain, and
// covers the fields of all variants.
#pragma once

#include "wire/enumeration.hpp"
#include "wire/list_field.hpp"

namespace epm::wire {

template <const Record& R>
std::int32_t compare(const Instance* a, const Instance* b);

template <const Record& R>
std::int32_t compare_fields(const Instance* a, const Instance* b);

template <class T>
constexpr std::int32_t order_of(T a, T b) {
    if (a == b) [[likely]]
        return 0;
    return a < b ? -1 : 1;
}

/// How a primitive is compared: `char` as a signed number.
template <const Foreign& F>
using Ordered =
    std::conditional_t<std::is_same_v<typename Codec<F>::Value, char>, std::int8_t, typename Codec<F>::Value>;

/// Compares bytes of memory. The pointers may be null when there are no bytes.
inline std::int32_t compare_bytes(const void* a, const void* b, std::size_t length) {
    return length == 0 ? 0 : std::memcmp(a, b, length);
}

/// Compares the elements of two arrays of records up to the shorter one's end.
template <const Record& E>
[[gnu::noinline]] std::int32_t compare_elements(const void* a, const void* b, std::uint32_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::int32_t order = compare_fields<E>(lifecycle::element_in<E>(a, i), lifecycle::element_in<E>(b, i));
        if (order != 0) return order;
    }
    return 0;
}

template <const Record& R, std::size_t I>
[[gnu::noinline]] std::int32_t compare_lists(const Instance* a, const Instance* b) {
    std::int32_t order = order_of(field<R, I, ListHead>(a)->count, field<R, I, ListHead>(b)->count);
    const Instance* of_a = first_in_list<R, I>(a);
    const Instance* of_b = first_in_list<R, I>(b);
    while (order == 0 && of_a != nullptr && of_b != nullptr) {
        order = compare<*R.fields[I].record>(of_a, of_b);
        of_a = next_in_list<R, I>(a, of_a);
        of_b = next_in_list<R, I>(b, of_b);
    }
    return order;
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline std::int32_t compare_field(const Instance* a, const Instance* b) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum()) {
        return compare_enumerators(field<R, I, EnumInstance>(a), field<R, I, EnumInstance>(b));
    } else if constexpr (f.kind == Kind::embedded) {
        return compare<*f.record>(field<R, I, Instance>(a), field<R, I, Instance>(b));
    } else if constexpr (f.kind == Kind::characters || f.kind == Kind::run) {
        return std::memcmp(field<R, I>(a), field<R, I>(b), std::size_t{f.capacity} * f.foreign->length);
    } else if constexpr (f.kind == Kind::text) {
        const std::uint32_t length = std::min(present_length<R, I>(a), present_length<R, I>(b));
        return compare_bytes(*field<R, I, void*>(a), *field<R, I, void*>(b), length);
    } else if constexpr (f.kind == Kind::array) {
        const std::uint32_t count = std::min(element_count<R, I>(a), element_count<R, I>(b));
        const void* of_a = *field<R, I, void*>(a);
        const void* of_b = *field<R, I, void*>(b);
        if constexpr (f.is_of_record())
            return compare_elements<*f.record>(of_a, of_b, count);
        else
            return compare_bytes(of_a, of_b, std::size_t{count} * f.foreign->length);
    } else if constexpr (f.kind == Kind::list) {
        return compare_lists<R, I>(a, b);
    } else if constexpr (f.kind == Kind::arm) {
        if (!is_selected<R, I>(a)) return 0;
        return compare<*f.record>(*field<R, I, Instance*>(a), *field<R, I, Instance*>(b));
    } else if constexpr (f.foreign->shape == Foreign::Shape::primitive) {
        using Number = Ordered<*f.foreign>;
        return order_of(*static_cast<const Number*>(readable<R, I>(a)), *static_cast<const Number*>(readable<R, I>(b)));
    } else {
        return Codec<*f.foreign>::compare(field<R, I>(a), field<R, I>(b));
    }
}

/// Returns the first result that is not 0, unchanged. Stops after the arm that a union's tag selects.
template <const Record& R, std::size_t... I>
[[gnu::always_inline]] inline std::int32_t compare_fields(const Instance* a, const Instance* b,
                                                          std::index_sequence<I...>) {
    std::int32_t order = 0;
    (void)(((order = compare_field<R, I>(a, b)) == 0 && (R.fields[I].kind != Kind::arm || !is_selected<R, I>(a))) &&
           ...);
    return order;
}

template <const Record& R>
std::int32_t compare_fields(const Instance* a, const Instance* b) {
    return compare_fields<R>(a, b, std::make_index_sequence<R.count>{});
}

template <const Record& R>
std::int32_t compare(const Instance* a, const Instance* b) {
    const std::int32_t order = compare_null(a, b);
    return order == both_there ? compare_fields<R>(a, b) : order;
}

} // namespace epm::wire
