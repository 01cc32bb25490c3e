// Sets elements that are plain values, in an array that grows or in a fixed run.
#pragma once

#include "access/array_growth.hpp"

namespace epm::access {

/// The flag tests of an operation that has several.
template <const Record& R, std::size_t I, trace::Operation O, std::size_t N>
inline constexpr const FlagLayout& nth_flag_layout = flag_layout<R, I, O, trace::Text::not_tracked, N>;

/// Makes room for an element at an index. New elements below it are zero. Returns false when the Domain refuses memory.
template <const Record& R, std::size_t I>
bool grow_values(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, bool tracking, std::uint32_t* st) {
    const std::uint32_t count = count_for(D, index, st);
    if (count == 0) return false;
    if (*field<R, I, void*>(x) != nullptr) tell_reallocation<R, I>();
    const std::uint32_t former_count = *length_of<R, I>(x);
    const std::size_t unit = Codec<*R.fields[I].foreign>::size_of(D);
    void* former = nullptr;
    void* storage = renew_storage<R, I>(D, S, x, count * unit, &former, st);
    if (storage == nullptr) return false;
    const std::uint32_t kept = former != nullptr ? former_count : 0;
    if (kept != 0) std::memcpy(storage, former, kept * unit);
    std::memset(at(storage, kept * unit), 0, (count - kept) * unit);
    if (former != nullptr) release(D, S, former);
    store(D, S, length_of<R, I>(x), count, x);
    return grow_element_flags<R, I>(D, S, x, count, former_count, tracking, st);
}

/// Without a source the array only grows.
template <const Record& R, std::size_t I>
void set_value_element(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, void* source, std::uint32_t* st) {
    constexpr auto operation = trace::Operation::field_set;
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    const Tracking tracking = test_tracking<R>(D, S, x, st, nth_flag_layout<R, I, operation, 0>);
    if (tracking == Tracking::refused) return;
    if (index >= element_count<R, I>(x) && !grow_values<R, I>(D, S, x, index, tracking == Tracking::on, st)) return;
    if (source == nullptr) return;
    void* address = element<R, I>(x, index);
    record_containment(D, S, address, x);
    Codec<*R.fields[I].foreign>::set(D, S, address, source, st);
    mark_element<R, I>(D, S, x, index, st, nth_flag_layout<R, I, operation, 1>);
}

/// Without a source nothing is written.
template <const Record& R, std::size_t I>
void set_run_element(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, void* source, std::uint32_t* st) {
    if (!open_write(D, S, x, gate<R, I>, st) || source == nullptr) return;
    if (index >= element_count<R, I>(x)) return fail(D, st, ZUR_ABSENT);
    Codec<*R.fields[I].foreign>::set(D, S, element<R, I>(x, index), source, st);
    mark_element<R, I>(D, S, x, index, st, nth_flag_layout<R, I, trace::Operation::field_set, 0>);
}

/// Sets an element of an array of values.
template <const Record& R, std::size_t I>
void set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, void* source, std::uint32_t* st) {
    if constexpr (is_growing<R, I>)
        set_value_element<R, I>(D, S, x, index, source, st);
    else
        set_run_element<R, I>(D, S, x, index, source, st);
}

template <const Record& R, std::size_t I>
std::uint32_t set_chained(Domain* D, Instance* x, std::uint32_t index, typename FieldValue<R, I>::type value) {
    set<R, I>(D, D->cr_set_id, x, index, &value, &D->last_error);
    return D->last_error;
}

/// Finds the element for a value and grows the array if needed. Returns null when the setter stops, with the error
/// left. An element that already exists is looked up under a status word of its own, which then replaces the caller's.
template <const Record& R, std::size_t I>
void* element_to_write(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t* st) {
    if (index < element_count<R, I>(x)) {
        std::uint32_t status = 0;
        void* pointer = get<R, I>(D, S, x, index, &status);
        record_containment(D, S, pointer, x);
        if (pointer != nullptr && status != ZUR_ABSENT) {
            *st = status;
            if (status == 0) return pointer;
            zur_store_err(D, status);
            return nullptr;
        }
    }
    set<R, I>(D, S, x, index, nullptr, st);
    void* pointer = get<R, I>(D, S, x, index, st);
    record_containment(D, S, pointer, x);
    if (*st != 0) return nullptr;
    if (pointer == nullptr) fail(D, st, ZUR_ABSENT);
    return pointer;
}

template <const Record& R, std::size_t I>
void set_value(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, typename FieldValue<R, I>::type value,
               std::uint32_t* st) {
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    void* pointer = element_to_write<R, I>(D, S, x, index, st);
    if (pointer == nullptr) return;
    Codec<*R.fields[I].foreign>::set_value(D, S, pointer, value, st);
    mark_element<R, I>(D, S, x, index, st, nth_flag_layout<R, I, trace::Operation::field_set_value, 0>);
}

/// Replaces the whole content. A tracking Domain refuses an Instance without state flags before anything changes.
template <const Record& R, std::size_t I>
void set_array_memory(Domain* D, std::uint32_t S, Instance* x, const void* source, std::uint32_t count,
                      std::uint32_t* st) {
    constexpr const FlagLayout& layout = nth_flag_layout<R, I, trace::Operation::field_set_memory, 0>;
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    const Tracking tracking = test_tracking<R>(D, S, x, st, layout);
    if (tracking == Tracking::refused) return;
    auto** storage = field<R, I, void*>(x);
    if (*storage != nullptr) release(D, S, *storage);
    announce(D, S, storage, pointer_length, x);
    *storage = nullptr;
    const std::size_t size = std::size_t{count} * Codec<*R.fields[I].foreign>::size_of(D);
    *storage = allocate(D, S, size);
    if (*storage == nullptr) return fail(D, st, ZUR_NO_MEMORY);
    if (size != 0) std::memcpy(*storage, source, size);
    store(D, S, length_of<R, I>(x), count, x);
    if (tracking == Tracking::off) return drop_element_flags<R, I>(D, S, x);
    std::uint8_t* block = flag_block(D, S, x, layout);
    write_flag(D, S, block + layout.flag, ZUR_FLAG_MODIFIED);
    auto** member = at<void*>(block, catalogue::layout<R>.nested[I]);
    if (std::uint8_t* former = element_flags_at(member); former != nullptr) release(D, S, former);
    announce(D, S, member, pointer_length, nullptr);
    allocate_element_flags(D, S, member, count, st);
}

/// Bytes behind the count keep their content, and so do the element flags.
template <const Record& R, std::size_t I>
void set_run_memory(Domain* D, std::uint32_t S, Instance* x, const void* source, std::uint32_t count,
                    std::uint32_t* st) {
    constexpr auto operation = trace::Operation::field_set_memory;
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    if (count > R.fields[I].capacity) return fail(D, st, ZUR_BAD_ARGUMENT);
    if (test_tracking(D, x, st, nth_flag_layout<R, I, operation, 0>) == Tracking::refused) return;
    const auto size = static_cast<std::uint32_t>(count * element_length<R, I>);
    announce(D, S, field<R, I>(x), size, x);
    if (size != 0) std::memcpy(field<R, I>(x), source, size);
    mark(D, S, x, st, nth_flag_layout<R, I, operation, 1>);
}

/// Sets the first elements of a fixed run, or all of an array.
template <const Record& R, std::size_t I>
void set_mem(Domain* D, std::uint32_t S, Instance* x, const void* source, ElementCount<R, I> count, std::uint32_t* st) {
    if constexpr (is_growing<R, I>)
        set_array_memory<R, I>(D, S, x, source, count, st);
    else
        set_run_memory<R, I>(D, S, x, source, unsigned_count(count), st);
}

} // namespace epm::access
