// Writes to the links of object lists. A list can live in a persistent store, so each link write is declared to the
// store first; a store that refuses ends the process, because there is no way back from a half-linked list.
#pragma once

#include "frame/instance.hpp"
#include "frame/trace.hpp"

namespace epm::lifecycle {

[[noreturn, gnu::cold, gnu::noinline]] inline void range_refused(std::uint32_t site) {
    lumeo_perror();
    trace::die(site);
}

/// Declares and stores one link. `object` is marked dirty where the store wants marks; null leaves the mark out.
template <class T>
inline void ranged_store(Domain* D, std::uint32_t S, T** link, std::type_identity_t<T>* value, void* object,
                         std::uint32_t site) {
    if (D->obj_store != nullptr) {
        const int accepted = lumeo_set_range(D->obj_store, link, pointer_length, S);
        if (marks_store(D, S) && object != nullptr) zurdb_plat_set_dirty(D, S, object);
        if (accepted != 1) range_refused(site);
    }
    *link = value;
}

/// Converts between an element and its link members, which are at an offset.
inline Links* links_of(void* element, std::size_t offset) {
    return at<Links>(element, offset);
}

/// Which Instance is marked dirty when a neighbour's link is rewritten.
enum class Marked { neighbour, removed };

struct Unlinking {
    std::size_t offset; ///< of an element's links
    Marked marked;
    std::uint32_t site; ///< first of the removal's five trace entries
};

/// Takes an element out of its list by joining its neighbours. Its own links and the head's count stay.
inline void unlink(Domain* D, std::uint32_t S, ListHead* head, void* element, Unlinking how) {
    const std::size_t offset = how.offset;
    const std::uint32_t site = how.site;
    Links* links = links_of(element, offset);
    if (D->obj_store != nullptr && lumeo_set_range(D->obj_store, &links->next, 2 * pointer_length, S) == 0)
        range_refused(site);
    const auto touched = [&](void* neighbour) { return how.marked == Marked::neighbour ? neighbour : element; };
    if (links->next == head)
        ranged_store(D, S, &head->last, links->prev, head, site + 1);
    else
        ranged_store(D, S, &links_of(links->next, offset)->prev, links->prev, touched(links->next), site + 2);
    if (links->prev == head)
        ranged_store(D, S, &head->first, links->next, head, site + 3);
    else
        ranged_store(D, S, &links_of(links->prev, offset)->next, links->next, touched(links->prev), site + 4);
}

} // namespace epm::lifecycle
