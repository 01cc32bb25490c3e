// Marks an Instance as lying inside another block; computes the sizes of its memory by mode and layout variant.
#pragma once

#include "lifecycle/create.hpp"

namespace epm::lifecycle {

inline void add_embedded_flag(Domain* D, std::uint32_t S, Instance* x) {
    store(D, S, &x->flags, static_cast<std::uint8_t>(x->flags | ZUR_EMBEDDED), x);
}

template <const Enum& E>
void set_instance_embedded(Domain* D, std::uint32_t S, Instance* x) {
    if (x == nullptr) {
        trace::plain(trace::enum_site<E, trace::Operation::set_embedded, trace::Text::embedded_no_enum>,
                     trace::failure);
        return;
    }
    add_embedded_flag(D, S, x);
}

/// Marks the children first, the record itself last.
template <const Record& R>
void set_instance_embedded(Domain* D, std::uint32_t S, Instance* x) {
    if (x == nullptr) {
        trace::plain(trace::site<R, trace::Operation::set_embedded, trace::Text::embedded_nothing>, trace::failure);
        return;
    }
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        constexpr const Field& f = R.fields[I];
        if constexpr (f.is_own_enum())
            set_instance_embedded<*f.enumeration>(D, S, field<R, I, Instance>(x));
        else if constexpr (f.kind == Kind::embedded)
            set_instance_embedded<*f.record>(D, S, field<R, I, Instance>(x));
        else if constexpr (f.is_foreign_initialized())
            Codec<*f.foreign>::set_instance_embedded(D, S, field<R, I>(x));
    });
    add_embedded_flag(D, S, x);
}

/// Bytes of an Instance's memory, of its state flags, or of both, by its layout variant.
template <const Record& R>
std::uint32_t size_of_parts(const Domain* D, const Instance* x, std::uint32_t with_flags, std::uint32_t flags_only) {
    using trace::site, trace::Operation, trace::Text;
    if (D->tracking_handle == nullptr) return flags_only != 0 ? 0 : static_cast<std::uint32_t>(catalogue::size<R>);
    const bool tracking = is_tracking(D, site<R, Operation::sizing, Text::corrupted_handle>);
    const auto shape = x != nullptr ? known_layout(x, R.top()) : static_cast<std::size_t>(R.top());
    const std::uint32_t body = catalogue::layout<R>.body[shape];
    const std::uint32_t flags = tracking ? catalogue::layout<R>.block[shape] : 0;
    if (flags_only != 0) return flags;
    return with_flags != 0 ? body + flags : body;
}

/// Fills the Instance's whole block and the element flags of its arrays. That overwrites the block's pointer to element
/// flags too, unless the array has elements: then the pointer is kept and the flags that it names are filled.
template <const Record& R>
void set_all_state_tracking_flag(Domain* D, std::uint32_t S, Instance* x, std::uint32_t value) {
    const zur_tracking_handle* handle = D->tracking_handle;
    if (handle == nullptr || handle->handle_kind != ZUR_TRACKED_MODE) return;
    if (x == nullptr || !has_flag(x, ZUR_TRACKED)) return;
    std::uint8_t* block = flag_block<R>(D, S, x);
    const auto byte = static_cast<std::uint8_t>(value);
    std::array<std::uint8_t*, R.count> former{};
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if constexpr (R.fields[I].kind == Kind::array)
            if (element_count<R, I>(x) != 0) former[I] = element_flags_at(block + catalogue::layout<R>.nested[I]);
    });
    std::memset(block, byte, catalogue::layout<R>.block[known_layout(x, R.top())]);
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if constexpr (R.fields[I].kind == Kind::array) {
            const std::uint32_t count = element_count<R, I>(x);
            if (count == 0) return;
            std::memcpy(block + catalogue::layout<R>.nested[I], &former[I], sizeof former[I]);
            if (former[I] != nullptr) std::memset(former[I], byte, count);
        }
    });
}

} // namespace epm::lifecycle
