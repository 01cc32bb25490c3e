// How an element joins an intrusive list, and how a whole list moves to another owner. The element owns its links, the
// head inside the owner is the list's sentinel. One link is written in links.hpp; a list ends with its owner in
// destroy.hpp.
#pragma once

#include "lifecycle/links.hpp"
#include "lifecycle/prologue.hpp"

namespace epm::lifecycle {

/// Where a list's head lies in the owner, and the links in an element.
struct ListLayout {
    std::uint16_t head;
    std::uint16_t links;
    Gate field;
};

template <const Record& R, std::size_t I>
inline constexpr ListLayout list_layout = {
    .head = catalogue::layout<R>.offset[I],
    .links = catalogue::layout<*R.fields[I].record>.links,
    .field = gate<R, I>,
};

/// First of the trace entries of an operation's link writes.
template <const Record& R, std::size_t I, trace::Operation O>
inline constexpr std::uint32_t links_site = trace::site<R, O, trace::Text::range_refused, I>;

enum class Position : std::uint8_t { first, last, before, after };

/// Where an element joins a list.
struct Spot {
    Position position;
    Instance* reference = nullptr; ///< the element that it joins before or after
};

/// The element's own links are written first, then the farther neighbour's, then the one that the position names: the
/// head's, or the reference's. `site` is the first of five.
inline void link(Domain* D, std::uint32_t S, ListHead* head, void* element, Spot spot, std::uint16_t offset,
                 std::uint32_t site) {
    void* const reference = spot.reference;
    void* next = head;
    void* previous = head;
    switch (spot.position) {
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
    if (spot.position == Position::first || spot.position == Position::after) {
        link_next_to(site + 2, site + 3);
        link_previous_to(site + 4, site + 4);
    } else {
        link_previous_to(site + 2, site + 3);
        link_next_to(site + 4, site + 4);
    }
}

/// What an insertion or a removal has to know; literals of one list and operation.
struct Change {
    ListLayout list;
    std::uint32_t site; ///< first of the trace entries of its link writes
    FlagLayout flag;    ///< only an insertion marks the list
};

template <const Record& R, std::size_t I, trace::Operation O>
inline constexpr Change insertion = {list_layout<R, I>, links_site<R, I, O>, flag_layout<R, I, O>};

template <const Record& R, std::size_t I>
inline constexpr Change removal = {list_layout<R, I>, links_site<R, I, trace::Operation::remove>, {}};

[[gnu::noinline]] inline void insert(Domain* D, std::uint32_t S, Instance* owner, Instance* element, Spot spot,
                                     std::uint32_t* st, const Change& how) {
    if (!open_write_here(D, S, owner, how.list.field, st)) return;
    auto* head = at<ListHead>(owner, how.list.head);
    if (plain::is_idle(D) && D->obj_store == nullptr && spot.position == Position::last) {
        ++head->count;
        Links* own = links_of(element, how.list.links);
        *own = {head, head, head->last};
        (own->prev == head ? head->first : links_of(own->prev, how.list.links)->next) = element;
        head->last = element;
    } else {
        store(D, S, &head->count, head->count + 1, owner);
        link(D, S, head, element, spot, how.list.links, how.site);
        store(D, S, &links_of(element, how.list.links)->list_head, head, element);
    }
    record_containment(D, S, element, owner);
    mark(D, S, owner, st, how.flag);
}

/// Attaches an element behind all others.
template <const Record& R, std::size_t I>
void append(Domain* D, std::uint32_t S, Instance* owner, Instance* element, std::uint32_t* st) {
    insert(D, S, owner, element, {Position::last}, st, insertion<R, I, trace::Operation::set_last>);
}

/// Makes a head that was copied byte by byte the head of the elements, and empties the source's. `site` is the first of
/// nine.
[[gnu::noinline]] inline void move_list(Domain* D, std::uint32_t S, Instance* destination, Instance* source,
                                        ListLayout layout, std::uint32_t site) {
    auto* to = at<ListHead>(destination, layout.head);
    auto* from = at<ListHead>(source, layout.head);
    ranged_store(D, S, &to->first, to, to, site);
    ranged_store(D, S, &to->last, to, to, site + 1);
    ranged_store(D, S, &to->owner, destination, to, site + 2);
    if (from->first != from && from->first != nullptr) {
        ranged_store(D, S, &links_of(from->first, layout.links)->prev, to, from->first, site + 3);
        ranged_store(D, S, &to->first, from->first, to, site + 4);
        ranged_store(D, S, &from->first, from, from, site + 5);
        ranged_store(D, S, &links_of(from->last, layout.links)->next, to, from->last, site + 6);
        ranged_store(D, S, &to->last, from->last, to, site + 7);
        ranged_store(D, S, &from->last, from, from, site + 8);
    }
    for (void* element = to->first; element != to; element = links_of(element, layout.links)->next)
        store(D, S, &links_of(element, layout.links)->list_head, to, element);
    store(D, S, &from->count, 0, source);
}

template <const Record& R, std::size_t I>
void move_list(Domain* D, std::uint32_t S, Instance* destination, Instance* source) {
    move_list(D, S, destination, source, list_layout<R, I>, links_site<R, I, trace::Operation::copyout>);
}

} // namespace epm::lifecycle
