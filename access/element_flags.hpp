// State flags of single elements, one byte each. A growing array's flags are in a run that the block points to; a fixed
// run's flags are in the block itself. The whole flag in front of them is an ordinary flag.
#pragma once

#include "frame/contents.hpp"
#include "lifecycle/prologue.hpp"

namespace epm::access {

/// Marks the whole flag and the element's own flag after one element has been set.
template <const Record& R, std::size_t I>
void mark_element(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t* st,
                  const FlagLayout& layout) {
    if (!is_tracking(D, layout.corrupted_site)) return;
    if (!has_flag(x, ZUR_TRACKED)) return refuse_untracked(D, st, layout.untracked_site);
    std::uint8_t* block = flag_block(D, S, x, layout);
    write_flag(D, S, block + layout.flag, ZUR_FLAG_MODIFIED);
    std::uint8_t* flags = element_flags<R, I>(block);
    if (flags != nullptr) write_flag(D, S, flags + index, ZUR_FLAG_MODIFIED);
}

/// Gives an array flags for `count` elements. The first `kept` are copied from the old run, the rest are zero. Returns
/// false when the Domain refuses memory; the array then has no element flags.
[[gnu::noinline]] inline bool replace_element_flags(Domain* D, std::uint32_t S, void** member, std::uint32_t count,
                                                    std::uint32_t kept, std::uint32_t* st) {
    std::uint8_t* former = element_flags_at(member);
    announce(D, S, member, pointer_length, nullptr);
    const bool is_done = allocate_element_flags(D, S, member, count, st);
    if (former == nullptr) return is_done;
    if (is_done) std::memcpy(*member, former, std::min(kept, count));
    release(D, S, former);
    return is_done;
}

/// Drops the element flags when a Domain that does not track changes the number of elements: the run would be too short
/// for a Domain that does.
template <const Record& R, std::size_t I>
void drop_element_flags(Domain* D, std::uint32_t S, Instance* x) {
    std::uint8_t* block = known_flag_block<R>(D, S, x);
    if (block == nullptr) return;
    auto** member = at<std::uint8_t*>(block, catalogue::layout<R>.nested[I]);
    std::uint8_t* former = element_flags_at(member);
    if (former == nullptr) return;
    release(D, S, former);
    store(D, S, member, nullptr, nullptr);
}

/// Reads the flag of one element.
template <const Record& R, std::size_t I>
std::uint8_t element_flag_get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t* st) {
    constexpr const FlagLayout& layout = lifecycle::layout_for_read<R, I, trace::Operation::state_flag_get>;
    if (!lifecycle::open_flag_read(D, x, st, layout)) return 0;
    if (index >= element_count<R, I>(x)) {
        fail(D, st, ZUR_ABSENT);
        return 0;
    }
    const std::uint8_t* flags = element_flags<R, I>(lifecycle::flag_block_for_access(D, S, x, layout));
    return flags != nullptr ? flags[index] : std::uint8_t{0};
}

template <const Record& R, std::size_t I>
void element_flag_set(Domain* D, std::uint32_t S, Instance* x, std::uint32_t index, std::uint32_t flag,
                      std::uint32_t* st) {
    constexpr const FlagLayout& layout = flag_layout<R, I, trace::Operation::state_flag_set>;
    if (!lifecycle::open_flag_write(D, x, st, layout)) return;
    if (index >= element_count<R, I>(x)) return fail(D, st, ZUR_ABSENT);
    if (!lifecycle::adjust_for_flag(D, S, x, st, layout)) return;
    std::uint8_t* flags = element_flags<R, I>(lifecycle::flag_block_for_access(D, S, x, layout));
    if (flags == nullptr) return fail(D, st, ZUR_ABSENT);
    write_flag(D, S, flags + index, static_cast<std::uint8_t>(flag));
}

/// Hands out the address of the element flags, so that a caller can read them in place.
template <const Record& R, std::size_t I>
void element_flags_get(Domain* D, std::uint32_t S, Instance* x, std::uint8_t** out, std::uint32_t* st) {
    constexpr const FlagLayout& layout = lifecycle::layout_for_read<R, I, trace::Operation::get_array>;
    if (!lifecycle::open_flag_read(D, x, st, layout)) return;
    std::uint8_t* flags = lifecycle::flag_block_for_access(D, S, x, layout) + catalogue::layout<R>.nested[I];
    *out = R.fields[I].kind == Kind::array ? *at<std::uint8_t*>(flags, 0) : flags;
}

/// Writes the bytes to the start of the record's block, not to the element flags, and does not announce them. It stops
/// at the block's end and leaves an array's pointer to its element flags alone.
template <const Record& R, std::size_t I>
void element_flags_set(Domain* D, std::uint32_t S, Instance* x, const std::uint8_t* source, std::uint32_t count,
                       std::uint32_t* st) {
    constexpr const FlagLayout& layout = flag_layout<R, I, trace::Operation::set_array>;
    if (!lifecycle::open_flag_write(D, x, st, layout)) return;
    if (count != element_count<R, I>(x)) return fail(D, st, ZUR_ABSENT);
    if (!lifecycle::adjust_for_flag(D, S, x, st, layout)) return;
    static_assert(R.variants() == 1, "the block has one length");
    std::uint8_t* block = lifecycle::flag_block_for_access(D, S, x, layout);
    const std::uint8_t* run = element_flags<R, I>(block);
    if (count != 0) std::memcpy(block, source, std::min<std::size_t>(count, catalogue::block_length<R>));
    if constexpr (R.fields[I].kind == Kind::array)
        std::memcpy(block + catalogue::layout<R>.nested[I], &run, sizeof run);
}

} // namespace epm::access
