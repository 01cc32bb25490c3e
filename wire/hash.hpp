// The chained hash of a record's field values in declaration order. It includes a length twice, in its own place and
// again before what it measures, and a union's tag again before each arm. Stored hashes depend on that.
#pragma once

#include "wire/enumeration.hpp"
#include "wire/list_field.hpp"

namespace epm::wire {

template <const Record& R>
std::uint32_t hash(const Instance* x, std::uint32_t seed);

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline std::uint32_t hash_field(const Instance* x, std::uint32_t h) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum()) {
        return hash_enumerator(field<R, I, EnumInstance>(x), h);
    } else if constexpr (f.kind == Kind::embedded) {
        return hash<*f.record>(field<R, I, Instance>(x), h);
    } else if constexpr (f.kind == Kind::characters || f.kind == Kind::run) {
        return SuperFastHash(field<R, I>(x), std::uint32_t{f.capacity} * f.foreign->length, h);
    } else if constexpr (f.kind == Kind::text || f.kind == Kind::array) {
        constexpr std::size_t c = catalogue::companion<R, I>;
        h = Codec<*R.fields[c].foreign>::hash(readable<R, c>(x), h);
        const void* storage = *field<R, I, void*>(x);
        if constexpr (f.kind == Kind::text) {
            return SuperFastHash(storage, present_length<R, I>(x), h);
        } else if constexpr (!f.is_of_record()) {
            return SuperFastHash(storage, element_count<R, I>(x) * f.foreign->length, h);
        } else {
            const std::uint32_t count = element_count<R, I>(x);
            for (std::size_t i = 0; i < count; ++i)
                h = hash<*f.record>(lifecycle::element_in<*f.record>(storage, i), h);
            return h;
        }
    } else if constexpr (f.kind == Kind::list) {
        const std::uint32_t& count = field<R, I, ListHead>(x)->count;
        h = SuperFastHash(&count, sizeof count, h);
        for_each_list_element<R, I>(x, [&](const Instance* element) { h = hash<*f.record>(element, h); });
        return h;
    } else if constexpr (f.kind == Kind::arm) {
        h = hash_enumerator(field<R, 0, EnumInstance>(x), h);
        return hash<*f.record>(*field<R, I, Instance*>(x), h);
    } else {
        return Codec<*f.foreign>::hash(readable<R, I>(x), h);
    }
}

template <const Record& R, std::size_t... I>
[[gnu::always_inline]] inline std::uint32_t hash_fields(const Instance* x, std::uint32_t h, std::index_sequence<I...>) {
    ((h = hash_field<R, I>(x, h)), ...);
    return h;
}

template <const Record& R>
std::uint32_t hash(const Instance* x, std::uint32_t seed) {
    return x == nullptr ? seed : hash_fields<R>(x, seed, std::make_index_sequence<R.count>{});
}

} // namespace epm::wire
