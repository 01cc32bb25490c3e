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
#include "lifecycle/element_buffer.hpp"
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
    out.advance(put_element_flags(out.cursor, element_flags<R, I>(out.flags), count, out.room));
}

/// Elements that are records, each a whole marshalled record. Their writer and reader have no stack frame of their own
/// here, because there can be thousands of elements.
template <const Record& E>
[[gnu::noinline, gnu::flatten, gnu::nonnull(2)]] std::uint32_t put_elements(Writer out, const void* storage,
                                                                            std::uint32_t count) {
    const unsigned char* const start = out.cursor;
    for (std::size_t i = 0; i < count && *out.st == 0; ++i)
        out.advance(
            marshal_worker<E>(out.D, out.S, out.cursor, lifecycle::element_in<E>(storage, i), out.room, 1, out.st));
    return static_cast<std::uint32_t>(out.cursor - start);
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void put_array(Writer& out, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    const std::uint32_t count = element_count<R, I>(x);
    if (count == 0) return;
    const void* storage = *field<R, I, void*>(x);
    if constexpr (f.is_of_record())
        out.advance(put_elements<*f.record>(out, storage, count));
    else
        out.advance(put_run<*f.foreign>(out, storage, count));
    put_array_flags<R, I>(out, count);
}

/// Reads the whole flag and the element flags, into the run of a variable array or the bytes inside the block.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void take_array_flags(Reader& in, std::uint32_t count) {
    if (in.state_flags == StateFlags::absent) [[likely]]
        return;
    in.take_due_flag(catalogue::layout<R>.flag[I], 1);
    const std::uint32_t used = std::min(in.rest(), count);
    if (in.state_flags == StateFlags::stored) std::memcpy(element_flags<R, I>(in.block), in.cursor, used);
    in.advance(used);
}

/// Makes the element flags match the new count. Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
bool prepare_element_flags(const Reader& in, Instance* x, std::uint32_t count, std::uint32_t former) {
    constexpr std::size_t offset = catalogue::layout<R>.nested[I];
    if (in.state_flags == StateFlags::stored) {
        auto** member = at<void*>(in.block, offset);
        std::uint8_t* flags = element_flags_at(member);
        if (flags != nullptr && in.keeps(count, former)) return true;
        if (flags != nullptr) release(in.D, in.S, flags);
        return allocate_element_flags(in.D, in.S, member, count, in.st);
    }
    // The message brings no flags. With more elements than before the run would be too short, so it is released.
    if (std::uint8_t* block = count > former ? known_flag_block<R>(in.D, in.S, x) : nullptr; block != nullptr)
        if (auto** member = at<void*>(block, offset); element_flags_at(member) != nullptr)
            lifecycle::release_buffer(in.D, in.S, member);
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
    const lifecycle::Elements<E> elements{storage, count};
    const std::int32_t room = in.room;
    for (std::size_t i = 0; i < count && *in.st == 0; ++i) {
        elements.initialize(in.D, in.S, i, in.places_blocks, in.st);
        in.pass(unmarshal_worker<E>(in.D, in.S, in.cursor, elements[i], in.room, in.reuse, in.st));
    }
    return static_cast<std::uint32_t>(std::int64_t{room} - in.room);
}

/// Whether the array's elements have room for state flags, if the Domain tracks. It is enough to look at the last
/// element: it was set up when the storage got its size.
template <const Record& E>
bool has_blocks_if_needed(const Reader& in, const void* storage, std::uint32_t count) {
    return !in.places_blocks || lifecycle::Elements<E>{const_cast<void*>(storage), count}.has_blocks();
}

/// Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline bool take_array_of_records(Reader& in, Instance* x, std::uint32_t former) {
    constexpr const Record& element = *R.fields[I].record;
    const Storage storage{in.D, in.S, field<R, I, void*>(x), x, in.st};
    void*& elements = *storage.pointer;
    const std::uint32_t count = stored_length<R, I>(x);
    if (elements == nullptr) former = 0; // the length may count storage that was refused
    if (!may_grow<R, I>(in, x, count, former)) return false;
    if (elements != nullptr && (in.reuse != 0 || count == 0))
        lifecycle::destroy_elements<element>(in.D, in.S, elements, former);
    if (count == 0) {
        storage.drop();
        return true;
    }
    const bool kept =
        in.keeps(count, former) && elements != nullptr && has_blocks_if_needed<element>(in, elements, count);
    const std::size_t size =
        storage.provide(kept, count, [](const Domain* D) { return lifecycle::size_of<element>(D); });
    if (size == 0) return false;
    std::memset(elements, 0, size);
    // The distance from an element to its block has 32 bits, so storage too large for that is released.
    if (in.places_blocks && size > std::numeric_limits<std::uint32_t>::max()) [[unlikely]] {
        storage.drop();
        fail(in.D, in.st, ZUR_NO_MEMORY);
        return false;
    }
    if (!prepare_element_flags<R, I>(in, x, count, former)) return false;
    in.pass(take_elements<element>(in, elements, count));
    take_array_flags<R, I>(in, count);
    return true;
}

/// Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline bool take_array_of_values(Reader& in, Instance* x, std::uint32_t former) {
    constexpr const Field& f = R.fields[I];
    const Storage storage{in.D, in.S, field<R, I, void*>(x), x, in.st};
    void*& elements = *storage.pointer;
    const std::uint32_t count = stored_length<R, I>(x);
    if (elements == nullptr) former = 0; // the length may count storage that was refused
    if (!may_grow<R, I>(in, x, count, former)) return false;
    if (count == 0) {
        storage.drop();
        return true;
    }
    const bool kept = in.keeps(count, former) && elements != nullptr;
    const std::size_t size = storage.provide(kept, count, Codec<*f.foreign>::size_of);
    if (size == 0) return false;
    if (!prepare_element_flags<R, I>(in, x, count, former)) {
        std::memset(elements, 0, size);
        return false;
    }
    const std::uint32_t used = take_run<*f.foreign>(in, elements, count);
    in.advance(used);
    // A primitive is as wide on the wire as in memory, so only what was not read must be zeroed.
    std::memset(at(elements, used), 0, size - used);
    take_array_flags<R, I>(in, count);
    return true;
}

} // namespace epm::wire
