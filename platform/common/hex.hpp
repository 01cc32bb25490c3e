// Hexadecimal digits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform {

inline constexpr std::string_view hex_digits = "0123456789abcdef";

constexpr int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Reads pairs of digits. `to` may be the start of the text.
inline bool parse_hex(std::string_view text, uint8_t* to) {
    if (text.size() % 2 != 0) return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_value(text[i]), low = hex_value(text[i + 1]);
        if (high < 0 || low < 0) return false;
        to[i / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

} // namespace platform
