// The strings of the text forms that follow from the catalogue's names, joined at compile time.
#pragma once

#include "frame/instance.hpp"

#include <string_view>

namespace epm::text {

/// The characters of a string literal as a template argument.
template <std::size_t N>
struct Literal {
    char characters[N]{};

    constexpr Literal(const char (&literal)[N]) { std::copy_n(literal, N, characters); }
    constexpr std::string_view view() const { return {characters, N - 1}; }
};

/// A string in static storage.
template <std::size_t Length>
struct Label {
    std::array<char, Length + 1> characters{};

    constexpr Label(std::initializer_list<std::string_view> parts) {
        auto end = characters.begin();
        for (std::string_view part : parts) end = std::copy(part.begin(), part.end(), end);
    }
    constexpr const char* c_str() const { return characters.data(); }
    static constexpr std::uint32_t length() { return Length; }
};

namespace detail {

constexpr std::string_view name_of(const Record& r, std::size_t i) {
    return r.fields[i].name;
}
constexpr std::string_view name_of(const Enum& e, std::size_t i) {
    return e.enumerators[i].name;
}

} // namespace detail

/// The name of field or enumerator I of the type T, between two other parts.
template <const auto& T, std::size_t I, Literal Before, Literal After = "">
inline constexpr Label<Before.view().size() + detail::name_of(T, I).size() + After.view().size()> label{
    Before.view(), detail::name_of(T, I), After.view()};

/// An arm's name after that of its union's tag.
template <const Record& R, std::size_t I, Literal Before, Literal Between>
inline constexpr Label<Before.view().size() + detail::name_of(R, 0).size() + Between.view().size() +
                       detail::name_of(R, I).size()>
    arm_label{Before.view(), detail::name_of(R, 0), Between.view(), detail::name_of(R, I)};

/// The empty element for a number that is no enumerator.
template <const Enum& E>
inline constexpr Label<std::string_view(E.name).size() + std::string_view("< value out of range/>").size()>
    out_of_range{"<", E.name, " value out of range/>"};

/// Builds an array over the enumerators in the order of their numbers: f.template operator()<N>() for each.
template <const Enum& E>
constexpr auto for_enumerators(auto f) {
    return [&]<std::size_t... N>(std::index_sequence<N...>) {
        return std::array{f.template operator()<N>()...};
    }
    (std::make_index_sequence<E.count>{});
}

struct CountedText {
    const char* characters;
    std::uint32_t length;
};

template <class L>
constexpr CountedText counted(const L& l) {
    return {l.c_str(), l.length()};
}

/// A field's name.
template <const Record& R, std::size_t I>
inline constexpr CountedText name_of{R.fields[I].name,
                                     static_cast<std::uint32_t>(std::string_view(R.fields[I].name).size())};

/// The names, as the print form shows them and the reader looks for them.
template <const Enum& E>
inline constexpr auto enumerator_names = for_enumerators<E>([]<std::size_t N>() {
    constexpr std::string_view name = E.enumerators[N].name;
    return CountedText{name.data(), static_cast<std::uint32_t>(name.size())};
});

/// The empty elements that the XML form shows.
template <const Enum& E>
inline constexpr auto enumerator_elements = for_enumerators<E>([]<std::size_t N>() {
    return counted(label<E, N, "<", "/>">);
});

} // namespace epm::text
