// The subjects that operations are stamped for, and texts with words in braces that are replaced for a subject.
#pragma once

#include "catalogue/catalogue.hpp"

#include <map>
#include <string>

namespace epm::stamp {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Foreign;
using catalogue::Kind;
using catalogue::Record;

using Words = std::map<std::string, std::string, std::less<>>;

/// A record, an enumeration, a field of a record; or the Bundle, when all pointers are null.
struct Subject {
    const Record* record = nullptr;
    const Enum* enumeration = nullptr;
    const Field* field = nullptr;
    Words words = {};
};

Subject subject(const Record& r);
Subject subject(const Enum& e);
Subject subject(const Record& r, const Field& f);

/// The text with each word in braces replaced by its meaning. Other braces stay as they are.
std::string filled(std::string_view text, const Words& words);

/// Whether the text has this word by itself, not only inside a longer one.
bool has_word(std::string_view text, std::string_view word);

/// C type of a primitive's or enumerated field's value.
std::string value_type(const Field& f);

/// The first numbers of an array, as text.
template <class Numbers>
std::string listed(const Numbers& numbers, std::size_t count, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += (i ? separator : "") + std::to_string(numbers[i]);
    return text;
}

} // namespace epm::stamp
