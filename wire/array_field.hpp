// Variable arrays on the wire. The count n is where the length field is. Nothing follows when it is 0:
//
//   size  content
//         n elements: each as its codec writes it, or a whole marshalled record
//   0, 1  whole flag
//   0, n  element flags, as many as there is room for
//
// The element flags of a fixed array follow its whole flag in the same way.
#pragma once

#include "lifecycle/destroy.hpp"
#include "wire/run_field.hpp"
#include "wire/storage.hpp"

namespace epm::wire {

/// Writes the element flags that fit, or zeros for an Instance without flags. Returns the bytes written.
[[gnu::noinline]] inline std::uint32_t put_element_flags(unsigned char* destination, const void* flags,
                                                         std::uint32_t count, std::int32_t room) {
    const auto used = static_cast<std::uint32_t>(std::clamp(std::int64_t{room}, std::int64_t{0}, std::int64_t{count}));
    if (flags != nullptr)
        std::memcpy(destination, flags, used);
    else
        std::memset(destination, 0, used);
    return used;
}

/// The whole flag and the element flags.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void put_array_flags(Writer& out, std::uint32_t count) {
    if (out.flags == nullptr) return;
    out.put_flag(catalogue::layout<R>.flag[I]);
    const std::uint8_t* flags = out.flags + catalogue::layout<R>.nested[I];
    if constexpr (R.fields[I].kind == Kind::array) flags = element_flags_at(flags);
    out.advance(put_element_flags(out.cursor, flags, count, out.room));
}

/// Elements that are records, each a whole marshalled record. Their writer and reader have no stack frame of their own
/// here, because there can be thousands of elements.
template <const Record& E>
[[gnu::noinline, gnu::flatten, gnu::nonnull(4)]] std::uint32_t
put_elements(Domain* D, std::uint32_t S, unsigned char* destination, const void* storage, std::uint32_t count,
             std::int32_t room, std::uint32_t* st) {
    Writer out{.D = D, .S = S, .cursor = destination, .room = room, .st = st};
    for (std::size_t i = 0; i < count && *st == 0; ++i) {
        const auto* element = at<Instance>(storage, i * catalogue::size<E>);
        out.advance(marshal_worker<E>(D, S, out.cursor, element, out.room, 1, st));
    }
    return static_cast<std::uint32_t>(out.cursor - destination);
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void put_array(Writer& out, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    const std::uint32_t count = element_count<R, I>(x);
    if (count == 0) return;
    const void* storage = *field<R, I, void*>(x);
    if constexpr (f.is_of_record())
        out.advance(put_elements<*f.record>(out.D, out.S, out.cursor, storage, count, out.room, out.st));
    else
        out.advance(put_run<*f.foreign>(out.D, out.S, out.cursor, storage, count, out.room, out.st));
    put_array_flags<R, I>(out, count);
}

/// Reads the whole flag and the element flags, into the run of a variable array or the bytes inside the block.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void take_array_flags(Reader& in, std::uint32_t count) {
    if (in.state_flags == StateFlags::absent) [[likely]]
        return;
    in.take_flag<whole_flag>(catalogue::layout<R>.flag[I]);
    const std::uint32_t used = std::min(in.rest(), count);
    if (in.state_flags == StateFlags::stored) {
        std::uint8_t* flags = in.block + catalogue::layout<R>.nested[I];
        if constexpr (R.fields[I].kind == Kind::array) flags = element_flags_at(flags);
        std::memcpy(flags, in.cursor, used);
    }
    in.advance(used);
}

/// Gives the array a zeroed run of element flags. Returns false when the Domain refuses memory.
[[gnu::noinline]] inline bool renew_element_flags(Domain* D, std::uint32_t S, void** run, std::uint32_t count,
                                                  std::uint32_t* st) {
    if (element_flags_at(run) != nullptr) release(D, S, *run);
    *run = allocate(D, S, count);
    if (*run == nullptr) {
        fail(D, st, ZUR_NO_MEMORY);
        return false;
    }
    std::memset(*run, 0, count);
    return true;
}

/// Makes the element flags match the new count. Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
bool prepare_element_flags(const Reader& in, Instance* x, std::uint32_t count, std::uint32_t former) {
    constexpr std::size_t place = catalogue::layout<R>.nested[I];
    if (in.state_flags == StateFlags::stored) {
        auto** run = at<void*>(in.block, place);
        const bool kept = in.keeps(count, former) && element_flags_at(run) != nullptr;
        return kept || renew_element_flags(in.D, in.S, run, count, in.st);
    }
    // The message brings no flags. With more elements than before the run would be too short, so it is released.
    if (std::uint8_t* block = count > former ? known_flag_block<R>(in.D, in.S, x) : nullptr; block != nullptr)
        if (auto** run = at<void*>(block, place); element_flags_at(run) != nullptr)
            lifecycle::release_buffer(in.D, in.S, run);
    return true;
}

/// Whether an array may get more elements. In a Domain that does not track, a run of element flags may be out of reach,
/// and it would be too short for them: the array is left as it is, with the error.
template <const Record& R, std::size_t I>
bool may_grow(const Reader& in, Instance* x, std::uint32_t count, std::uint32_t former) {
    if (in.places_blocks || count <= former || reaches_element_flags<R>(in.D, in.S, x)) return true;
    using Length = typename Codec<*R.fields[catalogue::companion<R, I>].foreign>::Value;
    *field<R, catalogue::companion<R, I>, Length>(x) = former;
    fail(in.D, in.st, ZUR_BAD_ARGUMENT);
    return false;
}

/// Sets up and reads elements that are records, in zeroed storage. In tracked mode their blocks lie behind all of them.
/// Stops at an element that cannot be read and does not set up the rest. Returns the bytes passed.
template <const Record& E>
[[gnu::noinline, gnu::flatten]] std::uint32_t take_elements(Reader in, void* storage, std::uint32_t count) {
    constexpr std::size_t size = catalogue::size<E>;
    const std::int32_t room = in.room;
    for (std::size_t i = 0; i < count && *in.st == 0; ++i) {
        auto* element = at<Instance>(storage, i * size);
        void* block = nullptr;
        if (in.places_blocks) {
            const std::size_t distance = (count - i) * size + i * catalogue::block_length<E>;
            block = at(element, distance);
            zurlib_update_sttr_offset(in.D, in.S, element, static_cast<std::uint32_t>(distance));
        }
        lifecycle::initialize<E>(in.D, in.S, element, type_info<E>(), 1, 0, ZUR_NESTED, block, in.st);
        in.pass(unmarshal<E>(in.D, in.S, in.cursor, element, in.room, in.reuse, in.st));
    }
    return static_cast<std::uint32_t>(std::int64_t{room} - in.room);
}

/// Whether the array's elements have room for state flags, if the Domain tracks. It is enough to look at the last
/// element: it was set up when the storage got its size.
template <const Record& E>
bool has_blocks_if_needed(const Reader& in, const void* storage, std::uint32_t count) {
    return !in.places_blocks || has_flag(at<Instance>(storage, (count - 1) * catalogue::size<E>), ZUR_TRACKED);
}

/// Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline bool take_array_of_records(Reader& in, Instance* x, std::uint32_t former) {
    constexpr const Record& element = *R.fields[I].record;
    auto** storage = field<R, I, void*>(x);
    const std::uint32_t count = stored_length<R, I>(x);
    if (*storage == nullptr) former = 0; // the length may count storage that was refused
    if (!may_grow<R, I>(in, x, count, former)) return false;
    if (*storage != nullptr && (in.reuse != 0 || count == 0))
        lifecycle::destroy_elements<element>(in.D, in.S, *storage, former);
    if (count == 0) {
        drop(in.D, in.S, storage, x);
        return true;
    }
    const bool kept =
        in.keeps(count, former) && *storage != nullptr && has_blocks_if_needed<element>(in, *storage, count);
    const std::size_t size = provide(
        in.D, in.S, storage, kept, count, [](const Domain* D) { return lifecycle::size_of<element>(D); }, x, in.st);
    if (size == 0) return false;
    std::memset(*storage, 0, size);
    // The distance from an element to its block has 32 bits, so storage too large for that is released.
    if (in.places_blocks && size > std::numeric_limits<std::uint32_t>::max()) [[unlikely]] {
        drop(in.D, in.S, storage, x);
        fail(in.D, in.st, ZUR_NO_MEMORY);
        return false;
    }
    if (!prepare_element_flags<R, I>(in, x, count, former)) return false;
    in.pass(take_elements<element>(in, *storage, count));
    take_array_flags<R, I>(in, count);
    return true;
}

/// Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline bool take_array_of_values(Reader& in, Instance* x, std::uint32_t former) {
    constexpr const Field& f = R.fields[I];
    auto** storage = field<R, I, void*>(x);
    const std::uint32_t count = stored_length<R, I>(x);
    if (*storage == nullptr) former = 0; // the length may count storage that was refused
    if (!may_grow<R, I>(in, x, count, former)) return false;
    if (count == 0) {
        drop(in.D, in.S, storage, x);
        return true;
    }
    const bool kept = in.keeps(count, former) && *storage != nullptr;
    const std::size_t size = provide(in.D, in.S, storage, kept, count, Codec<*f.foreign>::size_of, x, in.st);
    if (size == 0) return false;
    if (!prepare_element_flags<R, I>(in, x, count, former)) {
        std::memset(*storage, 0, size);
        return false;
    }
    const std::uint32_t used = take_run<*f.foreign>(in.D, in.S, in.cursor, *storage, count, in.room, in.reuse, in.st);
    in.advance(used);
    // A primitive is as wide on the wire as in memory, so only what was not read must be zeroed.
    std::memset(at(*storage, used), 0, size - used);
    take_array_flags<R, I>(in, count);
    return true;
}

} // namespace epm::wire
