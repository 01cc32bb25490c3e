// Runs of a primitive: fixed arrays, fixed characters, and the elements of arrays of primitives. On the wire the
// elements follow each other, each as its codec writes it. A runtime may offer a codec for whole runs; bytes, status
// and partial result are the same either way.
#pragma once

#include "wire/cursor.hpp"

namespace epm::wire {

template <const Foreign& F>
concept HasRuns = requires {
    Codec<F>::marshal_run;
    Codec<F>::unmarshal_run;
};

/// Returns the bytes written. Stops at the first element that does not fit.
template <const Foreign& F>
[[gnu::noinline]] std::uint32_t put_run(Domain* D, std::uint32_t S, unsigned char* destination, const void* first,
                                        std::uint32_t count, std::int32_t room, std::uint32_t* st) {
    using Type = Codec<F>;
    if (*st != 0) return 0;
    if constexpr (HasRuns<F>)
        if (Type::marshal_run != nullptr)
            return Type::marshal_run(D, S, destination, static_cast<const typename Type::Value*>(first), count, room,
                                     st);
    Writer out{.D = D, .S = S, .cursor = destination, .room = room, .st = st};
    for (std::size_t i = 0; i < count && *st == 0; ++i)
        out.advance(Type::marshal(D, S, out.cursor, at(first, i * F.length), out.room, st));
    return static_cast<std::uint32_t>(out.cursor - destination);
}

/// Returns the bytes read. Stops at the first element that cannot be read; the rest keep their content.
template <const Foreign& F>
[[gnu::noinline]] std::uint32_t take_run(Domain* D, std::uint32_t S, const unsigned char* source, void* first,
                                         std::uint32_t count, std::int32_t room, std::uint32_t reuse,
                                         std::uint32_t* st) {
    using Type = Codec<F>;
    if (*st != 0) return 0;
    if constexpr (HasRuns<F>)
        if (Type::unmarshal_run != nullptr)
            return Type::unmarshal_run(D, S, source, static_cast<typename Type::Value*>(first), count, room, st);
    Reader in{.D = D, .S = S, .reuse = reuse, .cursor = source, .room = room, .st = st};
    for (std::size_t i = 0; i < count && *st == 0; ++i)
        in.advance(Type::unmarshal(D, S, in.cursor, at(first, i * F.length), in.room, reuse, st));
    return static_cast<std::uint32_t>(in.cursor - source);
}

} // namespace epm::wire
