// Writes text into a buffer that may be too small: writes and terminates what fits. Also has the two escapes.
#pragma once

#include "contract.hpp"
#include "hex.hpp"

#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

namespace platform {

// Length of the UTF-8 sequence at p if it is valid and XML allows the character, else 0.
inline unsigned sequence_length(const uint8_t* p, std::size_t left) {
    if (p[0] < 0x80) return 1;
    const unsigned length = p[0] >= 0xF0 ? 4 : p[0] >= 0xE0 ? 3 : 2;
    if (p[0] < 0xC2 || p[0] > 0xF4 || left < length) return 0;
    uint32_t point = p[0] & (0xFFu >> (length + 1));
    for (unsigned i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80) return 0;
        point = point << 6 | (p[i] & 0x3Fu);
    }
    const uint32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    return point < smallest || point > 0x10FFFF || surrogate || point == 0xFFFE || point == 0xFFFF ? 0 : length;
}

// What a buffer has room for. A size that wrapped below 0 in the caller's subtraction means no room.
inline uint32_t text_room(uint32_t size) {
    return size > INT32_MAX ? 0 : size;
}

inline char* append(char* to, std::string_view text) {
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

// Writes whole words, so up to 7 bytes more than asked for.
inline char* append_blanks(char* to, uint32_t count) {
    for (char* word = to; word < to + count; word += 8) std::memcpy(word, "        ", 8);
    return to + count;
}

// The digits of 0 to 255 and how many they are.
struct ByteDigits {
    char digits[3];
    uint8_t count;
};
inline constexpr auto byte_digits = [] {
    std::array<ByteDigits, 256> all{};
    for (unsigned i = 0; i < 256; ++i) {
        const char hundreds = static_cast<char>('0' + i / 100), tens = static_cast<char>('0' + i / 10 % 10),
                   ones = static_cast<char>('0' + i % 10);
        all[i] = i > 99  ? ByteDigits{{hundreds, tens, ones}, 3}
                 : i > 9 ? ByteDigits{{tens, ones}, 2}
                         : ByteDigits{{ones}, 1};
    }
    return all;
}();

// Writes a number without a terminator, and at least 3 bytes even if it has fewer digits.
inline constexpr uint32_t longest_number = 20;
template <class Number>
char* append_number(char* to, Number value) {
    const auto append_byte = [&](auto byte) {
        const ByteDigits& digits = byte_digits[static_cast<uint8_t>(byte)];
        std::memcpy(to, digits.digits, sizeof digits.digits);
        return to + digits.count;
    };
    if (value >= 0 && value <= 255) return append_byte(value);
    if constexpr (sizeof value > 1) {
        if (value > 0 && value <= 9999) {
            to = append_byte(value / 100);
            std::memcpy(to, byte_digits[static_cast<uint8_t>(100 + value % 100)].digits + 1, 2);
            return to + 2;
        }
    }
    return std::to_chars(to, to + longest_number, value).ptr;
}

class TextWriter {
public:
    TextWriter(char* buffer, uint32_t size) : buffer_(buffer), room_(text_room(size)) {}

    void put(char c) {
        if (used_ + 1 < room_)
            buffer_[used_++] = c;
        else
            full_ = true;
    }

    void put(std::string_view text) {
        const std::size_t left = used_ < room_ ? room_ - used_ - 1 : 0;
        const std::size_t fits = text.size() < left ? text.size() : left;
        if (fits != 0) std::memcpy(buffer_ + used_, text.data(), fits);
        used_ += static_cast<uint32_t>(fits);
        full_ = full_ || fits < text.size();
    }

    template <class Number>
    void number(Number value) {
        char digits[longest_number];
        put({digits, append_number(digits, value)});
    }

    void hex(uint8_t byte) {
        put(hex_digits[byte >> 4]);
        put(hex_digits[byte & 15]);
    }

    void hex(const uint8_t* bytes, uint32_t length) {
        for (uint32_t i = 0; i < length && !full_; ++i) hex(bytes[i]);
    }

    // Writes a backslash and two hexadecimal digits for each byte that would break the line or the document.
    void escaped(const uint8_t* text, uint32_t length, bool xml) {
        for (uint32_t i = 0; i < length && !full_;) {
            const uint32_t start = i;
            while (i < length && is_plain(text[i])) ++i;
            put({reinterpret_cast<const char*>(text + start), i - start});
            if (i == length) return;
            const uint8_t c = text[i];
            const unsigned sequence = sequence_length(text + i, length - i);
            if (c < 0x20 || c == 0x7F || c == '\\' || sequence == 0) {
                put('\\');
                hex(c);
                ++i;
                continue;
            }
            if (xml && (c == '&' || c == '<' || c == '>'))
                put(c == '&' ? "&amp;" : c == '<' ? "&lt;" : "&gt;");
            else
                put({reinterpret_cast<const char*>(text + i), sequence});
            i += sequence;
        }
    }

    void line_start(uint32_t indent, std::string_view name, std::string_view type) {
        if (char* to = claim(std::size_t{indent} + name.size() + type.size() + 2)) {
            std::memset(to, ' ', indent);
            to = append(to + indent, name);
            *to++ = '@';
            to = append(to, type);
            *to = ':';
            return;
        }
        for (; indent != 0 && !full_; --indent) put(' ');
        put(name);
        put('@');
        put(type);
        put(':');
    }

    void open_tag(std::string_view name, uint8_t flag) {
        char* to = flag == 0 ? claim(name.size() + 2) : nullptr;
        if (to != nullptr) {
            *to = '<';
            *append(to + 1, name) = '>';
            return;
        }
        put('<');
        put(name);
        if (flag != 0) {
            put(" flag=\"");
            number(static_cast<unsigned>(flag));
            put('"');
        }
        put('>');
    }

    void close_tag(std::string_view name) {
        if (char* to = claim(name.size() + 3)) {
            *to++ = '<';
            *to++ = '/';
            *append(to, name) = '>';
            return;
        }
        put("</");
        put(name);
        put('>');
    }

    // Terminates the text and reports an overflow, unless the word already holds an earlier failure.
    uint32_t finish(zur_domain* D, uint32_t* st) {
        if (room_ != 0) buffer_[used_] = 0;
        if (full_ && *st == 0) fail(D, ZUR_BUFFER_TOO_SMALL, st);
        return used_;
    }

private:
    static bool is_plain(uint8_t c) { return c >= 0x20 && c < 0x7F && c != '\\' && c != '&' && c != '<' && c != '>'; }

    // Reserves that much room at once; null when there is less.
    char* claim(std::size_t length) {
        if (used_ + length >= room_) return nullptr;
        char* to = buffer_ + used_;
        used_ += static_cast<uint32_t>(length);
        return to;
    }

    char* buffer_;
    uint32_t room_;
    uint32_t used_ = 0;
    bool full_ = false;
};

} // namespace platform
