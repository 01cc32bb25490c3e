// The arms of a tagged union on the wire. The tag is an enumeration in front of all arms; each arm has a position:
//
//   size  content
//         the arm as a whole marshalled record, only where the tag selects it
//   0, 1  state flag of the position, selected or not; only where 2 bytes of room are left
#pragma once

#include "lifecycle/create.hpp"
#include "wire/cursor.hpp"

namespace epm::wire {

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void put_arm(Writer& out, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if (is_selected<R, I>(x)) {
        if (const Instance* arm = *field<R, I, Instance*>(x); arm != nullptr)
            out.advance(marshal_worker<*f.record>(out.D, out.S, out.cursor, arm, out.room, 1, out.st));
        else
            fail(out.D, out.st, ZUR_ABSENT);
    }
    out.put_flag_with_room(catalogue::layout<R>.flag[I]);
}

/// The arm. Creates it if there is none; returns null when that fails.
template <const Record& R, std::size_t I>
Instance* arm_to_fill(Domain* D, std::uint32_t S, Instance* x) {
    auto** arm = field<R, I, Instance*>(x);
    if (*arm != nullptr) return *arm;
    announce(D, S, arm, pointer_length, x);
    trace::init();
    *arm = lifecycle::create_internal<*R.fields[I].record>(D, S);
    record_containment(D, S, *arm, x);
    return *arm;
}

/// Leaves an arm alone that another tag selected before. An arm that is not due has been read already.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void take_arm(Reader& in, Instance* x, bool is_due) {
    constexpr const Field& f = R.fields[I];
    if (is_selected<R, I>(x) && is_due) {
        if (Instance* arm = arm_to_fill<R, I>(in.D, in.S, x); arm != nullptr)
            in.pass(unmarshal_worker<*f.record>(in.D, in.S, in.cursor, arm, in.room, in.reuse, in.st));
        else
            fail(in.D, in.st, ZUR_NO_MEMORY);
    }
    if (in.state_flags != StateFlags::absent && is_due) in.take_flag(catalogue::layout<R>.flag[I]);
}

} // namespace epm::wire
