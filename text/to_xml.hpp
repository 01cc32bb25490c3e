// The XML writer: one element for each field, named after it; in tracked mode with the field's state flag. The runtime
// chooses how tags and values are spelled. from_xml.hpp has the reader.
#pragma once

#include "access/element_flags.hpp"
#include "frame/contents.hpp"
#include "frame/imports.hpp"
#include "lifecycle/tracking.hpp"
#include "text/labels.hpp"
#include "text/output.hpp"

namespace epm::text {

template <const Record& R>
std::uint32_t to_xml_worker(Domain* D, std::uint32_t S, const char* name, char* buffer, const Instance* x,
                            std::uint32_t size, std::uint8_t flag, std::uint32_t* st);

/// An element that contains only an empty element with the enumerator's name. It carries no flag.
template <const Enum& E>
[[gnu::noinline]] std::uint32_t to_xml_worker(Domain* D, std::uint32_t S, const char* name, char* buffer,
                                              const Instance* x, std::uint32_t size, std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    Output out{D, S, buffer, size, st};
    out.add(start_tag(D, S, buffer, name, size, 0, st));
    const std::uint32_t value = enumerator_of(x);
    const CountedText text = value < E.count ? enumerator_elements<E>[value] : counted(out_of_range<E>);
    out.add(xml_enum_print(D, S, out.next(), text.characters, out.room(), text.length, st));
    out.add(end_tag(D, S, out.next(), name, out.room(), st));
    return out.length;
}

/// Writes a value of the type of field I, or of its elements' type.
template <const Record& R, std::size_t I>
void write_as(Output& out, const char* name, const void* value, std::uint8_t flag) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum())
        out.add(to_xml_worker<*f.enumeration>(out.D, out.S, name, out.next(), header(value), out.room(), out.st));
    else if constexpr (f.is_of_record())
        out.add(to_xml_worker<*f.record>(out.D, out.S, name, out.next(), header(value), out.room(), flag, out.st));
    else
        out.add(Codec<*f.foreign>::to_xml(out.D, out.S, name, out.next(), value, out.room(), flag, out.st));
}

template <const Record& R, std::size_t I>
std::uint8_t flag_of(const Output& out, bool tracking, const Instance* x) {
    if constexpr (R.fields[I].is_tracked())
        if (tracking) return lifecycle::state_flag_get<R, I>(out.D, out.S, const_cast<Instance*>(x), out.st);
    return 0;
}

/// Elements have the field's name and each its own flag; the whole flag is not written. The count is read again each
/// time.
template <const Record& R, std::size_t I>
void write_elements(Output& out, bool tracking, const Instance* x) {
    for (std::uint32_t i = 0; i < element_count<R, I>(x) && *out.st == 0; ++i) {
        std::uint8_t flag = 0;
        if (tracking) flag = access::element_flag_get<R, I>(out.D, out.S, const_cast<Instance*>(x), i, out.st);
        write_as<R, I>(out, R.fields[I].name, element_at<R, I>(x, i), flag);
    }
}

template <const Record& R, std::size_t I>
void write_field(Output& out, bool tracking, const Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.kind == Kind::text) {
        const std::uint8_t flag = flag_of<R, I>(out, tracking, x);
        out.add(var_string_to_xml(out.D, out.S, f.name, out.next(), *field<R, I, const char*>(x), out.room(),
                                  present_length<R, I>(x), flag, out.st));
    } else if constexpr (f.kind == Kind::characters) {
        const std::uint8_t flag = flag_of<R, I>(out, tracking, x);
        out.add(null_string_to_xml(out.D, out.S, f.name, out.next(), field<R, I, char>(x), out.room(), f.capacity, flag,
                                   out.st));
    } else if constexpr (f.has_element_flags()) {
        write_elements<R, I>(out, tracking, x);
    } else if constexpr (f.kind == Kind::list) {
        for_each_list_element<R, I>(x, [&](const Instance* element) {
            write_as<R, I>(out, R.fields[I].name, element, flag_of<R, I>(out, tracking, x));
        });
    } else if constexpr (f.kind == Kind::arm) {
        const Instance* arm = *field<R, I, const Instance*>(x);
        if (is_selected<R, I>(x) && arm != nullptr)
            write_as<R, I>(out, arm_label<R, I, "", "-">.c_str(), arm, flag_of<R, I>(out, tracking, x));
    } else {
        write_as<R, I>(out, f.name, readable<R, I>(x), flag_of<R, I>(out, tracking, x));
    }
}

/// Always closes the element, even after a failure or when the variant lacks fields.
template <const Record& R>
[[gnu::noinline]] std::uint32_t to_xml_worker(Domain* D, std::uint32_t S, const char* name, char* buffer,
                                              const Instance* x, std::uint32_t size, std::uint8_t flag,
                                              std::uint32_t* st) {
    if (*st != 0) return 0;
    zur_clear_last_error(D);
    const std::int8_t variant = zur_get_instance_variant(x, 1, 0);
    const bool is_tracked = is_tracking(D, trace::site<R, trace::Operation::to_xml, trace::Text::corrupted_handle>);
    // An array's element has no type if an element before it could not be read: then it was never set up.
    const bool tracking = is_tracked && x->type_info != nullptr;
    Output out{D, S, buffer, size, st};
    out.add(start_tag(D, S, buffer, name, size, flag, st));
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if (variant >= R.fields[I].since && *st == 0) write_field<R, I>(out, tracking, x);
    });
    out.add(end_tag(D, S, out.next(), name, out.room(), st));
    return out.length;
}

template <const Record& R>
std::uint32_t to_xml(Domain* D, std::uint32_t S, const char* name, char* buffer, const Instance* x, std::uint32_t size,
                     std::uint8_t flag, std::uint32_t* st) {
    return to_xml_worker<R>(D, S, name, buffer, x, size, flag, st);
}

template <const Enum& E>
std::uint32_t to_xml(Domain* D, std::uint32_t S, const char* name, char* buffer, const Instance* x, std::uint32_t size,
                     std::uint32_t /*ignored*/, std::uint32_t* st) {
    return to_xml_worker<E>(D, S, name, buffer, x, size, st);
}

template <const auto& T>
std::uint32_t to_xml_chained(Domain* D, const Instance* x, char* buffer, std::uint32_t size) {
    const std::uint32_t length = to_xml<T>(D, D->cr_set_id, T.name, buffer, x, size, 0, &D->last_error);
    return chain_result(D, length);
}

} // namespace epm::text
