// Moves a record from one Instance to another. It copies the bytes and the state flags, then makes the destination the
// only owner of what the fields hold.
#pragma once

#include "access/element_flags.hpp"
#include "access/plain_field.hpp"
#include "lifecycle/list.hpp"
#include "lifecycle/offsets.hpp"

namespace epm::access {

enum class Moved : std::uint8_t { nothing, body, body_with_flags };

/// The flags that describe the memory behind an Instance. They stay with the memory, wherever its content comes from.
inline constexpr std::uint8_t memory_flags = ZUR_TRACKED | ZUR_MOVED_FLAGS;

/// Offsets of the Instances inside a record that have flags of their own, the record itself first.
struct Headers {
    std::array<std::uint16_t, 20> offset{};
    std::size_t count = 0;

    constexpr Headers() = default;
    constexpr explicit Headers(const Record& r) { add(r, 0); }
    constexpr void add(const Record& r, std::size_t start) {
        offset[count++] = static_cast<std::uint16_t>(start);
        const catalogue::Layout layout = catalogue::lay_out(r);
        for (std::size_t i = 0; i < r.count; ++i) {
            if (r.fields[i].kind == Kind::embedded)
                add(*r.fields[i].record, start + layout.offset[i]);
            else if (r.fields[i].is_placed_object())
                offset[count++] = static_cast<std::uint16_t>(start + layout.offset[i]);
        }
    }
};

/// What the move of a record must know; literals of one record.
struct RecordLayout {
    FlagLayout flags; ///< the block as a whole
    std::array<std::uint16_t, catalogue::most_variants> block_length;
    Headers headers;
    bool (*reaches_flags)(Domain* D, std::uint32_t S, Instance* x); ///< null when the record has no element flags
};

template <const Record& R>
inline constexpr RecordLayout record_layout = {
    .flags = {.body = catalogue::layout<R>.body,
              .flag = 0,
              .top = R.top(),
              .since = 0,
              .is_enumerated = false,
              .corrupted_site = trace::site<R, trace::Operation::set, trace::Text::corrupted_handle>,
              .untracked_site = trace::site<R, trace::Operation::set, trace::Text::not_tracked>},
    .block_length = catalogue::layout<R>.block,
    .headers = Headers(R),
    .reaches_flags = R.any([](const Field& f) { return f.kind == Kind::array || f.kind == Kind::embedded; })
                         ? &reaches_element_flags<R>
                         : nullptr,
};

/// Copies header and fields. Each Instance keeps the flags of its own memory, and its own header block if it has one.
inline void copy_body(Instance* destination, const Instance* source, std::uint16_t length, const Headers& inside) {
    std::array<std::uint8_t, Headers{}.offset.size()> former;
    for (std::size_t i = 0; i < inside.count; ++i) former[i] = at<Instance>(destination, inside.offset[i])->flags;
    const zur_type_info* type = destination->type_info;
    const bool keeps_type = has_flag(destination, ZUR_OWN_HEADER) || has_flag(source, ZUR_OWN_HEADER);
    const auto kept = static_cast<std::uint8_t>(memory_flags | (keeps_type ? ZUR_OWN_HEADER : 0));
    std::memcpy(destination, source, length);
    if (keeps_type) destination->type_info = type;
    for (std::size_t i = 0; i < inside.count; ++i) {
        std::uint8_t& flags = at<Instance>(destination, inside.offset[i])->flags;
        flags = static_cast<std::uint8_t>((flags & ~kept) | (former[i] & kept));
    }
}

/// Moves the bytes of header and fields. A tracking Domain refuses a destination without state flags before anything is
/// copied. Without a handle the newest layout's length counts, unless the state flags lie there.
[[gnu::noinline]] inline Moved move_body(Domain* D, std::uint32_t S, Instance* destination, Instance* source,
                                         std::uint32_t* st, const RecordLayout& record) {
    const FlagLayout& layout = record.flags;
    lifecycle::adjust(D, S, destination, layout.top, st);
    if (destination == source) return Moved::nothing;
    const std::int8_t variant = zur_get_instance_variant(destination, 1, 0);
    if (variant < zur_get_instance_variant(source, 1, 0) || destination->layout_variant != source->layout_variant) {
        fail_variant(D, st);
        return Moved::nothing;
    }
    const bool tracking = is_tracking(D, layout.corrupted_site);
    const bool has_block = has_flag(destination, ZUR_TRACKED);
    if (tracking && !has_block) {
        refuse_untracked(D, st, layout.untracked_site);
        return Moved::nothing;
    }
    if (!tracking && record.reaches_flags != nullptr && !record.reaches_flags(D, S, destination)) {
        fail(D, st, ZUR_BAD_ARGUMENT);
        return Moved::nothing;
    }
    const bool is_whole = D->tracking_handle == nullptr && !has_block;
    const std::uint16_t length =
        layout.body[is_whole ? static_cast<std::size_t>(layout.top) : known_layout(destination, layout.top)];
    announce(D, S, destination, length, destination);
    copy_body(destination, source, length, record.headers);
    return tracking && has_flag(source, ZUR_TRACKED) ? Moved::body_with_flags : Moved::body;
}

/// Copies the source's block over the destination's, and returns the source's.
inline std::uint8_t* copy_block(Domain* D, std::uint32_t S, const Instance* destination, std::uint8_t* block,
                                Instance* source, const RecordLayout& layout) {
    std::uint8_t* former = flag_block(D, S, source, layout.flags);
    const std::uint16_t length = layout.block_length[known_layout(destination, layout.flags.top)];
    announce(D, S, block, length, block);
    std::memcpy(block, former, length);
    return former;
}

[[gnu::noinline]] inline void move_flags(Domain* D, std::uint32_t S, Instance* destination, Instance* source,
                                         const RecordLayout& layout) {
    copy_block(D, S, destination, flag_block(D, S, destination, layout.flags), source, layout);
}

/// Places the nested blocks first. Afterwards the destination owns the runs of element flags.
template <const Record& R>
void move_flags(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    constexpr const RecordLayout& layout = record_layout<R>;
    if constexpr (catalogue::has_nested_blocks(R) || R.any([](const Field& f) { return f.kind == Kind::array; })) {
        std::uint8_t* block = flag_block(D, S, destination, layout.flags);
        if constexpr (catalogue::has_nested_blocks(R)) lifecycle::offset_update<R>(D, S, destination, block, st);
        std::uint8_t* former = copy_block(D, S, destination, block, source, layout);
        catalogue::for_each_field<R>([&]<std::size_t I>() {
            if constexpr (R.fields[I].kind == Kind::array)
                store(D, S, at<void*>(former, catalogue::layout<R>.nested[I]), nullptr, nullptr);
        });
    } else {
        move_flags(D, S, destination, source, layout);
    }
}

/// Drops element flags that do not match the arrays which were moved in, because those have another number of elements.
template <const Record& R>
void drop_element_flags(Domain* D, std::uint32_t S, Instance* x) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if constexpr (R.fields[I].kind == Kind::array) drop_element_flags<R, I>(D, S, x);
    });
}

/// Clears in an Instance what another one owns now: the pointer, then the length.
template <const Record& R, std::size_t I>
void give_up(Domain* D, std::uint32_t S, Instance* source) {
    store(D, S, field<R, I, void*>(source), nullptr, source);
    if constexpr (R.fields[I].kind != Kind::arm) {
        constexpr std::size_t length = catalogue::companion<R, I>;
        using Value = typename FieldValue<R, length>::type;
        store(D, S, field<R, length, Value>(source), 0, source);
    }
}

/// Ends the move of one field whose bytes have been copied. An imported object is settled even under a raised status
/// word: until then both Instances own what it holds.
template <const Record& R, std::size_t I>
void settle_field(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    constexpr Kind kind = R.fields[I].kind;
    if constexpr (kind == Kind::text || kind == Kind::array || kind == Kind::arm) {
        give_up<R, I>(D, S, source);
    } else if constexpr (kind == Kind::object || kind == Kind::embedded) {
        std::uint32_t status = 0;
        assign<R, I>(D, S, field<R, I>(destination), field<R, I>(source), *st == 0 ? st : &status);
    } else if constexpr (kind == Kind::list) {
        lifecycle::move_list<R, I>(D, S, destination, source);
    }
}

/// Makes the destination of a bytewise copy the only owner. Skips fields outside the layout, because state flags may
/// lie there.
template <const Record& R>
void post_copyout_cleanup(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if (lifecycle::is_laid_out<R, I>(destination)) settle_field<R, I>(D, S, destination, source, st);
    });
}

/// Moves a record. Does not release what the destination held, and does not check the status word.
template <const Record& R>
void set(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st) {
    const Moved moved = move_body(D, S, destination, source, st, record_layout<R>);
    if (moved == Moved::nothing) return;
    if (moved == Moved::body_with_flags)
        move_flags<R>(D, S, destination, source, st);
    else
        drop_element_flags<R>(D, S, destination);
    post_copyout_cleanup<R>(D, S, destination, source, st);
}

} // namespace epm::access
