// The offsets of nested state-flag blocks. A record registers with the runtime how far each nested Instance lies from
// its slice of the outermost record's block, and removes that again.
#pragma once

#include "frame/imports.hpp"
#include "lifecycle/tracking.hpp"

namespace epm::lifecycle {

/// Whether a nested Instance has nested Instances of its own, so that offsets must be registered over several levels.
constexpr bool places_deeply(const Record& r) {
    return r.any([](const Field& f) {
        return f.is_placed_object() || (f.kind == Kind::embedded && catalogue::has_nested_blocks(*f.record));
    });
}

/// Whether the Instance's layout variant includes the field.
template <const Record& R, std::size_t I>
bool is_laid_out(const Instance* x) {
    return R.fields[I].since == 0 || known_layout(x, R.top()) >= static_cast<std::size_t>(R.fields[I].since);
}

/// Registers with the runtime where the nested blocks lie, given this record's own block.
template <const Record& R>
void offset_update(Domain* D, std::uint32_t S, Instance* x, void* sttr_base, std::uint32_t* st) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        constexpr const Field& f = R.fields[I];
        if constexpr (f.has_nested_block()) {
            if (!is_laid_out<R, I>(x)) return;
            auto* nested = field<R, I, Instance>(x);
            auto* block = at<unsigned char>(sttr_base, catalogue::layout<R>.nested[I]);
            const auto distance = static_cast<std::uint32_t>(block - reinterpret_cast<unsigned char*>(nested));
            zurlib_update_sttr_offset(D, S, nested, distance);
            if constexpr (f.is_placed_object())
                Codec<*f.foreign>::offset_update(D, S, nested, block, st);
            else
                offset_update<*f.record>(D, S, nested, block, st);
        }
    });
}

/// Removes what offset_update registered.
template <const Record& R>
void offset_remove(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        constexpr const Field& f = R.fields[I];
        if constexpr (f.has_nested_block()) {
            if (!is_laid_out<R, I>(x)) return;
            auto* nested = field<R, I, Instance>(x);
            zur_hd_mapping_destroy(D, S, nested, st);
            if constexpr (f.is_placed_object())
                Codec<*f.foreign>::offset_remove(D, S, nested, st);
            else
                offset_remove<*f.record>(D, S, nested, st);
        }
    });
}

} // namespace epm::lifecycle
