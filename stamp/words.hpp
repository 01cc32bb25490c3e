// Texts with words in braces, and what the words mean for a type or field.
#pragma once

#include "stamp/operation.hpp"

#include <map>

namespace epm::stamp {

using Words = std::map<std::string, std::string, std::less<>>;

/// The text with each word in braces replaced by its meaning. Other braces stay as they are.
std::string filled(std::string_view text, const Words& words);
Operation filled(Operation o, const Words& words);

Words words_of(const Record& r);
Words words_of(const Enum& e);
Words words_of(const Record& r, const Field& f);

/// Name of a field's type, or of its elements' type.
std::string type_name(const Field& f);
/// C type of a primitive's or enumerated field's value.
std::string value_type(const Field& f);

/// Whether the text has the word, and not only within a longer one.
bool has_word(std::string_view text, std::string_view word);

/// The first numbers of an array, as text.
template <class Numbers>
std::string listed(const Numbers& numbers, std::size_t count, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += (i ? separator : "") + std::to_string(numbers[i]);
    return text;
}

} // namespace epm::stamp
