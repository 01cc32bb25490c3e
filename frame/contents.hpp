// Reads a record's content directly from memory: the length of a text or array, elements by index, the tag of a union,
// a list from end to end. Makes no runtime call and writes nothing.
#pragma once

#include "frame/instance.hpp"

namespace epm {

/// An enumeration's value.
inline std::uint32_t enumerator_of(const Instance* x) {
    return *at<std::uint32_t>(x, catalogue::header_length);
}

/// The number in a text's or array's length field, even if there is no storage. Only for a reader that has just stored
/// it.
template <const Record& R, std::size_t I>
std::uint32_t stored_length(const Instance* x) {
    constexpr std::size_t length = catalogue::companion<R, I>;
    if constexpr (R.fields[length].foreign->length == 2)
        return *field<R, length, std::uint16_t>(x);
    else
        return *field<R, length, std::uint32_t>(x);
}

/// The length of a text or array. It is 0 without storage, because the Domain may have refused what the length field
/// counts.
template <const Record& R, std::size_t I>
std::uint32_t present_length(const Instance* x) {
    return *field<R, I, const void*>(x) != nullptr ? stored_length<R, I>(x) : 0;
}

/// A plain field's storage, for reading or sending. A length field without storage behind it reads as 0.
template <const Record& R, std::size_t I>
const void* readable(const Instance* x) {
    const auto* address = field<R, I>(x);
    if constexpr (R.fields[I].kind == Kind::length) {
        constexpr std::size_t counted = catalogue::counted_field<R, I>;
        static constexpr std::uint32_t nothing = 0;
        if (*field<R, counted, const void*>(x) == nullptr && stored_length<R, counted>(x) != 0) [[unlikely]]
            return &nothing;
    }
    return address;
}

/// Elements of an array or run.
template <const Record& R, std::size_t I>
std::uint32_t element_count(const Instance* x) {
    if constexpr (R.fields[I].kind == Kind::array)
        return present_length<R, I>(x);
    else
        return R.fields[I].capacity;
}

/// Bytes of one element of an array or run.
template <const Record& R, std::size_t I>
inline constexpr std::size_t element_length = [] {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_of_record())
        return catalogue::size<*f.record>;
    else
        return std::size_t{f.foreign->length};
}();

/// The element of an array or run at an index, which must be below the count.
template <const Record& R, std::size_t I>
const void* element_at(const Instance* x, std::uint32_t index) {
    const std::size_t offset = index * element_length<R, I>;
    if constexpr (R.fields[I].kind == Kind::array)
        return at(*field<R, I, const void*>(x), offset);
    else
        return at(field<R, I>(x), offset);
}

/// The run of element flags that the pointer member of a state-flag block names; null when there is none. A pointer of
/// eight equal bytes is no address: somebody has filled the whole block with one value.
inline std::uint8_t* element_flags_at(const void* member) {
    std::uintptr_t address;
    std::memcpy(&address, member, sizeof address);
    constexpr std::uintptr_t equal_bytes = 0x0101010101010101;
    return address % equal_bytes != 0 ? reinterpret_cast<std::uint8_t*>(address) : nullptr;
}

/// A field's element flags: in the run that the block names for an array, in the block itself for a fixed run. Null
/// when there are none.
template <const Record& R, std::size_t I, class Byte>
Byte* element_flags(Byte* block) {
    Byte* flags = block + catalogue::layout<R>.nested[I];
    if constexpr (R.fields[I].kind == Kind::array)
        return element_flags_at(flags);
    else
        return flags;
}

/// Whether a union's tag selects the arm.
template <const Record& R, std::size_t I>
bool is_selected(const Instance* x) {
    return enumerator_of(field<R, 0, Instance>(x)) == R.fields[I].tag;
}

/// The first element of a list; null when there is none. In the null Instance the head is zero, so its link is null
/// instead of a sentinel.
template <const Record& R, std::size_t I>
const Instance* first_in_list(const Instance* x) {
    const auto* head = field<R, I, ListHead>(x);
    return head->first == head ? nullptr : header(head->first);
}

/// The element after one of a list's elements; null after the last one.
template <const Record& R, std::size_t I>
const Instance* next_in_list(const Instance* x, const Instance* element) {
    const void* next = at<Links>(element, catalogue::layout<*R.fields[I].record>.links)->next;
    return next == field<R, I, ListHead>(x) ? nullptr : header(next);
}

/// Calls f(element) for each element of a list, first to last.
template <const Record& R, std::size_t I, class F>
void for_each_list_element(const Instance* x, F&& f) {
    for (const Instance* element = first_in_list<R, I>(x); element != nullptr; element = next_in_list<R, I>(x, element))
        f(element);
}

} // namespace epm
