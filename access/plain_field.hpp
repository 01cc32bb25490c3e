// Fields that lie in the record as one value: numbers, enumerated values, lengths, imported objects, embedded records.
// They differ only in the operation that reads and writes the storage: an imported one, or the Bundle's own for the
// type of a nested Instance.
#pragma once

#include "access/enum_value.hpp"

namespace epm::access {

template <const Record& R>
void set(Domain* D, std::uint32_t S, Instance* destination, Instance* source, std::uint32_t* st);

template <const Record& R, std::size_t I>
inline constexpr bool is_plain = R.fields[I].kind == Kind::value || R.fields[I].kind == Kind::length ||
                                 R.fields[I].kind == Kind::object || R.fields[I].kind == Kind::embedded;

/// Whether the field, or its element, is an Instance of one of the Bundle's own types; otherwise imported operations
/// read and write it.
template <const Record& R, std::size_t I>
inline constexpr bool is_own_enum = R.fields[I].is_own_enum();
template <const Record& R, std::size_t I>
inline constexpr bool is_imported = R.fields[I].of == catalogue::Of::foreign;

/// Records a nested Instance of the Bundle's own types twice: by itself, then as its parent's.
inline Instance* hand_out_nested(Domain* D, std::uint32_t S, Instance* nested, const Instance* parent) {
    record_containment(D, S, nested, nullptr);
    record_containment(D, S, nested, parent);
    return nested;
}

template <const Record& R, std::size_t I>
void* storage(const Instance* x) {
    return x != nullptr ? const_cast<void*>(readable<R, I>(x)) : nullptr;
}

template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void* get_here(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    if (!open_read(D, x, gate<R, I>, st)) return nullptr;
    if constexpr (!is_imported<R, I>) {
        return hand_out_nested(D, S, header(storage<R, I>(x)), x);
    } else {
        void* pointer = Codec<*R.fields[I].foreign>::get(D, S, storage<R, I>(x), st);
        record_containment(D, S, pointer, x);
        return pointer;
    }
}
template <const Record& R, std::size_t I>
[[gnu::noinline]] void* get_by_calls(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    return get_here<R, I>(D, S, x, st);
}
template <const Record& R, std::size_t I>
requires is_plain<R, I>
void* get(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* st) {
    if constexpr (!is_imported<R, I> || plain::is_bytes(*R.fields[I].foreign))
        if (open_read_plainly(D, x, gate<R, I>, st)) return field<R, I>(x);
    return get_by_calls<R, I>(D, S, x, st);
}

/// The C type of a field's value, or of an element's.
template <const Record& R, std::size_t I>
struct FieldValue;
template <const Record& R, std::size_t I>
requires is_imported<R, I>
struct FieldValue<R, I> {
    using type = typename Codec<*R.fields[I].foreign>::Value;
};
template <const Record& R, std::size_t I>
requires is_own_enum<R, I>
struct FieldValue<R, I> {
    using type = std::uint32_t;
};

/// Reads a value after the prologue.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline typename FieldValue<R, I>::type read_value(Domain* D, std::uint32_t S, const Instance* x,
                                                                         std::uint32_t* st) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum()) {
        if (x == nullptr) return 0;
        return get_value<*f.enumeration>(D, S, hand_out_nested(D, S, header(storage<R, I>(x)), x), st);
    } else {
        void* pointer = Codec<*f.foreign>::get(D, S, storage<R, I>(x), st);
        if (pointer == nullptr) return 0;
        record_containment(D, S, pointer, x);
        return Codec<*f.foreign>::get_value(D, S, pointer, st);
    }
}

template <const Record& R, std::size_t I>
[[gnu::noinline]] typename FieldValue<R, I>::type get_value_by_calls(Domain* D, std::uint32_t S, const Instance* x,
                                                                     std::uint32_t* st) {
    if (!open_read(D, x, gate<R, I>, st)) return 0;
    return read_value<R, I>(D, S, x, st);
}
template <const Record& R, std::size_t I>
typename FieldValue<R, I>::type get_value(Domain* D, std::uint32_t S, const Instance* x, std::uint32_t* st) {
    if constexpr (is_own_enum<R, I> || plain::is_number(*R.fields[I].foreign))
        if (open_read_plainly(D, x, gate<R, I>, st)) {
            if constexpr (is_own_enum<R, I>)
                return enumerator_of(field<R, I, Instance>(x));
            else
                return *static_cast<const typename FieldValue<R, I>::type*>(readable<R, I>(x));
        }
    return get_value_by_calls<R, I>(D, S, x, st);
}

/// Writes the source's content into a field's storage. The content of an object or record moves.
template <const Record& R, std::size_t I>
void assign(Domain* D, std::uint32_t S, void* destination, void* source, std::uint32_t* st) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum())
        set_enum(D, S, header(destination), header(source), limits<*f.enumeration>, st);
    else if constexpr (f.is_of_record())
        set<*f.record>(D, S, header(destination), header(source), st);
    else
        Codec<*f.foreign>::set(D, S, destination, source, st);
}

/// Raises the flag whatever the primitive reports, because it may have written something.
template <const Record& R, std::size_t I>
requires is_plain<R, I>
void set(Domain* D, std::uint32_t S, Instance* x, void* source, std::uint32_t* st) {
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    assign<R, I>(D, S, field<R, I>(x), source, st);
    if (mark<R, I, trace::Operation::field_set>(D, S, x, st)) record_containment(D, S, source, x);
}

template <const Record& R, std::size_t I>
void write_value(Domain* D, std::uint32_t S, void* address, typename FieldValue<R, I>::type value, std::uint32_t* st) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum())
        set_enum_value(D, S, header(address), value, limits<*f.enumeration>, st);
    else
        Codec<*f.foreign>::set_value(D, S, address, value, st);
}

template <const Record& R, std::size_t I>
[[gnu::noinline]] void set_value_by_calls(Domain* D, std::uint32_t S, Instance* x,
                                          typename FieldValue<R, I>::type value, std::uint32_t* st) {
    if (!open_write(D, S, x, gate<R, I>, st)) return;
    void* pointer = get_here<R, I>(D, S, x, st);
    record_containment(D, S, pointer, x);
    if (*st != 0) return;
    if (pointer == nullptr) return fail(D, st, ZUR_ABSENT);
    write_value<R, I>(D, S, pointer, value, st);
    mark<R, I, trace::Operation::field_set_value>(D, S, x, st);
}

template <const Record& R, std::size_t I>
void set_value(Domain* D, std::uint32_t S, Instance* x, typename FieldValue<R, I>::type value, std::uint32_t* st) {
    if constexpr (is_imported<R, I> && plain::is_number(*R.fields[I].foreign))
        if (plain::is_idle(D) && D->tracking_handle == nullptr && D->containment_on == 0 &&
            open_write_plainly(D, x, gate<R, I>, st)) {
            *field<R, I, typename FieldValue<R, I>::type>(x) = value;
            return;
        }
    set_value_by_calls<R, I>(D, S, x, value, st);
}

} // namespace epm::access
