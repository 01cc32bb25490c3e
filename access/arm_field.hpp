// Arms of a tagged union: pointers to Instances of their own, which the record takes over and gives back without
// copying. Setting an arm also writes the tag; the other arms stay as they are.
#pragma once

#include "access/plain_field.hpp"

namespace epm::access {

/// Where an arm's slot and the union's tag lie, and what selects the arm; literals of one arm and operation.
struct ArmLayout {
    std::uint16_t slot;
    std::uint16_t tag;
    Gate field;
    std::uint32_t selector;
    FlagLayout flag;
    std::uint32_t untracked_arm_site;
};

template <const Record& R, std::size_t I, trace::Operation O, std::uint32_t untracked_arm_site = 0>
inline constexpr ArmLayout arm_layout = {
    .slot = catalogue::layout<R>.offset[I],
    .tag = catalogue::layout<R>.offset[0] + catalogue::header_length,
    .field = gate<R, I>,
    .selector = R.fields[I].tag,
    .flag = flag_layout<R, I, O>,
    .untracked_arm_site = untracked_arm_site,
};

inline void store_arm(Domain* D, std::uint32_t S, Instance* x, const ArmLayout& layout, Instance* arm,
                      std::uint32_t tag) {
    store(D, S, at<Instance*>(x, layout.slot), arm, x);
    store(D, S, at<std::uint32_t>(x, layout.tag), tag, x);
}

/// The slot's content, whether or not the tag selects it; null when it is empty.
template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::arm>
void* get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    if (open_read_plainly(D, x, gate<R, I>, st)) return *field<R, I, Instance*>(x);
    if (!open_read(D, x, gate<R, I>, st)) return nullptr;
    return hand_out_nested(D, S, *field<R, I, Instance*>(x), x);
}

/// In tracked mode both the record and the arm must have state flags.
inline bool mark_arm(Domain* D, std::uint32_t S, Instance* x, const Instance* arm, std::uint32_t* st,
                     const ArmLayout& layout) {
    const FlagLayout& flag = layout.flag;
    if (!is_tracking(D, flag.corrupted_site)) return true;
    const bool has_flags = has_flag(x, ZUR_TRACKED);
    if (!has_flags || !has_flag(arm, ZUR_TRACKED)) {
        refuse_untracked(D, st, has_flags ? layout.untracked_arm_site : flag.untracked_site);
        return false;
    }
    write_flag(D, S, flag_block(D, S, x, flag) + flag.flag, ZUR_FLAG_MODIFIED);
    return true;
}

/// Does not destroy an arm that was in the slot: the caller who replaces it already holds it.
[[gnu::noinline]] inline void set_arm(Domain* D, std::uint32_t S, Instance* x, Instance* arm, std::uint32_t* st,
                                      const ArmLayout& layout) {
    if (!open_write_here(D, S, x, layout.field, st)) return;
    if (Instance* former = *at<Instance*>(x, layout.slot); former != nullptr) {
        record_containment(D, S, former, x);
        mark_detached(D, S, former, 1);
    }
    store_arm(D, S, x, layout, arm, layout.selector);
    if (mark_arm(D, S, x, arm, st, layout)) record_containment(D, S, arm, x);
}

template <const Record& R, std::size_t I>
requires is_of_kind<R, I, Kind::arm>
void set(Domain* D, std::uint32_t S, Instance* x, Instance* arm, std::uint32_t* st) {
    using trace::Operation, trace::Text;
    set_arm(D, S, x, arm, st,
            arm_layout<R, I, Operation::field_set, trace::site<R, Operation::field_set, Text::value_not_tracked, I>>);
}

/// Takes the arm out of the record before it looks at the state flags: if they are missing, the caller gets null and
/// nobody owns the arm.
[[gnu::noinline]] inline Instance* detach_arm(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st,
                                              const ArmLayout& layout) {
    if (!open_write_here(D, S, x, layout.field, st)) return nullptr;
    if (x == nullptr || *at<std::uint32_t>(x, layout.tag) != layout.selector) return nullptr;
    Instance* arm = *at<Instance*>(x, layout.slot);
    store_arm(D, S, x, layout, nullptr, 0);
    if (!mark(D, S, x, st, layout.flag, 0)) return nullptr;
    record_containment(D, S, arm, x);
    mark_detached(D, S, arm, 1);
    return arm;
}

/// Hands the selected arm over to the caller. Returns null without an error when another arm is selected.
template <const Record& R, std::size_t I>
Instance* get_detach(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return detach_arm(D, S, x, st, arm_layout<R, I, trace::Operation::detach>);
}

} // namespace epm::access
