// A text being written into a caller's buffer. print.hpp and to_xml.hpp produce its characters.
#pragma once

#include "frame/instance.hpp"
#include "text/labels.hpp"

namespace epm::text {

/// Each part of a text gets the rest of the buffer and reports how much it wrote. The rest may wrap below 0 as an
/// unsigned number; the callees know that this means no room.
struct Output {
    Domain* D;
    std::uint32_t S;
    char* buffer;
    std::uint32_t size;
    std::uint32_t* st;
    std::uint32_t length = 0;

    char* next() const { return buffer + length; }
    std::uint32_t room() const { return size - length; }
    void add(std::uint32_t written) { length += written; }
};

/// An element's number in brackets.
class Subscript {
public:
    explicit Subscript(std::uint32_t number) {
        *--first_ = ']';
        do *--first_ = static_cast<char>('0' + number % 10);
        while ((number /= 10) != 0);
        *--first_ = '[';
    }
    CountedText text() const { return {first_, static_cast<std::uint32_t>(characters_ + longest - first_)}; }

    static constexpr std::size_t longest = 12;

private:
    char characters_[longest];
    char* first_ = characters_ + longest;
};

/// Turns the subscript that ends here into the next element's. Works if only the last digit changes, which is the usual
/// case; otherwise returns false.
inline bool count_up(char* end) {
    char& digit = end[-2];
    if (digit == '9') return false;
    ++digit;
    return true;
}

/// What a `_cr` form returns: the length, or all ones once the chain has failed.
inline std::uint32_t chain_result(const Domain* D, std::uint32_t length) {
    return D->last_error != 0 ? 0xFFFFFFFFu : length;
}

} // namespace epm::text
