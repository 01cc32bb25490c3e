#include "stamp/words.hpp"

namespace epm::stamp {

std::string value_type(const Field& f) {
    if (f.is_enumerated()) return "uint32_t";
    switch (f.foreign->length) {
    case 1: return std::string_view(f.foreign->name) == "char" ? "char" : "uint8_t";
    case 2: return "uint16_t";
    case 8: return "uint64_t";
    default: return "uint32_t";
    }
}

std::string filled(std::string_view text, const Words& words) {
    std::string out;
    while (true) {
        const std::size_t open = text.find('{');
        const std::size_t close = text.find('}', open);
        if (close == std::string_view::npos) return out.append(text);
        out += text.substr(0, open);
        const auto word = words.find(text.substr(open + 1, close - open - 1));
        if (word != words.end())
            out += word->second;
        else
            out += '{';
        text.remove_prefix(word != words.end() ? close + 1 : open + 1);
    }
}

bool has_word(std::string_view text, std::string_view word) {
    const auto is_inner = [&](std::size_t i) { return i < text.size() && (std::isalnum(text[i]) || text[i] == '_'); };
    for (std::size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1))
        if (!is_inner(at - 1) && !is_inner(at + word.size())) return true;
    return false;
}

Subject subject(const Record& r) {
    return {.record = &r, .words = {{"type", r.name}}};
}

Subject subject(const Enum& e) {
    return {.enumeration = &e, .words = {{"type", e.name}}};
}

Subject subject(const Record& r, const Field& f) {
    const bool is_number = f.is_own_enum() || (!f.is_of_record() && !f.foreign->is_object());
    const bool is_primitive = is_number && !f.is_own_enum() && f.foreign->shape == Foreign::Shape::primitive;
    Words words = {
        {"type", r.name},
        {"field", f.name},
        {"doc", f.doc},
        {"of", f.type_name()},
        {"storage",
         is_primitive ? value_type(f) + "*" : std::string("struct ") + f.type_name() + "*"}, // C type of its address
        {"capacity", std::to_string(f.capacity)},
        {"last", std::to_string(f.capacity - 1)},
    };
    if (is_number) words["value"] = value_type(f);
    if (f.companion != nullptr) {
        words["length"] = f.companion;
        words["length_value"] = value_type(r.fields[r.index_of(f.companion)]);
    }
    if (f.kind == Kind::arm) {
        words["tag_field"] = r.fields[0].name;
        words["tag"] = r.fields[0].enumeration->enumerators[f.tag].name;
    }
    return {.record = &r, .field = &f, .words = words};
}

} // namespace epm::stamp
