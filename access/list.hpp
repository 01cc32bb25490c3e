// Intrusive lists: the element owns its links, the head inside the owner is the list's sentinel, and no operation walks
// along a list but the one that moves it whole. How one link is written is told in lifecycle/links.hpp, how a list ends
// with its owner in lifecycle/destroy.hpp.
#pragma once

#include "access/prologue.hpp"
#include "lifecycle/links.hpp"

namespace epm::access {

using lifecycle::links_of;
using lifecycle::ranged_store;

/// Where a list's head lies in the owner, and the links in an element.
struct ListPlace {
    std::uint16_t head;
    std::uint16_t links;
    Gate field;
};

template <const Record& R, std::size_t I>
inline constexpr ListPlace list_place = {
    .head = catalogue::layout<R>.offset[I],
    .links = catalogue::layout<*R.fields[I].record>.links,
    .field = gate<R, I>,
};

/// First of the trace entries of an operation's link writes.
template <const Record& R, std::size_t I, trace::Operation O>
inline constexpr std::uint32_t links_site = trace::site<R, O, trace::Text::range_refused, I>;

// ---- reading ----

/// What stands in a link; the head itself ends the list and is no element.
inline Instance* hand_out_element(Domain* D, std::uint32_t S, Instance* owner, const ListHead* head, void* element) {
    if (element == head) return nullptr;
    record_containment(D, S, element, owner);
    return header(element);
}

enum class End : std::uint8_t { first, last };

[[gnu::noinline]] inline Instance* get_end(Domain* D, std::uint32_t S, Instance* owner, End end, std::uint32_t* st,
                                           ListPlace place) {
    if (!open_read(D, owner, place.field, st)) return nullptr;
    const auto* head = at<ListHead>(owner, place.head);
    if (head->first == head) return nullptr;
    return hand_out_element(D, S, owner, head, end == End::first ? head->first : head->last);
}

enum class Direction : std::uint8_t { next, previous };

[[gnu::noinline]] inline Instance* get_neighbour(Domain* D, std::uint32_t S, Instance* owner, Instance* element,
                                                 Direction direction, std::uint32_t* st, ListPlace place) {
    if (!open_read(D, owner, place.field, st)) return nullptr;
    const Links* links = links_of(element, place.links);
    return hand_out_element(D, S, owner, at<ListHead>(owner, place.head),
                            direction == Direction::next ? links->next : links->prev);
}

template <const Record& R, std::size_t I>
Instance* list_get_first(Domain* D, std::uint32_t S, Instance* owner, std::uint32_t* st) {
    return get_end(D, S, owner, End::first, st, list_place<R, I>);
}

template <const Record& R, std::size_t I>
Instance* list_get_last(Domain* D, std::uint32_t S, Instance* owner, std::uint32_t* st) {
    return get_end(D, S, owner, End::last, st, list_place<R, I>);
}

template <const Record& R, std::size_t I>
Instance* list_get_next(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    return get_neighbour(D, S, owner, element, Direction::next, st, list_place<R, I>);
}

template <const Record& R, std::size_t I>
Instance* list_get_prev(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    return get_neighbour(D, S, owner, element, Direction::previous, st, list_place<R, I>);
}

template <const Record& R, std::size_t I>
std::uint32_t list_get_count(Domain* D, std::uint32_t /*S*/, const Instance* owner, std::uint32_t* st) {
    if (!open_read(D, owner, gate<R, I>, st)) return 0;
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

enum class Position : std::uint8_t { first, last, before, after };

/// The element's own links are written first, then the farther neighbour's, then the one that the position names: the
/// head's, or the reference's. `site` is the first of five.
inline void link(Domain* D, std::uint32_t S, ListHead* head, void* element, Position position, void* reference,
                 std::uint16_t offset, std::uint32_t site) {
    void* next = head;
    void* previous = head;
    switch (position) {
    case Position::first: next = head->first; break;
    case Position::last: previous = head->last; break;
    case Position::before:
        next = reference;
        previous = links_of(reference, offset)->prev;
        break;
    case Position::after:
        next = links_of(reference, offset)->next;
        previous = reference;
        break;
    }
    const auto link_next_to = [&](std::uint32_t at_head, std::uint32_t at_element) {
        if (next == head)
            ranged_store(D, S, &head->last, element, head, at_head);
        else
            ranged_store(D, S, &links_of(next, offset)->prev, element, next, at_element);
    };
    const auto link_previous_to = [&](std::uint32_t at_head, std::uint32_t at_element) {
        if (previous == head)
            ranged_store(D, S, &head->first, element, head, at_head);
        else
            ranged_store(D, S, &links_of(previous, offset)->next, element, previous, at_element);
    };
    Links* own = links_of(element, offset);
    ranged_store(D, S, &own->next, next, element, site);
    ranged_store(D, S, &own->prev, previous, element, site + 1);
    if (position == Position::first || position == Position::after) {
        link_next_to(site + 2, site + 3);
        link_previous_to(site + 4, site + 4);
    } else {
        link_previous_to(site + 2, site + 3);
        link_next_to(site + 4, site + 4);
    }
}

[[gnu::noinline]] inline void insert(Domain* D, std::uint32_t S, Instance* owner, Instance* reference,
                                     Instance* element, Position position, std::uint32_t* st, const ListPlace& place,
                                     const FlagPlace& flag, std::uint32_t site) {
    if (!open_write_here(D, S, owner, place.field, st)) return;
    auto* head = at<ListHead>(owner, place.head);
    store(D, S, &head->count, head->count + 1, owner);
    link(D, S, head, element, position, reference, place.links, site);
    store(D, S, &links_of(element, place.links)->list_head, head, element);
    record_containment(D, S, element, owner);
    mark(D, S, owner, st, flag);
}

template <const Record& R, std::size_t I, trace::Operation O>
void insert(Domain* D, std::uint32_t S, Instance* owner, Instance* reference, Instance* element, Position position,
            std::uint32_t* st) {
    insert(D, S, owner, reference, element, position, st, list_place<R, I>, flag_place<R, I, O>, links_site<R, I, O>);
}

template <const Record& R, std::size_t I>
void list_set_first(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    insert<R, I, trace::Operation::set_first>(D, S, owner, nullptr, element, Position::first, st);
}

/// Appends an element to a list.
template <const Record& R, std::size_t I>
void list_set_last(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    insert<R, I, trace::Operation::set_last>(D, S, owner, nullptr, element, Position::last, st);
}

template <const Record& R, std::size_t I>
void list_set_before(Domain* D, std::uint32_t S, Instance* owner, Instance* reference, Instance* element,
                     std::uint32_t* st) {
    insert<R, I, trace::Operation::set_before>(D, S, owner, reference, element, Position::before, st);
}

template <const Record& R, std::size_t I>
void list_set_after(Domain* D, std::uint32_t S, Instance* owner, Instance* reference, Instance* element,
                    std::uint32_t* st) {
    insert<R, I, trace::Operation::set_after>(D, S, owner, reference, element, Position::after, st);
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

/// A removal leaves no mark in the owner's state flag.
[[gnu::noinline]] inline void remove(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st,
                                     const ListPlace& place, std::uint32_t site) {
    if (!open_write_here(D, S, owner, place.field, st)) return;
    auto* head = at<ListHead>(owner, place.head);
    store(D, S, &head->count, head->count - 1, owner);
    lifecycle::unlink(D, S, head, element, place.links, lifecycle::Marked::neighbour, site);
    store(D, S, &links_of(element, place.links)->list_head, nullptr, element);
    record_containment(D, S, element, owner);
    mark_detached(D, S, element, 1);
}

template <const Record& R, std::size_t I>
void list_remove(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    remove(D, S, owner, element, st, list_place<R, I>, links_site<R, I, trace::Operation::remove>);
}

template <const Record& R, std::size_t I>
std::uint32_t list_remove_chained(Domain* D, Instance* owner, Instance* element) {
    list_remove<R, I>(D, D->cr_set_id, owner, element, &D->last_error);
    return D->last_error;
}

/// Makes a head that was copied byte by byte the head of the elements, and empties the source's. `site` is the first of
/// nine.
[[gnu::noinline]] inline void move_list(Domain* D, std::uint32_t S, Instance* destination, Instance* source,
                                        ListPlace place, std::uint32_t site) {
    auto* to = at<ListHead>(destination, place.head);
    auto* from = at<ListHead>(source, place.head);
    ranged_store(D, S, &to->first, to, to, site);
    ranged_store(D, S, &to->last, to, to, site + 1);
    ranged_store(D, S, &to->owner, destination, to, site + 2);
    if (from->first != from && from->first != nullptr) {
        ranged_store(D, S, &links_of(from->first, place.links)->prev, to, from->first, site + 3);
        ranged_store(D, S, &to->first, from->first, to, site + 4);
        ranged_store(D, S, &from->first, from, from, site + 5);
        ranged_store(D, S, &links_of(from->last, place.links)->next, to, from->last, site + 6);
        ranged_store(D, S, &to->last, from->last, to, site + 7);
        ranged_store(D, S, &from->last, from, from, site + 8);
    }
    for (void* element = to->first; element != to; element = links_of(element, place.links)->next)
        store(D, S, &links_of(element, place.links)->list_head, to, element);
    store(D, S, &from->count, 0, source);
}

template <const Record& R, std::size_t I>
void move_list(Domain* D, std::uint32_t S, Instance* destination, Instance* source) {
    move_list(D, S, destination, source, list_place<R, I>, links_site<R, I, trace::Operation::copyout>);
}

} // namespace epm::access
