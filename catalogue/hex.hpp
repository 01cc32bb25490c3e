// Hexadecimal digits, as digests and captured bytes are written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace epm::catalogue {

inline constexpr std::string_view hex_digits = "0123456789abcdef";

/// The number that a digit stands for, in either case; -1 for any other character.
constexpr int hex_value(char c) {
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c | 0x20) : c;
    const std::size_t value = hex_digits.find(lower);
    return value != hex_digits.npos ? static_cast<int>(value) : -1;
}

/// The byte that the first two characters stand for; negative when one of them is no digit.
constexpr int hex_byte(std::string_view digits) {
    return hex_value(digits[0]) * 16 | hex_value(digits[1]);
}

template <class Bytes>
std::string to_hex(const Bytes& bytes) {
    std::string text;
    for (const std::uint8_t b : bytes) (text += hex_digits[b >> 4]) += hex_digits[b & 15];
    return text;
}

} // namespace epm::catalogue
