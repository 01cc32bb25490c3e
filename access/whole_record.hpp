// A record as one value, moved from one Instance to another: the bytes are copied, the state flags with them, and then
// the destination is made the only owner of what the fields hold.
#pragma once

#include "access/list.hpp"
#include "access/plain_field.hpp"
#include "lifecycle/offsets.hpp"

namespace epm::access {

/// What the move of a record must know; literals of one record.
struct RecordPlace {
    FlagPlace flags; ///< the block as a whole
    std::array<std::uint16_t, catalogue::most_variants> block_length;
};

template <const Record& R>
inline constexpr RecordPlace record_place = {
    .flags = {.body = catalogue::layout<R>.body,
              .flag = 0,
              .top = R.top(),
              .since = 0,
              .is_enumerated = false,
              .corrupted_site = trace::site<R, trace::Operation::set, trace::Text::corrupted_handle>,
              .untracked_site = trace::site<R, trace::Operation::set, trace::Text::not_tracked>},
    .block_length = catalogue::layout<R>.block,
};

enum class Moved : std::uint8_t { nothing, body, body_with_flags };

/// Moves the bytes of header and fields. With no handle the newest layout's length counts, and the flags byte stays as
/// it comes from the source. A refusal for want of state flags comes only after that, so that both Instances then refer
/// to the same memory.
[[gnu::noinline]] inline Moved move_body(Domain* D, std::uint32_t S, Instance* destination, Instance* source,
                                         std::uint32_t* st, const FlagPlace& place) {
    lifecycle::adjust(D, S, destination, place.top, st);
    if (destination == source) return Moved::nothing;
    const std::int8_t variant = zur_get_instance_variant(destination, 1, 0);
    if (variant < zur_get_instance_variant(source, 1, 0) || destination->layout_variant != source->layout_variant) {
        fail_variant(D, st);
        return Moved::nothing;
    }
    const bool tracking = is_tracking(D, place.corrupted_site);
    const bool has_handle = D->tracking_handle != nullptr;
    const std::uint8_t former = destination->flags;
    const std::int8_t shape = has_handle ? destination->layout_variant : place.top;
    const std::uint16_t length = place.body[static_cast<std::size_t>(shape)];
    announce(D, S, destination, length, destination);
    std::memcpy(destination, source, length);
    if (has_handle)
        destination->flags =
            static_cast<std::uint8_t>((destination->flags & ~ZUR_MOVED_FLAGS) | (former & ZUR_MOVED_FLAGS));
    if (!tracking) return Moved::body;
    if (!has_flag(destination, ZUR_TRACKED)) {
        refuse_untracked(D, st, place.untracked_site);
        return Moved::nothing;
    }
    return has_flag(source, ZUR_TRACKED) ? Moved::body_with_flags : Moved::body;
}

/// Copies the source's block over the destination's, and returns the source's.
inline std::uint8_t* copy_block(Domain* D, std::uint32_t S, const Instance* destination, std::uint8_t* block,
                                Instance* source, const RecordPlace& place) {
    std::uint8_t* former = flag_block(D, S, source, place.flags);
    const std::uint16_t length = place.block_length[static_cast<std::size_t>(destination->layout_variant)];
    announce(D, S, block, length, block);
    std::memcpy(block, former, length);
    return former;
}

[[gnu::noinline]] inline void move_flags(Domain* D, std::uint32_t S, Instance* destination, Instance* source,
                                         const RecordPlace& place) {
    copy_block(D, S, destination, flag_block(D, S, destination, place.flags), source, place);
}

/// Nested blocks are given their places first; a run of element flags belongs to the destination afterwards.
template <const Record& R>
void move_flags(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    constexpr const RecordPlace& place = record_place<R>;
    if constexpr (catalogue::has_nested_blocks(R) || R.any([](const Field& f) { return f.kind == Kind::array; })) {
        std::uint8_t* block = flag_block(D, S, destination, place.flags);
        if constexpr (catalogue::has_nested_blocks(R)) lifecycle::offset_update<R>(D, S, destination, block, st);
        std::uint8_t* former = copy_block(D, S, destination, block, source, place);
        catalogue::for_each_field<R>([&]<std::size_t I>() {
            if constexpr (R.fields[I].kind == Kind::array)
                store(D, S, at<void*>(former, catalogue::layout<R>.nested[I]), nullptr, nullptr);
        });
    } else {
        move_flags(D, S, destination, source, place);
    }
}

/// Takes from an Instance what another one owns now: the pointer, then the length.
template <const Record& R, std::size_t I>
void give_up(Domain* D, std::uint32_t S, Instance* source) {
    store(D, S, field<R, I, void*>(source), nullptr, source);
    if constexpr (R.fields[I].kind != Kind::arm) {
        constexpr std::size_t length = catalogue::companion<R, I>;
        using Value = typename FieldValue<R, length>::type;
        store(D, S, field<R, length, Value>(source), 0, source);
    }
}

/// Ends the move of one field whose bytes have been copied.
template <const Record& R, std::size_t I>
void settle_field(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    constexpr Kind kind = R.fields[I].kind;
    if constexpr (kind == Kind::text || kind == Kind::array || kind == Kind::arm)
        give_up<R, I>(D, S, source);
    else if constexpr (kind == Kind::object || kind == Kind::embedded)
        assign<R, I>(D, S, field<R, I>(destination), field<R, I>(source), st);
    else if constexpr (kind == Kind::list)
        move_list<R, I>(D, S, destination, source);
}

/// Makes the destination of a copy by bytes the only owner. Where a field is not laid out, the state flags may lie.
template <const Record& R>
void post_copyout_cleanup(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if (lifecycle::is_laid_out<R, I>(destination)) settle_field<R, I>(D, S, destination, source, st);
    });
}

/// Moves a record. What the destination held is not released; the status word is not looked at.
template <const Record& R>
void set(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    const Moved moved = move_body(D, S, destination, source, st, record_place<R>.flags);
    if (moved == Moved::nothing) return;
    if (moved == Moved::body_with_flags) move_flags<R>(D, S, destination, source, st);
    post_copyout_cleanup<R>(D, S, destination, source, st);
}

} // namespace epm::access
