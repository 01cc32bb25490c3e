// What XML documents of the old library rely on. The reader looks elements up by their names, and an absent one leaves
// its field as it was, so a document of the old library is read unless a name or the form of a value has changed. An
// absent text is the exception: the reader skips the field behind it.
#include "tool/compat/pairs.hpp"

namespace epm::tool::compat {

namespace {

constexpr const char* not_read = " The value in an old document is not read.";

class XmlOf {
public:
    XmlOf(const Pairs& pairs, Findings& findings) : pairs_(pairs), findings_(findings) {
        for (const auto& [all, description] :
             {std::pair(&old_widths_, &pairs.old), std::pair(&new_widths_, &pairs.now)})
            for (const Imported& type : description->imported)
                if (type.shape == "primitive" && type.framing == "number") all->emplace(type.name, type.wire_length);
    }

    void compare(const TypePair& pair) {
        type_ = pair.old->name;
        if (pair.old->name != pair.now->name)
            add(rule("xml.type-renamed"), "",
                "The root element was " + pair.old->name + " and is " + pair.now->name +
                    ": old documents are not found.");
        for (std::size_t i = 0; i < pair.old->fields.size(); ++i) {
            const Field& f = pair.old->fields[i];
            if (pair.fields.of_old[i] == none && !f.is_length())
                add(rule("xml.field-lost"), f.name, std::string("It is gone.") + not_read);
        }
        pair.for_each_field([&](const Field& a, const Field& b) { compare(a, b); });
        for (std::size_t j = 0; j < pair.now->fields.size(); ++j)
            if (pair.fields.of_now[j] == none && pair.now->fields[j].kind == "text") tell_of_text(pair, j);
        compare_enumerators(pair);
    }

private:
    void add(const Rule& rule, const std::string& field, std::string sentence) {
        findings_.push_back({&rule, type_, field, std::move(sentence), {}});
    }

    void compare(const Field& a, const Field& b) {
        if (a.is_length() && b.is_length()) return; // the reader takes lengths from the texts themselves
        if (a.name != b.name)
            add(rule("xml.field-renamed"), a.name, "Its element is called " + b.name + " now." + not_read);
        if (!has_same_form(a, b))
            add(rule("xml.value-form"), a.name,
                "It was a " + a.kind + " of " + a.type + " and is a " + b.kind + " of " + b.type +
                    ": what an old document has there may not be accepted.");
        else if (b.elements < a.elements && b.elements != 0)
            add(rule("xml.capacity"), a.name,
                "It holds " + std::to_string(b.elements) + " elements instead of " + std::to_string(a.elements) +
                    ": the others in an old document are lost.");
    }

    /// Whether each value of the old field can be read as one of the new field.
    bool has_same_form(const Field& a, const Field& b) const {
        if (a.is_length() || b.is_length()) return b.is_length() || (b.kind == "value" && is_wider(a, b));
        const auto is_text = [](const Field& f) { return f.kind == "text" || f.kind == "characters"; };
        if (is_text(a) && is_text(b)) return true;
        return a.kind == b.kind && (pairs_.is_same_type(a, b) || is_wider(a, b));
    }
    bool is_wider(const Field& a, const Field& b) const {
        const auto old_width = old_widths_.find(a.type), new_width = new_widths_.find(b.type);
        return old_width != old_widths_.end() && new_width != new_widths_.end() &&
               new_width->second >= old_width->second;
    }

    /// A text that old documents cannot have.
    void tell_of_text(const TypePair& pair, std::size_t place) {
        const std::vector<Field>& fields = pair.now->fields;
        std::size_t next = place + 1;
        while (next < fields.size() && fields[next].is_length()) ++next;
        if (next == fields.size())
            add(rule("xml.text-added"), fields[place].name,
                "Old documents lack this text, which is the last field: reading one leaves status 2, although all of "
                "it is "
                "read.");
        else if (pair.fields.of_now[next] != none)
            add(rule("xml.text-added"), fields[place].name,
                "Old documents lack this text, and the reader then skips the field behind it, " + fields[next].name +
                    ".");
    }

    void compare_enumerators(const TypePair& pair) {
        for (std::size_t i = 0; i < pair.old->enumerators.size(); ++i)
            if (pair.enumerators.of_old[i] == none)
                add(rule("xml.enumerator-lost"), pair.old->enumerators[i].name, std::string("It is gone.") + not_read);
        pair.for_each_enumerator([&](const Enumerator& a, const Enumerator& b) {
            if (a.name != b.name)
                add(rule("xml.enumerator-renamed"), a.name, "Its element is called " + b.name + " now." + not_read);
        });
    }

    const Pairs& pairs_;
    Findings& findings_;
    std::unordered_map<std::string, std::size_t> old_widths_, new_widths_; // of plain numbers
    std::string type_;
};

} // namespace

void compare_xml(const Pairs& pairs, Findings& findings) {
    XmlOf xml(pairs, findings);
    for (const TypePair& pair : pairs.types) xml.compare(pair);
    for (const Type* type : pairs.lost)
        findings.push_back(
            {&rule("xml.type-lost"), type->name, "", "It is gone: old documents of it cannot be read.", {}});
}

} // namespace epm::tool::compat
