// The distance of a word from a name is the fewest letters to insert, delete, change or swap with their neighbour until
// the word is a part of the name.
#include "tool/nearest.hpp"

#include <algorithm>
#include <utility>

namespace epm::tool {

namespace {

constexpr std::size_t most_suggested = 5, longest_word = 64;

std::size_t distance(std::string_view word, std::string_view name) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
    // One row for each letter of the word, one column for each of the name. The part may begin and end anywhere.
    std::vector<std::size_t> before, above(name.size() + 1, 0), row(name.size() + 1);
    for (std::size_t i = 1; i <= word.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= name.size(); ++j) {
            const char a = lower(word[i - 1]), b = lower(name[j - 1]);
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a == b ? 0 : 1)});
            if (i > 1 && j > 1 && a == lower(name[j - 2]) && lower(word[i - 2]) == b)
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = std::exchange(above, row);
    }
    return *std::ranges::min_element(above);
}

} // namespace

std::string suggestion(std::string_view word, const std::vector<std::string>& names) {
    if (word.size() > longest_word) return "";
    std::size_t least = word.size() / 3; // anything farther is not near
    std::vector<std::string> near;
    for (const std::string& name : names) {
        const std::size_t own = distance(word, name);
        if (own < least) near.clear();
        if (own <= least) near.push_back(name);
        least = std::min(least, own);
    }
    std::ranges::stable_sort(near, {}, &std::string::size);
    std::string text;
    for (std::size_t i = 0; i < std::min(near.size(), most_suggested); ++i)
        text += (i == 0 ? "; did you mean " : ", ") + near[i];
    return text.empty() || word.empty() ? "" : text + "?";
}

} // namespace epm::tool
