// The accessors of intrusive lists. None of them walks along a list. How elements are linked is in lifecycle/list.hpp.
#pragma once

#include "lifecycle/list.hpp"

namespace epm::access {

using lifecycle::Change;
using lifecycle::insert;
using lifecycle::insertion;
using lifecycle::links_of;
using lifecycle::list_layout;
using lifecycle::ListLayout;
using lifecycle::Position;

// ---- reading ----

/// Hands out what a link refers to. The head itself marks the end and is no element.
inline Instance* hand_out_element(Domain* D, std::uint32_t S, Instance* owner, const ListHead* head, void* element) {
    if (element == head) return nullptr;
    record_containment(D, S, element, owner);
    return header(element);
}

enum class End : std::uint8_t { first, last };

[[gnu::noinline]] inline Instance* get_end(Domain* D, std::uint32_t S, Instance* owner, End end, std::uint32_t* st,
                                           ListLayout layout) {
    if (!open_any_read(D, owner, layout.field, st)) return nullptr;
    const auto* head = at<ListHead>(owner, layout.head);
    if (head->first == head) return nullptr;
    return hand_out_element(D, S, owner, head, end == End::first ? head->first : head->last);
}

enum class Direction : std::uint8_t { next, previous };

[[gnu::noinline]] inline Instance* get_neighbour(Domain* D, std::uint32_t S, Instance* owner, Instance* element,
                                                 Direction direction, std::uint32_t* st, ListLayout layout) {
    if (!open_any_read(D, owner, layout.field, st)) return nullptr;
    const Links* links = links_of(element, layout.links);
    return hand_out_element(D, S, owner, at<ListHead>(owner, layout.head),
                            direction == Direction::next ? links->next : links->prev);
}

template <const Record& R, std::size_t I>
Instance* list_get_first(Domain* D, std::uint32_t S, Instance* owner, std::uint32_t* st) {
    return get_end(D, S, owner, End::first, st, list_layout<R, I>);
}

template <const Record& R, std::size_t I>
Instance* list_get_last(Domain* D, std::uint32_t S, Instance* owner, std::uint32_t* st) {
    return get_end(D, S, owner, End::last, st, list_layout<R, I>);
}

template <const Record& R, std::size_t I>
Instance* list_get_next(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    return get_neighbour(D, S, owner, element, Direction::next, st, list_layout<R, I>);
}

template <const Record& R, std::size_t I>
Instance* list_get_prev(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    return get_neighbour(D, S, owner, element, Direction::previous, st, list_layout<R, I>);
}

template <const Record& R, std::size_t I>
std::uint32_t list_get_count(Domain* D, std::uint32_t /*S*/, const Instance* owner, std::uint32_t* st) {
    if (!open_any_read(D, owner, gate<R, I>, st)) return 0;
    return field<R, I, ListHead>(owner)->count;
}

/// The owner of the list that holds the element; null when none does.
template <const Record& E>
Instance* list_get_parent(Domain* D, std::uint32_t S, Instance* element, std::uint32_t* st) {
    if (!open_read(D, element, {E.top(), 0, false}, st)) return nullptr;
    const ListHead* head = links_of(element, catalogue::layout<E>.links)->list_head;
    if (head == nullptr) return nullptr;
    record_containment(D, S, head->owner, element);
    return head->owner;
}

/// Null alone does not mean failure.
template <const Record& R, std::size_t I>
Instance* list_get_chained(Domain* D, Instance* owner, std::int32_t flag, Instance* element) {
    const std::uint32_t S = D->cr_set_id;
    std::uint32_t* st = &D->last_error;
    switch (flag) {
    case 0: return list_get_first<R, I>(D, S, owner, st);
    case 1: return list_get_last<R, I>(D, S, owner, st);
    case 2: return list_get_prev<R, I>(D, S, owner, element, st);
    case 3: return list_get_next<R, I>(D, S, owner, element, st);
    default: break;
    }
    trace::bad_flag(trace::site<R, trace::Operation::get_cr, trace::Text::bad_get_flag, I>, flag);
    zur_store_err(D, ZUR_BAD_ARGUMENT);
    return nullptr;
}

// ---- changing ----

template <const Record& R, std::size_t I>
void list_set_first(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    insert(D, S, owner, element, {Position::first}, st, insertion<R, I, trace::Operation::set_first>);
}

/// Appends an element to a list.
template <const Record& R, std::size_t I>
void list_set_last(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    insert(D, S, owner, element, {Position::last}, st, insertion<R, I, trace::Operation::set_last>);
}

template <const Record& R, std::size_t I>
void list_set_before(Domain* D, std::uint32_t S, Instance* owner, Instance* reference, Instance* element,
                     std::uint32_t* st) {
    insert(D, S, owner, element, {Position::before, reference}, st, insertion<R, I, trace::Operation::set_before>);
}

template <const Record& R, std::size_t I>
void list_set_after(Domain* D, std::uint32_t S, Instance* owner, Instance* reference, Instance* element,
                    std::uint32_t* st) {
    insert(D, S, owner, element, {Position::after, reference}, st, insertion<R, I, trace::Operation::set_after>);
}

template <const Record& R, std::size_t I>
std::uint32_t list_add_chained(Domain* D, Instance* owner, Instance* element, std::int32_t flag, Instance* reference) {
    const std::uint32_t S = D->cr_set_id;
    std::uint32_t* st = &D->last_error;
    switch (flag) {
    case 0: list_set_first<R, I>(D, S, owner, element, st); break;
    case 1: list_set_last<R, I>(D, S, owner, element, st); break;
    case 2: list_set_before<R, I>(D, S, owner, reference, element, st); break;
    case 3: list_set_after<R, I>(D, S, owner, reference, element, st); break;
    default:
        trace::bad_flag(trace::site<R, trace::Operation::add_cr, trace::Text::bad_add_flag, I>, flag);
        zur_store_err(D, ZUR_BAD_ARGUMENT);
        break;
    }
    return D->last_error;
}

/// Removing an element does not mark the owner's state flag.
[[gnu::noinline]] inline void remove(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st,
                                     const Change& how) {
    if (!open_write_here(D, S, owner, how.list.field, st)) return;
    auto* head = at<ListHead>(owner, how.list.head);
    store(D, S, &head->count, head->count - 1, owner);
    lifecycle::unlink(D, S, head, element, {how.list.links, lifecycle::Marked::neighbour, how.site});
    store(D, S, &links_of(element, how.list.links)->list_head, nullptr, element);
    record_containment(D, S, element, owner);
    mark_detached(D, S, element, 1);
}

template <const Record& R, std::size_t I>
void list_remove(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    remove(D, S, owner, element, st, lifecycle::removal<R, I>);
}

} // namespace epm::access
