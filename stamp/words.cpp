#include "stamp/words.hpp"

namespace epm::stamp {

std::string type_name(const Field& f) {
    if (f.is_own_enum()) return f.enumeration->name;
    return f.is_of_record() ? f.record->name : f.foreign->name;
}

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

Operation filled(Operation o, const Words& words) {
    const auto fill = [&](std::string& text) { text = filled(text, words); };
    for (std::string* text : {&o.result, &o.brief, &o.returns, &o.ownership, &o.cost}) fill(*text);
    for (Parameter& p : o.parameters)
        for (std::string* text : {&p.type, &p.doc}) fill(*text);
    for (Sentence& s : o.details) fill(s.text);
    for (Status& s : o.statuses) fill(s.when);
    return o;
}

bool has_word(std::string_view text, std::string_view word) {
    const auto is_inner = [&](std::size_t i) { return i < text.size() && (std::isalnum(text[i]) || text[i] == '_'); };
    for (std::size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1))
        if (!is_inner(at - 1) && !is_inner(at + word.size())) return true;
    return false;
}

Words words_of(const Record& r) {
    return {{"type", r.name}};
}

Words words_of(const Enum& e) {
    return {{"type", e.name}};
}

Words words_of(const Record& r, const Field& f) {
    const bool is_number = f.is_own_enum() || (!f.is_of_record() && !f.foreign->is_object());
    const bool is_primitive = is_number && !f.is_own_enum() && f.foreign->shape == Foreign::Shape::primitive;
    Words words = {
        {"type", r.name},
        {"field", f.name},
        {"doc", f.doc},
        {"of", type_name(f)}, // name of the field's type, or of its elements'
        {"storage", is_primitive ? value_type(f) + "*" : "struct " + type_name(f) + "*"},
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
    return words;
}

} // namespace epm::stamp
