// The print form, for people: a record is a block with one entry for each field, an enumeration is one line. Nothing
// reads it back. The runtime chooses how a value's own line looks.
#pragma once

#include "frame/contents.hpp"
#include "frame/imports.hpp"
#include "text/labels.hpp"
#include "text/output.hpp"

namespace epm::text {

template <const Record& R>
std::uint32_t print_worker(Domain* D, std::uint32_t S, char* buffer, std::uint32_t indent, const char* name,
                           const Instance* x, std::uint32_t size, std::uint32_t* st);

/// The line for a number that is no enumerator has no line feed, so the next line follows on it.
template <const Enum& E>
[[gnu::noinline]] std::uint32_t print_worker(Domain* D, std::uint32_t S, char* buffer, std::uint32_t indent,
                                             const char* name, const Instance* x, std::uint32_t size,
                                             std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    Output out{D, S, buffer, size, st};
    out.add(zur_print_space(D, S, buffer, indent, size, st));
    out.add(zur_snprintf(D, S, out.next(), out.room(), st, "%s@%s:", name, E.name));
    const std::uint32_t value = enumerator_of(x);
    if (value < E.count)
        out.add(zur_snprintf(D, S, out.next(), out.room(), st, "%s\n", enumerator_names<E>[value].characters));
    else
        out.add(zur_snprintf(D, S, out.next(), out.room(), st, "Enum value out of range"));
    return out.length;
}

/// Prints a value of the type of field I, or of its elements' type.
template <const Record& R, std::size_t I>
void print_as(Output& out, std::uint32_t indent, const char* name, const void* value) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum())
        out.add(
            print_worker<*f.enumeration>(out.D, out.S, out.next(), indent, name, header(value), out.room(), out.st));
    else if constexpr (f.is_of_record())
        out.add(print_worker<*f.record>(out.D, out.S, out.next(), indent, name, header(value), out.room(), out.st));
    else
        out.add(Codec<*f.foreign>::print(out.D, out.S, out.next(), indent, name, value, out.room(), out.st));
}

/// Elements carry their index in their name. The count is read again each time.
template <const Record& R, std::size_t I>
void print_elements(Output& out, std::uint32_t indent, const Instance* x) {
    constexpr CountedText field_name = name_of<R, I>;
    char name[field_name.length + Subscript::longest + 1];
    std::memcpy(name, field_name.characters, field_name.length);
    char* end = nullptr;
    for (std::uint32_t i = 0; i < element_count<R, I>(x); ++i) {
        if (i == 0 || !count_up(end)) {
            const Subscript number(i);
            std::memcpy(name + field_name.length, number.text().characters, number.text().length);
            end = name + field_name.length + number.text().length;
            *end = 0;
        }
        print_as<R, I>(out, indent, name, element_at<R, I>(x, i));
    }
}

/// The count comes first, and all elements have the same name.
template <const Record& R, std::size_t I>
void print_list(Output& out, std::uint32_t indent, const Instance* x) {
    out.add(Codec<catalogue::u_int32>::print(out.D, out.S, out.next(), indent, label<R, I, "list ", " count">.c_str(),
                                             &field<R, I, ListHead>(x)->count, out.room(), out.st));
    for_each_list_element<R, I>(
        x, [&](const Instance* element) { print_as<R, I>(out, indent, label<R, I, "list ">.c_str(), element); });
}

template <const Record& R, std::size_t I>
void print_field(Output& out, std::uint32_t indent, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.kind == Kind::text) {
        out.add(var_string_print(out.D, out.S, out.next(), indent, f.name, *field<R, I, const char*>(x), out.room(),
                                 present_length<R, I>(x), out.st));
    } else if constexpr (f.kind == Kind::characters) {
        out.add(null_string_print(out.D, out.S, out.next(), indent, f.name, field<R, I, char>(x), out.room(),
                                  f.capacity, out.st));
    } else if constexpr (f.has_element_flags()) {
        print_elements<R, I>(out, indent, x);
    } else if constexpr (f.kind == Kind::list) {
        print_list<R, I>(out, indent, x);
    } else if constexpr (f.kind == Kind::arm) {
        const Instance* arm = *field<R, I, const Instance*>(x);
        if (is_selected<R, I>(x) && arm != nullptr) print_as<R, I>(out, indent, arm_label<R, I, "", ".">.c_str(), arm);
    } else {
        print_as<R, I>(out, indent, f.name, readable<R, I>(x));
    }
}

/// Prints the fields that the Instance's variant has. Returns false when it lacks some.
template <const Record& R, std::size_t... I>
bool print_fields(Output& out, std::uint32_t indent, const Instance* x, std::int8_t variant,
                  std::index_sequence<I...>) {
    return ((variant >= R.fields[I].since && (print_field<R, I>(out, indent, x), true)) && ...);
}

/// An Instance below its record's top variant keeps its block open: only the last field is followed by the brace.
template <const Record& R>
[[gnu::noinline]] std::uint32_t print_worker(Domain* D, std::uint32_t S, char* buffer, std::uint32_t indent,
                                             const char* name, const Instance* x, std::uint32_t size,
                                             std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    const std::int8_t variant = zur_get_instance_variant(x, 1, 0);
    Output out{D, S, buffer, size, st};
    out.add(zur_print_space(D, S, buffer, indent, size, st));
    out.add(zur_snprintf(D, S, out.next(), out.room(), st, "%s@%s: {\n", name, R.name));
    if (!print_fields<R>(out, indent + 2, x, variant, std::make_index_sequence<R.count>{})) return out.length;
    // This writes the blanks at the start of the block, where they already are, yet counts them here. So the bytes
    // between the last field and the brace keep what the buffer held. Users know the form like this.
    out.add(zur_print_space(D, S, buffer, indent, out.room(), st));
    out.add(zur_snprintf(D, S, out.next(), out.room(), st, "}\n"));
    return out.length;
}

template <const auto& T>
std::uint32_t print(Domain* D, std::uint32_t S, char* buffer, std::uint32_t indent, const char* name, const Instance* x,
                    std::uint32_t size, std::uint32_t* st) {
    return print_worker<T>(D, S, buffer, indent, name, x, size, st);
}

template <const auto& T>
std::uint32_t print_chained(Domain* D, const Instance* x, char* buffer, std::uint32_t size) {
    const std::uint32_t length = print_worker<T>(D, D->cr_set_id, buffer, 0, T.name, x, size, &D->last_error);
    return chain_result(D, length);
}

} // namespace epm::text
