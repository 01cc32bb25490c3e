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
[[gnu::noinline]] std::uint32_t put_run(Writer out, const void* first, std::uint32_t count) {
    using Value = typename Codec<F>::Value;
    if (*out.st != 0) return 0;
    if constexpr (HasRuns<F>)
        if (Codec<F>::marshal_run != nullptr)
            return Codec<F>::marshal_run(out.D, out.S, out.cursor, static_cast<const Value*>(first), count, out.room,
                                         out.st);
    const unsigned char* const start = out.cursor;
    for (std::size_t i = 0; i < count && *out.st == 0; ++i)
        out.advance(Codec<F>::marshal(out.D, out.S, out.cursor, at(first, i * F.length), out.room, out.st));
    return static_cast<std::uint32_t>(out.cursor - start);
}

/// Returns the bytes read. Stops at the first element that cannot be read; the rest keep their content.
template <const Foreign& F>
[[gnu::noinline]] std::uint32_t take_run(Reader in, void* first, std::uint32_t count) {
    using Value = typename Codec<F>::Value;
    if (*in.st != 0) return 0;
    if constexpr (HasRuns<F>)
        if (Codec<F>::unmarshal_run != nullptr)
            return Codec<F>::unmarshal_run(in.D, in.S, in.cursor, static_cast<Value*>(first), count, in.room, in.st);
    const unsigned char* const start = in.cursor;
    for (std::size_t i = 0; i < count && *in.st == 0; ++i)
        in.advance(Codec<F>::unmarshal(in.D, in.S, in.cursor, at(first, i * F.length), in.room, in.reuse, in.st));
    return static_cast<std::uint32_t>(in.cursor - start);
}

} // namespace epm::wire
