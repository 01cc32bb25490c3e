// Splits each line into offset, bytes and text. The form of the lines before it limits what a line may be.
#include "tool/hex_dump.hpp"

#include "tool/failure.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

namespace epm::tool {

namespace {

constexpr std::string_view blanks = " \t\r\f\v", separators = ", \t\r\f\v";

bool is_hex(std::string_view word) {
    return !word.empty() && std::ranges::all_of(word, [](char c) { return catalogue::hex_value(c) >= 0; });
}

bool has_prefix(std::string_view word) {
    return word.starts_with("0x") || word.starts_with("0X");
}

std::string_view without_prefix(std::string_view word) {
    return word.substr(has_prefix(word) ? 2 : 0);
}

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::string_view take_word(std::string_view& text, std::string_view between) {
    text.remove_prefix(std::min(text.find_first_not_of(between), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(between));
    text.remove_prefix(word.size());
    return word;
}

/// A number too large for 64 bits becomes the largest one, which no message's offset reaches.
std::uint64_t number(std::string_view hex) {
    std::uint64_t value = ~std::uint64_t{0};
    std::from_chars(hex.data(), hex.data() + hex.size(), value, 16);
    return value;
}

class Dump {
public:
    Bytes read(std::string_view text) {
        has_headings_ = text.find("\n\t0x0000:") != text.npos;
        while (!text.empty()) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            ++line_;
            take_line(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        if (is_repeating_) refuse("no offset after the asterisk says how often the row is repeated");
        return std::move(bytes_);
    }

private:
    enum class Form { unknown, plain, colon, bars };

    [[noreturn]] void refuse(const std::string& reason) const {
        throw Failure{is_damaged, "line " + std::to_string(line_) + ": " + reason};
    }

    void be(Form form) {
        if (form_ != Form::unknown && form_ != form) refuse("not of the form of the lines before it");
        form_ = form;
    }

    void take_line(std::string_view whole) {
        const bool is_heading = has_headings_ && form_ == Form::unknown && !whole.starts_with('\t'); // of a packet
        whole = trimmed(whole);
        if (is_heading || whole.empty() || whole.front() == '#') return;
        if (whole == "*") {
            if (row_.empty() || form_ == Form::plain) refuse("no row in front of the asterisk");
            is_repeating_ = true;
            return;
        }
        std::string_view rest = whole;
        std::string_view offset = take_word(rest, blanks);
        const bool has_colon = offset.ends_with(':');
        if (has_colon) offset.remove_suffix(1);
        offset = without_prefix(offset);
        if (has_colon && offset.size() >= 4 && is_hex(offset))
            take_row(Form::colon, offset, rest);
        else if (const std::size_t bar = whole.find_first_of("|#"); bar != whole.npos && whole[bar] == '|')
            take_row(Form::bars, offset, rest);
        else if (form_ == Form::bars && rest.empty())
            go_to(offset);
        else
            take_plain(whole);
    }

    void take_row(Form form, std::string_view offset, std::string_view rest) {
        be(form);
        go_to(offset);
        row_.clear();
        const std::size_t bar = form == Form::bars ? rest.find('|') : rest.npos;
        std::string_view text = bar != rest.npos ? rest.substr(bar + 1) : "";
        rest = rest.substr(0, bar);
        for (std::string_view word = take_word(rest, blanks); !word.empty(); word = take_word(rest, blanks)) {
            if (word.size() > (form == Form::bars ? 2 : 4))
                refuse("the order of the bytes in " + escaped(word.substr(0, 16)) + " is not told");
            put(word);
            // One blank separates bytes, two separate the bytes from the text.
            const bool goes_on = form == Form::bars || (rest.starts_with(' ') && !rest.starts_with("  "));
            if (!goes_on) text = std::exchange(rest, {});
        }
        if (row_.empty()) refuse("an offset without bytes");
        if (form == Form::bars && !text.ends_with('|')) refuse("the text beside the bytes is not closed");
        if (form == Form::bars) text.remove_suffix(1);
        hold_against_row(trimmed(text));
        bytes_.insert(bytes_.end(), row_.begin(), row_.end());
    }

    void take_plain(std::string_view whole) {
        be(Form::plain);
        std::string_view rest = whole.substr(0, whole.find('#'));
        const std::size_t before = bytes_.size();
        std::string_view first;
        std::size_t longest = 0; // of the words after the first
        row_.clear();
        for (std::string_view word = take_word(rest, separators); !word.empty(); word = take_word(rest, separators)) {
            is_wide_ = is_wide_ || (has_prefix(word) && word.size() > 4);
            if (++words_ > 1 && is_wide_) refuse("the order of the bytes in words behind 0x is not told");
            if (first.empty())
                first = word;
            else
                longest = std::max(longest, word.size());
            put_pairs(without_prefix(word));
        }
        if (longest != 0 && first.size() >= 4 && first.size() > longest && is_hex(first) && number(first) == before)
            refuse(std::string(first) + " may be an offset, which a colon would tell, or bytes");
        bytes_.insert(bytes_.end(), row_.begin(), row_.end());
    }

    /// Reads bytes with colons between them, or with nothing.
    void put_pairs(std::string_view word) {
        if (word.find(':') == word.npos) return put(word);
        for (; !word.empty(); word.remove_prefix(std::min<std::size_t>(3, word.size()))) {
            if (word.size() > 2 && word[2] != ':') refuse("a colon not between bytes");
            put(word.substr(0, 2));
        }
    }

    void put(std::string_view word) {
        const std::optional<Bytes> bytes = bytes_of(word);
        if (!bytes) refuse("not pairs of hexadecimal digits: " + escaped(word.substr(0, 16)));
        row_.insert(row_.end(), bytes->begin(), bytes->end());
    }

    /// Repeats the last row up to the offset, if the dump left repetitions out.
    void go_to(std::string_view offset) {
        const std::uint64_t goal = is_hex(offset) ? number(offset) : ~std::uint64_t{0};
        if (goal > most_message) refuse("no offset of a message: " + escaped(offset.substr(0, 16)));
        if (std::exchange(is_repeating_, false)) do
                bytes_.insert(bytes_.end(), row_.begin(), row_.end());
            while (bytes_.size() < goal);
        if (bytes_.size() != goal)
            refuse("the offset is " + std::to_string(goal) + " where " + std::to_string(bytes_.size()) +
                   " bytes come before it");
    }

    /// The ends of a line may have lost blanks, and some programs show a blank as a dot.
    void hold_against_row(std::string_view text) const {
        std::string shown(as_text(row_));
        std::ranges::replace_if(
            shown, [](char c) { return c < 0x20 || c > 0x7E; }, '.');
        if (text.empty() || text == trimmed(shown)) return;
        std::ranges::replace(shown, ' ', '.');
        if (text != shown) refuse("the text does not belong to the bytes beside it");
    }

    Bytes bytes_, row_;
    std::size_t line_ = 0, words_ = 0;
    Form form_ = Form::unknown;
    bool has_headings_ = false, is_wide_ = false, is_repeating_ = false;
};

} // namespace

Bytes from_hex(std::string_view text) {
    return Dump().read(text);
}

} // namespace epm::tool
