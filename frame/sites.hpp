// The trace catalogue's entries and their indices. An entry's key is type, operation, field and text. Its index is its
// position in the list built here, so a call site states what it is and the compiler finds the number. Entries are
// sorted by type, enumerations first, then by operation.
#pragma once

#include "catalogue/catalogue.hpp"
#include "frame/trace.hpp"

#include <type_traits>

namespace epm::trace {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Kind;
using catalogue::Record;

enum class Operation : std::uint8_t {
    create,
    initialize,
    set_embedded,
    oid_count,
    object_references,
    destroy,
    sizing, ///< the choice of an allocation's size, which several operations share
    set,
    unlink, ///< a list element leaving its list as it is destroyed
    drain,  ///< a list's elements destroyed with their owner
    marshal,
    unmarshal,
    length,
    copyout,
    to_xml,
    usage,
    state_flag_get,
    state_flag_set,
    whole_get,
    whole_set,
    get_array,
    set_array,
    field_set,
    field_set_value,
    field_set_memory,
    detach,
    set_first,
    set_last,
    set_before,
    set_after,
    remove,
    get_cr,
    add_cr,
    spare, ///< catalogued and never traced
};

inline constexpr std::uint8_t whole_record = 0xFF;

struct Entry {
    Operation operation;
    Text text;
    std::uint8_t field;
    std::uint8_t nth; ///< distinguishes entries that are otherwise alike

    friend constexpr bool operator==(const Entry&, const Entry&) = default;
};

/// The entries of one type, in order.
struct Entries {
    std::array<Entry, 256> list{};
    std::size_t count = 0;

    constexpr void add(Operation operation, Text text, std::uint8_t field = whole_record) {
        Entry e{operation, text, field, 0};
        for (std::size_t i = 0; i < count; ++i)
            if (list[i].operation == operation && list[i].text == text && list[i].field == field) ++e.nth;
        list[count++] = e;
    }
    constexpr void add(Operation operation, std::initializer_list<Text> several, std::uint8_t field = whole_record) {
        for (Text text : several) add(operation, text, field);
    }
    constexpr void repeat(std::size_t times, Operation operation, Text text, std::uint8_t field) {
        for (std::size_t i = 0; i < times; ++i) add(operation, text, field);
    }
    constexpr std::size_t find(const Entry& entry) const {
        std::size_t i = 0;
        while (i < count && !(list[i] == entry)) ++i;
        return i;
    }
};

inline constexpr std::size_t link_writes = 5;   ///< link writes of one insertion or removal
inline constexpr std::size_t splice_writes = 9; ///< link writes that move a whole list
inline constexpr std::size_t spare_writes = 3;

namespace detail {

/// The end of a setter: the mode test, and the refusal of an Instance without state flags.
constexpr void add_setter(Entries& e, Operation operation, std::uint8_t field) {
    e.add(operation, {Text::corrupted_handle, Text::not_tracked}, field);
}

constexpr void add_flag_operations(Entries& e, const Field& f, std::uint8_t i) {
    using enum Operation;
    const auto reads = {Text::corrupted_handle, Text::not_tracked_on_read};
    const auto writes = {Text::corrupted_handle, Text::not_tracked};
    e.add(state_flag_get, reads, i);
    e.add(state_flag_set, writes, i);
    if (!f.has_element_flags()) return;
    e.add(whole_get, reads, i);
    e.add(whole_set, writes, i);
    e.add(get_array, reads, i);
    e.add(set_array, writes, i);
}

constexpr void add_array_setters(Entries& e, const Field& f, std::uint8_t i) {
    using enum Operation;
    if (f.kind == Kind::array) {
        add_setter(e, field_set, i);
        e.add(field_set, Text::reallocating, i);
    }
    add_setter(e, field_set, i);
    if (f.is_of_record()) {
        add_setter(e, field_set, i);
        e.add(field_set, Text::value_not_tracked, i);
        return;
    }
    add_setter(e, field_set_value, i);
    add_setter(e, field_set_memory, i);
    if (f.kind == Kind::run) add_setter(e, field_set_memory, i);
}

constexpr void add_list_operations(Entries& e, std::uint8_t i) {
    using enum Operation;
    for (Operation operation : {set_first, set_last, set_before, set_after}) {
        e.repeat(link_writes, operation, Text::range_refused, i);
        add_setter(e, operation, i);
    }
    e.repeat(link_writes, remove, Text::range_refused, i);
    e.add(get_cr, Text::bad_get_flag, i);
    e.add(add_cr, Text::bad_add_flag, i);
    e.repeat(splice_writes, copyout, Text::range_refused, i);
    e.repeat(spare_writes, spare, Text::range_refused, i);
}

constexpr void add_field(Entries& e, const Field& f, std::uint8_t i) {
    using enum Operation;
    add_flag_operations(e, f, i);
    switch (f.kind) {
    case Kind::value:
        add_setter(e, field_set, i);
        add_setter(e, field_set_value, i);
        break;
    case Kind::arm:
        add_setter(e, field_set, i);
        e.add(field_set, Text::value_not_tracked, i);
        add_setter(e, detach, i);
        break;
    case Kind::array:
    case Kind::run: add_array_setters(e, f, i); break;
    case Kind::list: add_list_operations(e, i); break;
    default: add_setter(e, field_set, i); break;
    }
}

constexpr void add_teardown(Entries& e, const Field& f, std::uint8_t i) {
    using enum Operation;
    if (f.kind == Kind::object || f.kind == Kind::embedded)
        e.add(destroy, {Text::references_not_read, Text::reference_not_dropped}, i);
    if (f.kind == Kind::list) e.repeat(link_writes, drain, Text::range_refused, i);
}

/// Entries for asking an Instance for its references; every type has them.
constexpr void add_references(Entries& e) {
    using enum Operation;
    e.add(oid_count, {Text::oid_count_after_error, Text::oid_count_of_nothing});
    e.add(object_references, {Text::references_after_error, Text::references_of_nothing});
}

} // namespace detail

constexpr Entries entries_of(const Enum&) {
    using enum Operation;
    Entries e;
    e.add(create, {Text::enum_not_created, Text::no_variant_table, Text::variant_not_present, Text::counting_failed});
    e.add(set_embedded, Text::embedded_no_enum);
    detail::add_references(e);
    e.add(destroy, {Text::no_variant_table, Text::variant_not_present, Text::counting_failed, Text::type_info_damaged});
    return e;
}

constexpr Entries entries_of(const Record& r) {
    using enum Operation;
    Entries e;
    e.add(create, Text::record_not_created);
    e.add(initialize,
          {Text::corrupted_handle, Text::no_variant_table, Text::variant_not_present, Text::no_block_for_nested});
    e.add(set_embedded, Text::embedded_nothing);
    detail::add_references(e);
    e.add(destroy, {Text::oid_mapping_kept, Text::still_referenced, Text::oid_mapping_removed});
    if (r.is_linked()) e.repeat(link_writes, unlink, Text::range_refused, whole_record);
    for (std::size_t i = 0; i < r.count; ++i) detail::add_teardown(e, r.fields[i], static_cast<std::uint8_t>(i));
    e.add(destroy, {Text::corrupted_handle, Text::type_info_damaged, Text::no_variant_table, Text::variant_not_present,
                    Text::oid_mapping_kept});
    e.add(sizing, Text::corrupted_handle);
    for (std::size_t i = 0; i < r.count; ++i)
        if (r.fields[i].is_tracked()) detail::add_field(e, r.fields[i], static_cast<std::uint8_t>(i));
    e.add(set, {Text::corrupted_handle, Text::not_tracked});
    e.add(marshal, Text::corrupted_handle);
    e.add(unmarshal, {Text::corrupted_handle, Text::tracking_mismatch});
    for (std::size_t i = 0; i < r.count; ++i) {
        if (r.fields[i].kind != Kind::list) continue;
        e.repeat(link_writes, unmarshal, Text::range_refused, static_cast<std::uint8_t>(i));
        e.add(unmarshal, Text::list_element_not_read, static_cast<std::uint8_t>(i));
    }
    e.add(unmarshal, Text::jumped);
    e.add(length, Text::corrupted_handle);
    e.add(to_xml, Text::corrupted_handle);
    return e;
}

template <const Record& R>
inline constexpr Entries record_entries = entries_of(R);

template <const Enum& E>
inline constexpr Entries enum_entries = entries_of(E);

namespace detail {

inline constexpr std::size_t entries_of_enums = [] {
    std::size_t n = 0;
    for (const Enum* e : catalogue::all_enums) n += entries_of(*e).count;
    return n;
}();

/// Index of the first entry of each record; after the last record, that of the usage dump.
inline constexpr auto first_of_records = [] {
    std::array<std::uint32_t, catalogue::all_records.size() + 1> first{};
    std::size_t n = entries_of_enums;
    for (std::size_t i = 0; i < catalogue::all_records.size(); ++i) {
        first[i] = static_cast<std::uint32_t>(n);
        n += entries_of(*catalogue::all_records[i]).count;
    }
    first.back() = static_cast<std::uint32_t>(n);
    return first;
}();

template <class List, class T>
constexpr std::size_t index_in(const List& list, const T& type) {
    std::size_t i = 0;
    while (list[i] != &type) ++i;
    return i;
}

template <const Entries& E>
constexpr std::size_t find(const Entry& entry) {
    return E.find(entry);
}

} // namespace detail

/// Index of a record's entry.
template <const Record& R, Operation O, Text T, std::size_t I = whole_record, std::size_t N = 0>
inline constexpr std::uint32_t site = [] {
    constexpr std::size_t index =
        record_entries<R>.find({O, T, static_cast<std::uint8_t>(I), static_cast<std::uint8_t>(N)});
    static_assert(index < record_entries<R>.count, "the catalogue has no such entry");
    return detail::first_of_records[detail::index_in(catalogue::all_records, R)] + static_cast<std::uint32_t>(index);
}();

/// Index of an enumeration's entry.
template <const Enum& E, Operation O, Text T>
inline constexpr std::uint32_t enum_site = [] {
    constexpr std::size_t index = enum_entries<E>.find({O, T, whole_record, 0});
    static_assert(index < enum_entries<E>.count, "the catalogue has no such entry");
    return static_cast<std::uint32_t>(detail::index_in(catalogue::all_enums, E) * enum_entries<E>.count + index);
}();

/// Index of an entry that records and enumerations share.
template <const auto& T, Operation O, Text X>
inline constexpr std::uint32_t type_site = [] {
    if constexpr (std::is_same_v<decltype(T), const Record&>)
        return site<T, O, X>;
    else
        return enum_site<T, O, X>;
}();

inline constexpr std::uint32_t usage_site = detail::first_of_records.back();
inline constexpr std::size_t entry_count = usage_site + 1;

} // namespace epm::trace
