// Checks a catalogue before anything is built from it. Each check returns the first faulty line, or none. They run in
// static_asserts and in the stamp; the tests run them on a made-up catalogue with faults.
#pragma once

#include "catalogue/description.hpp"

#include <span>
#include <tuple>

namespace epm::catalogue {

struct Fault {
    const char* type = nullptr;
    const char* field = nullptr;
    const char* sentence = nullptr;

    constexpr explicit operator bool() const { return sentence != nullptr; }
};

namespace detail {

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool is_name(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(),
                                        [](char c) { return (c >= 'a' && c <= 'z') || is_digit(c) || c == '_'; });
}

constexpr bool is_digest(std::string_view digest) {
    return digest.size() == 32 &&
           std::all_of(digest.begin(), digest.end(), [](char c) { return (c >= 'a' && c <= 'f') || is_digit(c); });
}

constexpr bool is_sentence(const char* doc) {
    return doc != nullptr && std::string_view(doc).ends_with('.');
}

constexpr bool is_title(std::string_view title) {
    return !title.empty() && title[0] >= 'A' && title[0] <= 'Z' && std::all_of(title.begin(), title.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    });
}

template <class Type>
constexpr const char* faulty_type(const Type& type) {
    const auto& [name, title, doc, digests] = std::tie(type.name, type.title, type.doc, type.digests);
    if (!is_name(name) || std::string_view(name).size() > 63)
        return "the name is not a lower-case word of at most 63 characters";
    if (!is_title(title)) return "the title is not made of capitalized words without blanks";
    if (!is_sentence(doc)) return "the documentation is not a sentence";
    if (!is_digest(digests.identity) || !is_digest(digests.compatibility))
        return "a digest is not 32 hexadecimal digits";
    return nullptr;
}

constexpr const char* faulty_companion(const Record& r, std::size_t i) {
    const Field& f = r.fields[i];
    if (f.companion == nullptr) return nullptr;
    const std::size_t c = r.index_of(f.companion);
    if (c == r.count) return "its length field does not exist";
    if (c > i) return "its length field stands behind it";
    if (r.fields[c].kind != Kind::length) return "its companion is not a length field";
    if (r.fields[c].since != f.since) return "its length field belongs to another variant";
    return nullptr;
}

constexpr const char* faulty_field(const Record& r, std::size_t i) {
    const Field& f = r.fields[i];
    if (!is_name(f.name)) return "the name is not a lower-case word";
    if (!is_sentence(f.doc)) return "the documentation is not a sentence";
    if (r.index_of(f.name) != i) return "two fields have this name";
    if (f.since < 0 || (i == 0 && f.since != 0)) return "the first field must exist in variant 0";
    if (i > 0 && f.since < r.fields[i - 1].since) return "variants fall";
    if (i > 0 && f.since > r.fields[i - 1].since + 1) return "a variant is left out";
    if (static_cast<std::size_t>(f.since) >= most_variants)
        return "the variant is above the highest that is provided for";
    if (f.kind == Kind::length &&
        !r.any([&](const Field& g) { return g.companion && std::string_view(g.companion) == f.name; }))
        return "no field has this as its length";
    if ((f.kind == Kind::characters || f.kind == Kind::run) && f.capacity == 0) return "a fixed run holds nothing";
    if (f.kind == Kind::arm && (r.fields[0].kind != Kind::value || !r.fields[0].is_own_enum()))
        return "the union's first field is not its tag";
    if (f.kind == Kind::arm && r.fields[0].enumeration->count <= f.tag) return "the tag is no enumerator";
    if (f.kind == Kind::arm && r.fields[0].enumeration->enumerators[f.tag].since != f.since)
        return "the arm and its enumerator belong to different variants";
    if (f.kind == Kind::arm && r.any([&](const Field& g) { return &g != &f && g.kind == Kind::arm && g.tag == f.tag; }))
        return "two arms have this tag";
    if (i > 0 && r.fields[i - 1].kind == Kind::arm && f.kind != Kind::arm) return "something follows the arms";
    if (f.kind == Kind::list && !f.record->is_linked()) return "the element's record has no link members";
    return faulty_companion(r, i);
}

} // namespace detail

constexpr Fault first_fault(const Enum& e) {
    if (const char* s = detail::faulty_type(e)) return {e.name, nullptr, s};
    for (std::size_t i = 0; i < e.count; ++i) {
        if (!detail::is_sentence(e.enumerators[i].doc))
            return {e.name, e.enumerators[i].name, "the documentation is not a sentence"};
        if (i > 0 && e.enumerators[i].since < e.enumerators[i - 1].since)
            return {e.name, e.enumerators[i].name, "variants fall"};
    }
    return {};
}

constexpr Fault first_fault(const Record& r) {
    if (const char* s = detail::faulty_type(r)) return {r.name, nullptr, s};
    if (r.count == 0) return {r.name, nullptr, "the record has no fields"};
    for (std::size_t i = 0; i < r.count; ++i)
        if (const char* s = detail::faulty_field(r, i)) return {r.name, r.fields[i].name, s};
    if (r.is_linked() && r.index_of(r.linked_before) == r.count)
        return {r.name, r.linked_before, "the field behind the links does not exist"};
    return {};
}

/// The whole catalogue: each type by itself, then names and digests against each other.
constexpr Fault first_fault(std::span<const Record* const> records, std::span<const Enum* const> enums) {
    // Each type is compared with every other. Measuring the strings only once keeps this within the compiler's limit on
    // constant evaluation.
    struct Identity {
        std::string_view name;
        std::string_view title;
        std::string_view identity;
        std::string_view compatibility;
    };
    std::array<Identity, 128> seen{};
    std::size_t n = 0;
    const auto enter = [&](const auto& type) -> const char* {
        const Identity entry{type.name, type.title, type.digests.identity, type.digests.compatibility};
        for (std::size_t i = 0; i < n; ++i) {
            if (seen[i].name == entry.name) return "two types have this name";
            if (seen[i].title == entry.title) return "two types have this title";
            if (seen[i].identity == entry.identity) return "two types have this digest";
            if (seen[i].compatibility == entry.compatibility) return "two types have this digest";
        }
        seen[n++] = entry;
        return nullptr;
    };
    for (const Record* r : records) {
        if (const Fault f = first_fault(*r)) return f;
        if (const char* s = enter(*r)) return {r->name, nullptr, s};
    }
    for (const Enum* e : enums) {
        if (const Fault f = first_fault(*e)) return f;
        if (const char* s = enter(*e)) return {e->name, nullptr, s};
    }
    return {};
}

} // namespace epm::catalogue
