// One walk collects the notes from a message, another puts them back.
#include "tool/notes.hpp"

#include "tool/failure.hpp"
#include "tool/walk.hpp"

#include <zur/types.h>

#include <algorithm>

namespace epm::tool {

namespace {

constexpr std::string_view white = " \t\r\n";

/// Takes the next word off the text.
std::string_view take_word(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(white), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(white));
    text.remove_prefix(word.size());
    return word;
}

void read_note(std::string_view text, Notes& notes) {
    const std::string_view subject = take_word(text);
    const bool tells_variants = subject == "variants";
    if (!tells_variants && subject != "state-flags")
        throw Failure{is_damaged, "a note on " + escaped(subject) + " is not known"};
    notes.is_tracked = notes.is_tracked || !tells_variants;
    for (std::string_view word = take_word(text); !word.empty(); word = take_word(text)) {
        const std::size_t sign = word.find('=');
        if (sign == word.npos) throw Failure{is_damaged, "a note without a value: " + escaped(word)};
        const std::string name(word.substr(0, sign));
        if (tells_variants) {
            if (!std::ranges::count(all_types(), name, &Type::name))
                throw Failure{is_damaged, "a note on variants of " + escaped(name) + ", no type of this name"};
            const std::string_view digits = word.substr(sign + 1);
            const std::optional<std::int8_t> variant = variant_from(digits);
            if (!variant) throw Failure{is_damaged, "a variant is a number from -128 to 127, not " + escaped(digits)};
            notes.variants[name] = *variant;
        } else if (const std::optional<Bytes> flags = bytes_of(word.substr(sign + 1))) {
            notes.state_flags[name] = *flags;
        } else {
            throw Failure{is_damaged, "state flags of " + escaped(name) + ": not pairs of hexadecimal digits"};
        }
    }
}

} // namespace

Notes notes_of(const Type& type, ByteView message) {
    Notes notes;
    std::map<std::string, int> newest;
    for (const Type& t : all_types()) newest[t.name] = t.top();
    walk(type, message, [&](const Part& part) {
        if (part.kind == Part::Kind::flags && (message[part.offset] & ZUR_TRACKED) != 0) notes.is_tracked = true;
        if (part.kind == Part::Kind::variant) {
            const int variant = static_cast<std::int8_t>(message[part.offset]);
            if (variant < newest[part.type]) notes.variants[part.type] = variant;
        }
        if (part.kind != Part::Kind::state_flags) return;
        const ByteView flags = message.subspan(part.offset, part.length);
        if (std::ranges::any_of(flags, [](std::uint8_t flag) { return flag != 0; }))
            notes.state_flags[part.path].assign(flags.begin(), flags.end());
    });
    return notes;
}

std::string written(const Notes& notes) {
    std::string text;
    if (!notes.variants.empty()) {
        text.append("<?").append(note_target) += " variants";
        for (const auto& [type, variant] : notes.variants) text += " " + type + "=" + std::to_string(variant);
        text += "?>\n";
    }
    if (notes.is_tracked) {
        text.append("<?").append(note_target) += " state-flags";
        for (const auto& [path, flags] : notes.state_flags) text += "\n  " + path + "=" + to_hex(flags);
        text += "?>\n";
    }
    return text;
}

Notes read_notes(const pugi::xml_document& document) {
    Notes notes;
    for (const pugi::xml_node node : document.children())
        if (node.type() == pugi::node_pi && node.name() == note_target) read_note(node.value(), notes);
    return notes;
}

void put_state_flags(const Type& type, const Notes& notes, Bytes& message) {
    const Bytes before = message;
    walk(type, before, [&](const Part& part) {
        if (part.kind != Part::Kind::state_flags) return;
        const auto to = message.begin() + static_cast<std::ptrdiff_t>(part.offset);
        std::fill_n(to, part.length, std::uint8_t{0});
        if (const auto found = notes.state_flags.find(part.path); found != notes.state_flags.end())
            std::copy_n(found->second.begin(), std::min(found->second.size(), part.length), to);
    });
}

} // namespace epm::tool
