// Arms of a tagged union: pointers to Instances of their own, which the record takes over and gives back without
// copying. Setting an arm also writes the tag; the other arms stay as they are.
#pragma once

#include "access/plain_field.hpp"

namespace epm::access {

/// Where an arm's slot and the union's tag lie, and what selects the arm.
struct ArmPlace {
    std::uint16_t slot;
    std::uint16_t tag;
    Gate field;
    std::uint32_t selector;
};

template <const Record& R, std::size_t I>
inline constexpr ArmPlace arm_place = {
    .slot = catalogue::layout<R>.offset[I],
    .tag = catalogue::layout<R>.offset[0] + catalogue::header_length,
    .field = gate<R, I>,
    .selector = R.fields[I].tag,
};

inline void store_arm(Domain* D, std::uint32_t S, Instance* x, ArmPlace place, Instance* arm, std::uint32_t tag) {
    store(D, S, at<Instance*>(x, place.slot), arm, x);
    store(D, S, at<std::uint32_t>(x, place.tag), tag, x);
}

/// The slot's content, whether or not the tag selects it; null when it is empty.
template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::arm>
void* get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    if (!open_read(D, x, gate<R, I>, st)) return nullptr;
    return hand_out_nested(D, S, *field<R, I, Instance*>(x), x);
}

/// In tracked mode both the record and the arm must have state flags.
inline bool mark_arm(Domain* D, std::uint32_t S, Instance* x, const Instance* arm, std::uint32_t* st,
                     const FlagPlace& flag, std::uint32_t untracked_arm_site) {
    if (!is_tracking(D, flag.corrupted_site)) return true;
    const bool has_flags = has_flag(x, ZUR_TRACKED);
    if (!has_flags || !has_flag(arm, ZUR_TRACKED)) {
        refuse_untracked(D, st, has_flags ? untracked_arm_site : flag.untracked_site);
        return false;
    }
    write_flag(D, S, flag_block(D, S, x, flag) + flag.flag, ZUR_FLAG_MODIFIED);
    return true;
}

/// Does not destroy an arm that was in the slot: the caller who replaces it already holds it.
[[gnu::noinline]] inline void set_arm(Domain* D, std::uint32_t S, Instance* x, Instance* arm, std::uint32_t* st,
                                      const ArmPlace& place, const FlagPlace& flag, std::uint32_t untracked_arm_site) {
    if (!open_write_here(D, S, x, place.field, st)) return;
    if (Instance* former = *at<Instance*>(x, place.slot); former != nullptr) {
        record_containment(D, S, former, x);
        mark_detached(D, S, former, 1);
    }
    store_arm(D, S, x, place, arm, place.selector);
    if (mark_arm(D, S, x, arm, st, flag, untracked_arm_site)) record_containment(D, S, arm, x);
}

template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::arm>
void set(Domain* D, std::uint32_t S, Instance* x, Instance* arm, std::uint32_t* st) {
    using trace::Operation, trace::Text;
    set_arm(D, S, x, arm, st, arm_place<R, I>, flag_place<R, I, Operation::field_set>,
            trace::site<R, Operation::field_set, Text::value_not_tracked, I>);
}

template <const Record& R, std::size_t I>
std::uint32_t set_chained(Domain* D, Instance* x, Instance* arm) {
    set<R, I>(D, D->cr_set_id, x, arm, &D->last_error);
    return D->last_error;
}

/// Takes the arm out of the record before it looks at the state flags: if they are missing, the caller gets null and
/// nobody owns the arm.
[[gnu::noinline]] inline Instance* detach_arm(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st,
                                              const ArmPlace& place, const FlagPlace& flag) {
    if (!open_write_here(D, S, x, place.field, st)) return nullptr;
    if (x == nullptr || *at<std::uint32_t>(x, place.tag) != place.selector) return nullptr;
    Instance* arm = *at<Instance*>(x, place.slot);
    store_arm(D, S, x, place, nullptr, 0);
    if (!mark(D, S, x, st, flag, 0)) return nullptr;
    record_containment(D, S, arm, x);
    mark_detached(D, S, arm, 1);
    return arm;
}

/// Hands the selected arm over to the caller. Returns null without an error when another arm is selected.
template <const Record& R, std::size_t I>
Instance* get_detach(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return detach_arm(D, S, x, st, arm_place<R, I>, flag_place<R, I, trace::Operation::detach>);
}

} // namespace epm::access
