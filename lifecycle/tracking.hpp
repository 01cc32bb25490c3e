// State tracking as every operation meets it: the Domain's mode, the place of an Instance's state-flag block, the mark
// that a setter leaves, and the flag operations that are the same for all kinds of field.
#pragma once

#include "frame/instance.hpp"
#include "frame/sites.hpp"

namespace epm {

/// Whether the Domain tracks state. A damaged handle ends the process at the given trace site.
inline bool is_tracking(const Domain* D, std::uint32_t site) {
    const zur_tracking_handle* handle = D->tracking_handle;
    if (handle == nullptr || handle->handle_kind == ZUR_UNTRACKED_MODE) return false;
    if (handle->handle_kind != ZUR_TRACKED_MODE) trace::die(site);
    return true;
}

/// The standard place of the block: behind the memory that the Instance's layout variant counts.
template <const Record& R>
std::size_t standard_place(const Instance* x) {
    if constexpr (R.variants() == 1)
        return catalogue::size<R>;
    else
        return catalogue::layout<R>.body[static_cast<std::size_t>(x->layout_variant)];
}

/// The Instance's state-flag block. It must have one.
template <const Record& R>
std::uint8_t* flag_block(Domain* D, std::uint32_t S, Instance* x) {
    if (has_flag(x, ZUR_MOVED_FLAGS)) return at<std::uint8_t>(x, zurlib_get_sttr_offset(D, S, x));
    return at<std::uint8_t>(x, standard_place<R>(x));
}

/// Announces and stores one state flag.
inline void write_flag(Domain* D, std::uint32_t S, std::uint8_t* flag, std::uint8_t value) {
    store(D, S, flag, value, nullptr);
}

/// The refusal of a setter that meets an Instance without state flags in a tracking Domain.
[[gnu::cold, gnu::noinline]] inline void refuse_untracked(Domain* D, std::uint32_t* st, std::uint32_t site) {
    fail(D, st, ZUR_BAD_ARGUMENT);
    trace::plain(site, trace::failure);
}

/// What every setter does once its field is stored: in tracked mode the field's flag becomes `value`. False when the
/// Instance has no flags, in which case the error is left and the setter stops.
template <const Record& R, std::size_t I, trace::Operation O, std::uint8_t value = ZUR_FLAG_MODIFIED>
bool mark(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    if (!is_tracking(D, trace::site<R, O, trace::Text::corrupted_handle, I>)) return true;
    if (!has_flag(x, ZUR_TRACKED)) {
        refuse_untracked(D, st, trace::site<R, O, trace::Text::not_tracked, I>);
        return false;
    }
    write_flag(D, S, flag_block<R>(D, S, x) + catalogue::layout<R>.flag[I], value);
    return true;
}

namespace lifecycle {

/// Whether the Domain's mode lets a caller at state flags; a Domain without a handle does, as a tracking one.
inline bool admits_flag_access(Domain* D, std::uint32_t* st, std::uint32_t site) {
    const zur_tracking_handle* handle = D->tracking_handle;
    if (handle == nullptr || handle->handle_kind == ZUR_TRACKED_MODE) return true;
    if (handle->handle_kind != ZUR_UNTRACKED_MODE) trace::die(site);
    fail(D, st, ZUR_BAD_ARGUMENT);
    return false;
}

/// The block as the flag operations find it: without a handle, that of the newest layout.
template <const Record& R>
std::uint8_t* flag_block_for_access(Domain* D, std::uint32_t S, Instance* x) {
    if (R.variants() > 1 && D->tracking_handle == nullptr && !has_flag(x, ZUR_MOVED_FLAGS))
        return at<std::uint8_t>(x, catalogue::size<R>);
    return flag_block<R>(D, S, x);
}

/// The common way into a flag read. False: the error is left.
inline bool open_flag_read(Domain* D, Instance* x, std::uint32_t* st, std::uint32_t corrupted,
                           std::uint32_t untracked) {
    if (*st != 0 || !admits_flag_access(D, st, corrupted)) return false;
    if (has_flag(x, ZUR_TRACKED)) return true;
    refuse_untracked(D, st, untracked);
    return false;
}

/// The common way into a flag write, up to the adjustment of the variant. Here the trace comes before the error.
inline bool open_flag_write(Domain* D, Instance* x, std::uint32_t* st, std::uint32_t corrupted,
                            std::uint32_t untracked) {
    if (*st != 0 || !admits_flag_access(D, st, corrupted)) return false;
    if (has_flag(x, ZUR_TRACKED)) return true;
    trace::plain(untracked, trace::failure);
    fail(D, st, ZUR_BAD_ARGUMENT);
    return false;
}

/// Adjusts the variant before a flag write and tests it.
template <const Record& R, std::size_t I>
bool adjust_for_flag(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    zurlib_adjust_variant(D, S, x, zur_get_manifested_type_info(x), R.top(), st);
    return in_variant(D, x, R.fields[I].since, R.fields[I].is_enumerated(), st);
}

template <const Record& R, std::size_t I, trace::Operation O>
bool open_flag_read(Domain* D, Instance* x, std::uint32_t* st) {
    return open_flag_read(D, x, st, trace::site<R, O, trace::Text::corrupted_handle, I>,
                          trace::site<R, O, trace::Text::not_tracked_on_read, I>);
}

template <const Record& R, std::size_t I, trace::Operation O>
bool open_flag_write(Domain* D, Instance* x, std::uint32_t* st) {
    return open_flag_write(D, x, st, trace::site<R, O, trace::Text::corrupted_handle, I>,
                           trace::site<R, O, trace::Text::not_tracked, I>);
}

/// The flag of a field, or the whole flag of an array.
template <const Record& R, std::size_t I, trace::Operation O = trace::Operation::state_flag_get>
std::uint8_t state_flag_get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    if (!open_flag_read<R, I, O>(D, x, st)) return 0;
    return flag_block_for_access<R>(D, S, x)[catalogue::layout<R>.flag[I]];
}

template <const Record& R, std::size_t I, trace::Operation O = trace::Operation::state_flag_set>
void state_flag_set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t flag, std::uint32_t* st) {
    if (!open_flag_write<R, I, O>(D, x, st) || !adjust_for_flag<R, I>(D, S, x, st)) return;
    write_flag(D, S, flag_block_for_access<R>(D, S, x) + catalogue::layout<R>.flag[I], static_cast<std::uint8_t>(flag));
}

} // namespace lifecycle
} // namespace epm
