// Reads or writes all numbers of a record at once, with one argument for each. This fills a fresh Instance silently:
// writing raises no state flag and records no containment.
#pragma once

#include "access/bulk_fields.hpp"
#include "access/plain_field.hpp"

namespace epm::access {

/// A field's position among the values that get_all reads or set_all writes.
template <const Record& R, std::size_t I>
inline constexpr std::size_t
    index_in_reads = static_cast<std::size_t>(std::count_if(R.fields.begin(), R.fields.begin() + I, is_read_at_once));
template <const Record& R, std::size_t I>
inline constexpr std::size_t index_in_writes = static_cast<std::size_t>(
    std::count_if(R.fields.begin(), R.fields.begin() + I, [](const Field& f) { return is_written_at_once(R, f); }));

/// Calls f.template operator()<I>() for each field, variant by variant, and silently skips variants that the Instance
/// lacks. Stops when f returns false.
template <const Record& R, class F>
void for_each_field_by_variant(const Instance* x, F&& f) {
    const auto of_variant = [&]<std::size_t... I>(std::int8_t variant, std::index_sequence<I...>) {
        return ((R.fields[I].since != variant || f.template operator()<I>()) && ...);
    };
    for (std::int8_t variant = 0; variant <= R.top(); ++variant)
        if (zur_get_instance_variant(x, 1, 0) >= variant && !of_variant(variant, std::make_index_sequence<R.count>{}))
            return;
}

/// One pointer to an out value for each field, of the field's width.
template <const Record& R>
void get_all(Domain* D, std::uint32_t S, const Instance* x, void* const* outs, std::uint32_t* st) {
    if (*st != 0) return;
    zur_clear_last_error(D);
    for_each_field_by_variant<R>(x, [&]<std::size_t I>() {
        if constexpr (is_read_at_once(R.fields[I])) {
            using Value = typename FieldValue<R, I>::type;
            *static_cast<Value*>(outs[index_in_reads<R, I>]) = read_value<R, I>(D, S, x, st);
        }
        return true;
    });
}

/// A number of any width, so that all numbers fit into one array.
struct Number {
    std::uint64_t bits;

    template <class T>
    constexpr Number(T number) : bits(static_cast<std::uint64_t>(number)) {}
};

/// Writes without state flags and containment. Stops at the first enumeration that meets a raised status word.
template <const Record& R>
void set_all(Domain* D, std::uint32_t S, Instance* x, const Number* values, std::uint32_t* st) {
    if (*st != 0) return;
    zur_clear_last_error(D);
    lifecycle::adjust(D, S, x, R.top(), st);
    for_each_field_by_variant<R>(x, [&]<std::size_t I>() {
        constexpr const Field& f = R.fields[I];
        if constexpr (is_written_at_once(R, f)) {
            if (f.is_own_enum() && *st != 0) return false;
            using Value = typename FieldValue<R, I>::type;
            write_value<R, I>(D, S, field<R, I>(x), static_cast<Value>(values[index_in_writes<R, I>].bits), st);
        }
        return true;
    });
}

} // namespace epm::access
