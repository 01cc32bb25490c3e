// Reads elements of arrays, one by one or as a run, and empties arrays. array_growth.hpp says how an array grows; the
// files of the element kinds say how elements are set.
#pragma once

#include "access/element_flags.hpp"
#include "access/plain_field.hpp"
#include "lifecycle/destroy.hpp"

namespace epm::access {

template <const Record& R, std::size_t I>
inline constexpr bool is_growing = R.fields[I].kind == Kind::array;

/// Fixed runs count their elements with a signed number.
template <const Record& R, std::size_t I>
using ElementCount = std::conditional_t<is_growing<R, I>, std::uint32_t, std::int32_t>;

/// A number of elements without its sign. A negative number becomes larger than any count.
template <class Count>
constexpr std::uint32_t unsigned_count(Count count) {
    return static_cast<std::uint32_t>(count);
}

template <const Record& R, std::size_t I>
void* element(Instance* x, std::uint32_t index) {
    return const_cast<void*>(element_at<R, I>(x, index));
}

/// Whether an element can be read in plain steps.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline bool open_element_plainly(Domain* D, const Instance* x, std::uint32_t index,
                                                        const std::uint32_t* st) {
    if constexpr (!R.fields[I].is_of_record() && !plain::is_number(*R.fields[I].foreign))
        return false;
    else
        return open_read_plainly(D, x, gate<R, I>, st) && index < element_count<R, I>(x);
}

/// Hands an element out. Reading never grows the array.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void* get_here(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index,
                                             std::uint32_t* st) {
    if (!open_read(D, x, gate<R, I>, st)) return nullptr;
    if (index >= element_count<R, I>(x)) {
        fail(D, st, ZUR_ABSENT);
        return nullptr;
    }
    void* address = element<R, I>(x, index);
    if constexpr (R.fields[I].is_of_record()) {
        return hand_out_nested(D, S, header(address), x);
    } else {
        void* pointer = Codec<*R.fields[I].foreign>::get(D, S, address, st);
        record_containment(D, S, pointer, x);
        return pointer;
    }
}
template <const Record& R, std::size_t I>
[[gnu::noinline]] void* get_by_calls(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t* st) {
    return get_here<R, I>(D, S, x, index, st);
}
template <const Record& R, std::size_t I>
void* get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t* st) {
    if (open_element_plainly<R, I>(D, x, index, st)) return element<R, I>(x, index);
    return get_by_calls<R, I>(D, S, x, index, st);
}

template <const Record& R, std::size_t I>
[[gnu::noinline]] typename FieldValue<R, I>::type get_value_by_calls(Domain* D, std::uint32_t S, const Instance* x,
                                                                     std::uint32_t index, std::uint32_t* st) {
    if (!open_read(D, x, gate<R, I>, st)) return 0;
    void* pointer = get_here<R, I>(D, S, const_cast<Instance*>(x), index, st);
    return pointer != nullptr ? Codec<*R.fields[I].foreign>::get_value(D, S, pointer, st) : 0;
}
template <const Record& R, std::size_t I>
typename FieldValue<R, I>::type get_value(Domain* D, std::uint32_t S, const Instance* x, std::uint32_t index,
                                          std::uint32_t* st) {
    if (open_element_plainly<R, I>(D, x, index, st))
        return *static_cast<const typename FieldValue<R, I>::type*>(element_at<R, I>(x, index));
    return get_value_by_calls<R, I>(D, S, x, index, st);
}

/// Copies the first elements out.
template <const Record& R, std::size_t I>
void get_mem(Domain* D, std::uint32_t /*S*/, const Instance* x, void* destination, ElementCount<R, I> count,
             std::uint32_t* st) {
    if (!open_any_read(D, x, gate<R, I>, st)) return;
    const std::uint32_t used = unsigned_count(count);
    if (used > element_count<R, I>(x)) return fail(D, st, ZUR_BAD_ARGUMENT);
    if (used != 0) std::memcpy(destination, element_at<R, I>(x, 0), used * element_length<R, I>);
}

/// Empties an array. Its state flag and the element flags stay.
template <const Record& R, std::size_t I>
void remove_elements(Domain* D, std::uint32_t S, Instance* x) {
    if (x == nullptr) return;
    auto** storage = field<R, I, void*>(x);
    if (*storage == nullptr) return;
    constexpr std::size_t length = catalogue::companion<R, I>;
    if constexpr (R.fields[I].is_of_record())
        lifecycle::destroy_elements<*R.fields[I].record>(D, S, *storage, element_count<R, I>(x));
    release(D, S, *storage);
    store(D, S, storage, nullptr, x);
    store(D, S, field<R, length, typename FieldValue<R, length>::type>(x), 0, x);
}

} // namespace epm::access
