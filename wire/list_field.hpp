// Object lists on the wire:
//
//   size  content
//   4     count, a list length
//         the elements in list order, a whole marshalled record each
//   0, 1  state flag, only where 2 bytes of room are left; also behind an empty list
//
// A reader has less room than the writer had: the message may end with the flag. The jump word says whether it does.
#pragma once

#include "lifecycle/destroy.hpp"
#include "lifecycle/list.hpp"
#include "wire/cursor.hpp"

namespace epm::wire {

/// The count is what the head says, not what the walk finds.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void put_list(Writer& out, const Instance* x) {
    constexpr const Record& type = *R.fields[I].record;
    const auto* head = field<R, I, ListHead>(x);
    out.advance(_zur_list_len_marshal(out.D, out.S, out.cursor, &head->count, out.room, out.st));
    for (const Instance* element = first_in_list<R, I>(x); element != nullptr && *out.st == 0;
         element = next_in_list<R, I>(x, element))
        out.advance(marshal_worker<type>(out.D, out.S, out.cursor, element, out.room, 1, out.st));
    out.put_flag_with_room(catalogue::layout<R>.flag[I]);
}

/// Reads over the elements that are there.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void take_list_in_place(Reader& in, const Instance* x) {
    constexpr const Record& type = *R.fields[I].record;
    for (const Instance* element = first_in_list<R, I>(x); element != nullptr;
         element = next_in_list<R, I>(x, element)) {
        in.pass(
            unmarshal_worker<type>(in.D, in.S, in.cursor, const_cast<Instance*>(element), in.room, in.reuse, in.st));
        if (*in.st == 0) continue;
        trace::failed(trace::site<R, trace::Operation::unmarshal, trace::Text::list_element_not_read, I>, *in.st);
        return;
    }
}

/// Appends a new element that has been read. If it could not be read or attached, it has no owner, so it is destroyed.
template <const Record& R, std::size_t I>
void attach_new_element(Domain* D, std::uint32_t S, Instance* x, Instance* element, std::uint32_t* st) {
    constexpr const Record& type = *R.fields[I].record;
    if (*st == 0) lifecycle::append<R, I>(D, S, x, element, st);
    if (*st != 0 && lifecycle::links_of(element, catalogue::layout<type>.links)->list_head == nullptr)
        lifecycle::destroy_internal<type>(D, S, element, 1);
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void take_new_element(Reader& in, Instance* x) {
    constexpr const Record& type = *R.fields[I].record;
    Instance* element = lifecycle::create_internal<type>(in.D, in.S);
    if (element == nullptr) return fail(in.D, in.st, ZUR_NO_MEMORY);
    in.pass(unmarshal_worker<type>(in.D, in.S, in.cursor, element, in.room, in.reuse, in.st));
    attach_new_element<R, I>(in.D, in.S, x, element, in.st);
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void take_list(Reader& in, Instance* x) {
    std::uint32_t count = 0;
    in.advance(_zur_list_len_unmarshal(in.D, in.S, in.cursor, &count, in.room, in.st));
    if (in.reuse != 0 && count == field<R, I, ListHead>(x)->count) {
        take_list_in_place<R, I>(in, x);
    } else {
        if (in.reuse != 0) lifecycle::drain_list<R, I, trace::Operation::unmarshal>(in.D, in.S, x);
        for (std::uint32_t i = 0; i < count && *in.st == 0; ++i) take_new_element<R, I>(in, x);
    }
    in.take_flag(catalogue::layout<R>.flag[I], in.ends_message ? 1 : 2);
}

} // namespace epm::wire
