// Sets elements that are records. Each is a whole Instance inside the array's buffer. In tracked mode the elements'
// state-flag blocks lie behind all elements, so growth moves both and gives the runtime the new distances.
#pragma once

#include "access/array_of_values.hpp"
#include "access/whole_record.hpp"
#include "lifecycle/element_buffer.hpp"
#include "wire/clone.hpp"

namespace epm::access {

using lifecycle::Elements;

/// Ends an element whose content has moved elsewhere, the way a move does, so that the runtime hears of it.
template <const Record& E>
void retire(Domain* D, std::uint32_t S, Instance* former, const Instance* parent, bool tracking, std::uint32_t* st) {
    catalogue::for_each_field<E>([&]<std::size_t I>() {
        if constexpr (E.fields[I].kind == Kind::text) give_up<E, I>(D, S, former);
    });
    if (tracking) zur_hd_mapping_destroy(D, S, former, st);
    record_containment(D, S, former, parent);
    mark_detached(D, S, former, 0);
}

/// Moves all elements to new storage, with their blocks if they have any. An array that is filled one by one moves
/// everything here each time, so nothing in this function has a stack frame of its own.
template <const Record& E>
[[gnu::noinline, gnu::flatten]] void move_elements(Domain* D, std::uint32_t S, Elements<E> to, Elements<E> from,
                                                   const Instance* parent, bool tracking, std::uint32_t* st) {
    std::memcpy(to.storage, from.storage, from.count * Elements<E>::size);
    if (tracking && from.count != 0 && from.has_blocks())
        std::memcpy(to.blocks(), from.blocks(), from.count * Elements<E>::block_length);
    for (std::uint32_t i = 0; i < from.count; ++i) {
        if (tracking)
            to.place_block(D, S, i);
        else
            to[i]->flags &= static_cast<std::uint8_t>(~memory_flags); // no blocks lie behind this storage
    }
    for (std::uint32_t i = 0; i < from.count; ++i) retire<E>(D, S, from[i], parent, tracking, st);
}

/// Makes room for an element at an index. Returns false when the Domain refuses memory or an element cannot be set up.
template <const Record& R, std::size_t I>
bool grow_records(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, bool tracking, std::uint32_t* st) {
    using Buffer = Elements<*R.fields[I].record>;
    static_assert(!R.fields[I].record->any([](const Field& f) {
        return f.kind == Kind::list || f.kind == Kind::object || f.kind == Kind::embedded || f.kind == Kind::array;
    }),
                  "elements move by their bytes");
    const std::uint32_t count = count_for(D, index, st);
    if (count == 0) return false;
    const std::size_t size = Buffer::room_for(D, count, tracking, st);
    if (size == 0) return false;
    if (*field<R, I, void*>(x) != nullptr) tell_reallocation<R, I>();
    const std::uint32_t former_length = *length_of<R, I>(x);
    void* former_storage;
    void* storage = renew_storage<R, I>(D, S, x, size, &former_storage, st);
    if (storage == nullptr) return false;
    const Buffer elements{storage, count};
    const Buffer former{former_storage, former_storage != nullptr ? former_length : 0};
    const std::size_t kept = tracking ? 0 : former.count * Buffer::size;
    std::memset(at(storage, kept), 0, size - kept);
    if (former_storage != nullptr) {
        move_elements(D, S, elements, former, x, tracking, st);
        release(D, S, former_storage);
    }
    store(D, S, length_of<R, I>(x), count, x);
    const bool is_plain = lifecycle::is_created_plainly<*R.fields[I].record>(D);
    for (std::uint32_t i = former.count; i < count; ++i)
        is_plain ? elements.set_up(D, S, i, tracking, st) : elements.initialize(D, S, i, tracking, st);
    return grow_element_flags<R, I>(D, S, x, count, former_length, tracking, st) && *st == 0;
}

/// Whether the array's Instance and the source can be marked; refused before anything changes.
template <const Record& R, std::size_t I>
Tracking test_tracking_of_both(Domain* D, std::uint32_t S, Instance* x, const Instance* source, std::uint32_t* st) {
    constexpr auto operation = trace::Operation::field_set;
    const Tracking own = test_tracking<R>(D, S, x, st, nth_flag_layout<R, I, operation, 0>);
    return own == Tracking::on ? test_tracking(D, source, st, nth_flag_layout<R, I, operation, 1>) : own;
}

/// Sets an element of an array of records. With no source the array only grows.
template <const Record& R, std::size_t I>
void set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, Instance* source, std::uint32_t move,
         std::uint32_t* st) {
    constexpr const Record& type = *R.fields[I].record;
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    const Tracking tracking = test_tracking_of_both<R, I>(D, S, x, source, st);
    if (tracking == Tracking::refused) return;
    if (index >= element_count<R, I>(x) && !grow_records<R, I>(D, S, x, index, tracking == Tracking::on, st)) return;
    if (source == nullptr) return;
    auto* target = header(element<R, I>(x, index));
    constexpr const FlagLayout& layout = nth_flag_layout<R, I, trace::Operation::field_set, 2>;
    // An element has no block if a Domain without tracking set it up, or if nobody did.
    if (tracking == Tracking::on && !has_flag(target, ZUR_TRACKED))
        return refuse_untracked(D, st, layout.untracked_site);
    record_containment(D, S, target, x);
    if (move != 0)
        set<type>(D, S, target, source, st);
    else
        wire::clone_into<type>(D, S, target, source, st);
    mark_element<R, I>(D, S, x, index, st, layout);
}

} // namespace epm::access
