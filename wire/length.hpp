// The length that a caller gives the writer's buffer, an upper bound computed from the Instance alone. It uses the
// Instance's own variant, leaves out an ra block, and in tracked mode counts a flag for each character of a text.
#pragma once

#include "wire/enumeration.hpp"
#include "wire/list_field.hpp"

namespace epm::wire {

template <const Record& R>
std::uint32_t length(Domain* D, std::uint32_t S, const Instance* x);

/// A field without its state flags. The fields of a null Instance are empty.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline std::uint32_t length_of_field(Domain* D, std::uint32_t S, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum()) {
        return enum_wire_length;
    } else if constexpr (f.kind == Kind::embedded) {
        return length<*f.record>(D, S, x != nullptr ? field<R, I, Instance>(x) : nullptr);
    } else if constexpr (f.kind == Kind::text || (f.kind == Kind::array && !f.is_of_record())) {
        const void* storage = x != nullptr ? *field<R, I, void*>(x) : nullptr;
        return Codec<*f.foreign>::len(D, S, storage) * (x != nullptr ? present_length<R, I>(x) : 0);
    } else if constexpr (f.kind == Kind::array) {
        std::uint32_t total = 0;
        if (x == nullptr) return total;
        const void* storage = *field<R, I, void*>(x);
        const std::uint32_t count = element_count<R, I>(x);
        for (std::size_t i = 0; i < count; ++i)
            total += length<*f.record>(D, S, lifecycle::element_in<*f.record>(storage, i));
        return total;
    } else if constexpr (f.kind == Kind::list) {
        std::uint32_t total = u_int32_len(D, S, nullptr);
        if (x == nullptr) return total;
        for_each_list_element<R, I>(x, [&](const Instance* element) { total += length<*f.record>(D, S, element); });
        return total;
    } else if constexpr (f.kind == Kind::arm) {
        if (x == nullptr || !is_selected<R, I>(x)) return 0;
        const Instance* arm = *field<R, I, Instance*>(x);
        return arm != nullptr ? length<*f.record>(D, S, arm) : 0;
    } else if constexpr (f.kind == Kind::run) {
        return x != nullptr ? Codec<*f.foreign>::len(D, S, field<R, I>(x)) * f.capacity : 0;
    } else {
        const std::uint32_t one = Codec<*f.foreign>::len(D, S, x != nullptr ? readable<R, I>(x) : nullptr);
        return f.kind == Kind::characters ? one * f.capacity : one;
    }
}

/// The state flags counted for a field. They are not always the ones that are written.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline std::uint32_t length_of_flags(const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (!f.is_tracked())
        return 0;
    else if constexpr (f.companion != nullptr)
        return 1 + present_length<R, I>(x);
    else
        return 1u + f.capacity;
}

template <const Record& R, std::size_t... I>
[[gnu::always_inline]] inline std::uint32_t length_of_fields(Domain* D, std::uint32_t S, const Instance* x,
                                                             std::int8_t variant, std::index_sequence<I...>) {
    std::uint32_t total = 0;
    ((total += variant >= R.fields[I].since ? length_of_field<R, I>(D, S, x) : 0), ...);
    return total;
}

template <const Record& R, std::size_t... I>
[[gnu::always_inline]] inline std::uint32_t length_of_flags(const Instance* x, std::int8_t variant,
                                                            std::index_sequence<I...>) {
    return (0u + ... + (variant >= R.fields[I].since ? length_of_flags<R, I>(x) : 0));
}

template <const Record& R>
std::uint32_t length(Domain* D, std::uint32_t S, const Instance* x) {
    constexpr std::make_index_sequence<R.count> all;
    const std::int8_t variant = zur_get_instance_variant(x, 1, 0);
    const std::uint32_t plain = frame_length + length_of_fields<R>(D, S, x, variant, all);
    if (x == nullptr) return plain;
    if (!is_tracking(D, trace::site<R, trace::Operation::length, trace::Text::corrupted_handle>)) return plain;
    return plain + length_of_flags<R>(x, variant, all);
}

template <const Record& R>
std::uint32_t length_chained(Domain* D, const Instance* x) {
    return D->last_error != 0 ? 0 : length<R>(D, D->cr_set_id, x);
}

} // namespace epm::wire
