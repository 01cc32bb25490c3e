// State tracking for all operations: the Domain's mode, the offset of an Instance's state-flag block, the mark that a
// setter leaves, and the flag operations that are the same for all kinds of field.
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

/// The standard offset of the block: behind the memory of the Instance's layout variant.
template <const Record& R>
std::size_t standard_offset(const Instance* x) {
    if (R.variants() == 1 || x->layout_variant == R.top()) [[likely]]
        return catalogue::size<R>;
    return catalogue::layout<R>.body[known_layout(x, R.top())];
}

/// The Instance's state-flag block, which it must have: at the standard offset unless it was moved.
inline std::uint8_t* flag_block(Domain* D, std::uint32_t S, Instance* x, std::size_t standard) {
    return at<std::uint8_t>(x, has_flag(x, ZUR_MOVED_FLAGS) ? zurlib_get_sttr_offset(D, S, x) : standard);
}

template <const Record& R>
std::uint8_t* flag_block(Domain* D, std::uint32_t S, Instance* x) {
    return flag_block(D, S, x, standard_offset<R>(x));
}

/// The Instance's block if it is certainly its own, else null. Only another Domain may know where a nested Instance's
/// block is; the runtime then names the bytes directly behind the Instance, which belong to something else.
template <const Record& R>
std::uint8_t* known_flag_block(Domain* D, std::uint32_t S, Instance* x) {
    if (!has_flag(x, ZUR_TRACKED)) return nullptr;
    std::uint8_t* block = flag_block<R>(D, S, x);
    if (!has_flag(x, ZUR_NESTED) && !has_flag(x, ZUR_MOVED_FLAGS)) return block;
    const auto* behind = at<std::uint8_t>(x, catalogue::size<R>);
    return block > behind || (block == behind && !has_flag(x, ZUR_NESTED)) ? block : nullptr;
}

/// Whether a Domain that does not track can reach the element flags of all arrays in a record, so that it may change
/// the number of elements.
template <const Record& R>
bool reaches_element_flags(Domain* D, std::uint32_t S, Instance* x) {
    bool result = true;
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if constexpr (R.fields[I].kind == Kind::embedded)
            result = result && reaches_element_flags<*R.fields[I].record>(D, S, field<R, I, Instance>(x));
        else if constexpr (R.fields[I].kind == Kind::array)
            result = result && (!has_flag(x, ZUR_TRACKED) || known_flag_block<R>(D, S, x) != nullptr);
    });
    return result;
}

/// Announces and stores one state flag.
inline void write_flag(Domain* D, std::uint32_t S, std::uint8_t* flag, std::uint8_t value) {
    store(D, S, flag, value, nullptr);
}

/// Gives a zeroed run of element flags to the block's pointer member. Returns false when the Domain refuses memory; the
/// member is then null.
[[gnu::noinline]] inline bool allocate_element_flags(Domain* D, std::uint32_t S, void** member, std::uint32_t count,
                                                     std::uint32_t* st) {
    *member = allocate(D, S, count);
    if (*member == nullptr) {
        fail(D, st, ZUR_NO_MEMORY);
        return false;
    }
    std::memset(*member, 0, count);
    return true;
}

/// Refuses a setter that meets an Instance without state flags in a tracking Domain.
[[gnu::cold, gnu::noinline]] inline void refuse_untracked(Domain* D, std::uint32_t* st, std::uint32_t site) {
    fail(D, st, ZUR_BAD_ARGUMENT);
    trace::plain(site, trace::failure);
}

/// Where one state flag of a record lies, and what its operations need; constants for one field and operation.
struct FlagLayout {
    std::array<std::uint16_t, catalogue::most_variants> body; ///< standard offset of the block, by layout variant
    std::uint16_t flag;                                       ///< of the flag, from the block's start
    std::int8_t top;
    std::int8_t since;
    bool is_enumerated;
    std::uint32_t corrupted_site;
    std::uint32_t untracked_site;
};

template <const Record& R, std::size_t I, trace::Operation O, trace::Text untracked = trace::Text::not_tracked,
          std::size_t N = 0>
inline constexpr FlagLayout flag_layout = {
    .body = catalogue::layout<R>.body,
    .flag = catalogue::layout<R>.flag[I],
    .top = R.top(),
    .since = R.fields[I].since,
    .is_enumerated = R.fields[I].is_enumerated(),
    .corrupted_site = trace::site<R, O, trace::Text::corrupted_handle, I, N>,
    .untracked_site = trace::site<R, O, untracked, I, N>,
};

/// The Instance's block, for code that has a field's FlagLayout instead of its template arguments.
inline std::uint8_t* flag_block(Domain* D, std::uint32_t S, Instance* x, const FlagLayout& layout) {
    return flag_block(D, S, x, layout.body[known_layout(x, layout.top)]);
}

[[gnu::noinline]] inline bool mark_tracked(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st,
                                           const FlagLayout& layout, std::uint8_t value) {
    if (!is_tracking(D, layout.corrupted_site)) return true;
    if (!has_flag(x, ZUR_TRACKED)) {
        refuse_untracked(D, st, layout.untracked_site);
        return false;
    }
    write_flag(D, S, flag_block(D, S, x, layout) + layout.flag, value);
    return true;
}

/// Every setter calls this after it has stored its field: in tracked mode the field's flag becomes `value`. Returns
/// false and leaves the error when the Instance has no flags; the setter then stops.
inline bool mark(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st, const FlagLayout& layout,
                 std::uint8_t value = ZUR_FLAG_MODIFIED) {
    return D->tracking_handle == nullptr || mark_tracked(D, S, x, st, layout, value);
}

template <const Record& R, std::size_t I, trace::Operation O, std::uint8_t value = ZUR_FLAG_MODIFIED>
bool mark(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return mark(D, S, x, st, flag_layout<R, I, O>, value);
}

namespace lifecycle {

/// Whether the Domain's mode allows access to state flags: a tracking Domain does, and one without a handle too.
inline bool admits_flag_access(Domain* D, std::uint32_t* st, std::uint32_t site) {
    const zur_tracking_handle* handle = D->tracking_handle;
    if (handle == nullptr || handle->handle_kind == ZUR_TRACKED_MODE) return true;
    if (handle->handle_kind != ZUR_UNTRACKED_MODE) trace::die(site);
    fail(D, st, ZUR_BAD_ARGUMENT);
    return false;
}

/// The block that the flag operations use. Without a handle it is that of the newest layout.
inline std::uint8_t* flag_block_for_access(Domain* D, std::uint32_t S, Instance* x, const FlagLayout& layout) {
    const auto top = static_cast<std::size_t>(layout.top);
    return flag_block(D, S, x, layout.body[D->tracking_handle == nullptr ? top : known_layout(x, layout.top)]);
}

/// Opens every flag read. Returns false when the error is left.
inline bool open_flag_read(Domain* D, Instance* x, std::uint32_t* st, const FlagLayout& layout) {
    if (*st != 0 || !admits_flag_access(D, st, layout.corrupted_site)) return false;
    if (x != nullptr && has_flag(x, ZUR_TRACKED)) return true;
    refuse_untracked(D, st, layout.untracked_site);
    return false;
}

/// Opens every flag write, up to the adjustment of the variant. Here the trace comes before the error.
inline bool open_flag_write(Domain* D, Instance* x, std::uint32_t* st, const FlagLayout& layout) {
    if (*st != 0 || !admits_flag_access(D, st, layout.corrupted_site)) return false;
    if (x != nullptr && has_flag(x, ZUR_TRACKED)) return true;
    trace::plain(layout.untracked_site, trace::failure);
    fail(D, st, ZUR_BAD_ARGUMENT);
    return false;
}

/// Adjusts the variant before a flag write and tests it.
inline bool adjust_for_flag(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st, const FlagLayout& layout) {
    zurlib_adjust_variant(D, S, x, zur_get_manifested_type_info(x), layout.top, st);
    return in_variant(D, x, layout.since, layout.is_enumerated, st);
}

[[gnu::noinline]] inline std::uint8_t read_flag_at(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st,
                                                   const FlagLayout& layout) {
    if (!open_flag_read(D, x, st, layout)) return 0;
    return flag_block_for_access(D, S, x, layout)[layout.flag];
}

[[gnu::noinline]] inline void write_flag_at(Domain* D, std::uint32_t S, Instance* x, std::uint32_t flag,
                                            std::uint32_t* st, const FlagLayout& layout) {
    if (!open_flag_write(D, x, st, layout) || !adjust_for_flag(D, S, x, st, layout)) return;
    write_flag(D, S, flag_block_for_access(D, S, x, layout) + layout.flag, static_cast<std::uint8_t>(flag));
}

/// What the flag reads of one field, or of an array's whole flag, need.
template <const Record& R, std::size_t I, trace::Operation O>
inline constexpr const FlagLayout& layout_for_read = flag_layout<R, I, O, trace::Text::not_tracked_on_read>;

/// The flag of a field, or the whole flag of an array.
template <const Record& R, std::size_t I, trace::Operation O = trace::Operation::state_flag_get>
std::uint8_t state_flag_get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return read_flag_at(D, S, x, st, layout_for_read<R, I, O>);
}

template <const Record& R, std::size_t I, trace::Operation O = trace::Operation::state_flag_set>
void state_flag_set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t flag, std::uint32_t* st) {
    write_flag_at(D, S, x, flag, st, flag_layout<R, I, O>);
}

} // namespace lifecycle
} // namespace epm
