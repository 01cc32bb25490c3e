// Compares two trees side by side, guided by the catalogue.
#include "tool/losses.hpp"

#include "tool/nearest.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>

namespace epm::tool {

namespace {

using Node = pugi::xml_node;

constexpr std::size_t most_suggestions = 32;
constexpr const char* white = " \t\r\n\v\f";

bool is_text(Node node) {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

/// The characters directly in an element.
std::string text_in(Node element) {
    std::string text;
    for (const Node piece : element.children())
        if (is_text(piece)) text += piece.value();
    return text;
}

bool is_blank(const std::string& text) {
    return text.find_first_not_of(white) == text.npos;
}

/// The text without the backslash escapes; nothing if a backslash starts no escape.
std::optional<std::string> unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            plain += text[i];
            continue;
        }
        const std::optional<Bytes> byte = bytes_of(std::string_view(text).substr(i + 1, 2));
        if (!byte || byte->empty()) return {};
        plain += static_cast<char>(byte->front());
        i += 2;
    }
    return plain;
}

bool is_of_characters(const Field& f) {
    return f.kind == Kind::text || f.kind == Kind::characters || f.foreign == &catalogue::zur_vstring;
}

/// One spelling for all equal spellings of a value of the field's type.
std::string spelled(const Field& f, std::string text) {
    if (is_of_characters(f)) return text;
    text.erase(0, std::min(text.find_first_not_of(white), text.size()));
    text.erase(text.find_last_not_of(white) + 1);
    if (f.foreign == &catalogue::ip_address) {
        std::array<char, sizeof(in6_addr)> address{};
        for (const int family : {AF_INET, AF_INET6})
            if (inet_pton(family, text.c_str(), address.data()) == 1) return {address.data(), address.size()};
    }
    std::ranges::transform(text, text.begin(), [](char c) { return c >= 'A' && c <= 'F' ? char(c | 0x20) : c; });
    const bool is_number = f.foreign != &catalogue::kesh_bytestr && f.foreign != &catalogue::zur_mac_addr;
    if (is_number && !text.empty()) text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
    return text;
}

bool has_elements(const Field& f) {
    return f.has_element_flags() || f.kind == Kind::list;
}

/// The name of the field's element.
std::string name_of(const Record& r, const Field& f) {
    return f.kind == Kind::arm ? std::string(r.fields[0].name) + "-" + f.name : f.name;
}

/// If the text in front of a field is absent, the library's reader does not read the field. This is then the text's
/// name.
std::optional<std::string> absent_before(const Record& r, const Field& f, Node wrote) {
    std::size_t i = r.index_of(f.name);
    while (i != 0 && r.fields[i - 1].kind == Kind::length) --i;
    if (i == 0 || f.kind == Kind::text || f.kind == Kind::length || r.fields[i - 1].kind != Kind::text) return {};
    const char* name = r.fields[i - 1].name;
    return wrote.child(name) ? std::nullopt : std::optional<std::string>(name);
}

class Comparison {
public:
    Comparison(const VariantOf& variant_of, Loss::Kind beyond_variant, std::vector<Loss>& found)
        : variant_of_(variant_of), beyond_variant_(beyond_variant), found_(found) {}

    void whole(const Type& type, Node wrote, Node arrived) {
        attributes(wrote, arrived, type.name);
        if (type.is_enum())
            enumeration(*type.enumeration, wrote, arrived, type.name, "");
        else
            record(*type.record, wrote, arrived, type.name, "");
    }

private:
    void lose(const std::string& path, const std::string& reason, Loss::Kind kind = Loss::Kind::lost) {
        found_.push_back({kind, path, reason});
    }

    /// `unread` says why nothing in the element is read, if that is known.
    void record(const Record& r, Node wrote, Node arrived, const std::string& path, const std::string& unread) {
        if (!is_blank(text_in(wrote))) lose(path, "text between elements is not read");
        struct Seen {
            std::size_t count = 0;
            Node arrived;
            std::string unread;
        };
        std::map<std::string, Seen> all_seen;
        for (const Node child : wrote.children()) {
            if (child.type() == pugi::node_pi && std::string_view(child.name()) == note_target)
                lose(path, "a note is read in front of the root element only");
            if (child.type() != pugi::node_element) continue;
            const std::string name = child.name();
            Seen& seen = all_seen[name];
            const auto* end = r.fields.begin() + r.count;
            const Field* f = std::find_if(r.fields.begin(), end, [&](const Field& g) { return name_of(r, g) == name; });
            std::string own = path + "/" + escaped(name);
            ++seen.count;
            if (seen.count > 1 || (f != end && has_elements(*f))) own += "[" + std::to_string(seen.count) + "]";
            if (f == end) {
                lose(own, unknown(r, name));
                continue;
            }
            seen.arrived = seen.count == 1 ? arrived.child(name.c_str()) : seen.arrived.next_sibling(name.c_str());
            if (seen.count == 1) {
                const std::optional<std::string> missing = absent_before(r, *f, wrote);
                seen.unread =
                    missing && unread.empty() ? "not read, because " + *missing + " in front of it is absent" : unread;
            }
            if (seen.arrived)
                field(*f, child, seen.arrived, own, seen.unread);
            else
                absent(r, *f, seen.count, own, seen.unread);
        }
    }

    /// The search takes time, and the document may come from anybody.
    std::string near(const std::string& name, const std::vector<std::string>& names) const {
        return found_.size() < most_suggestions ? suggestion(name, names) : "";
    }

    std::string unknown(const Record& r, const std::string& name) const {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < r.count; ++i) {
            names.push_back(name_of(r, r.fields[i]));
            if (name == r.fields[i].name) return "the element of this arm is called " + names.back();
        }
        return std::string("no field of ") + r.name + near(name, names);
    }

    /// Reports why an element of a field has not arrived at all.
    void absent(const Record& r, const Field& f, std::size_t count, const std::string& path, const std::string& cause) {
        const int variant = variant_of_({r.name, &r, nullptr});
        if (variant < f.since)
            return lose(path,
                        "left out, because it comes with variant " + std::to_string(f.since) + ", and variant " +
                            std::to_string(variant) + " is written",
                        beyond_variant_);
        const bool is_ended = has_elements(f) && f.is_of_record();
        const Field* last = is_ended ? &f.record->fields[f.record->count - 1] : nullptr;
        lose(path, !cause.empty()                  ? cause
                   : count > 1 && !has_elements(f) ? "a second element of this name is not read"
                   : f.kind == Kind::run           ? "the field holds " + std::to_string(f.capacity) + " elements"
                   : f.kind == Kind::arm           ? std::string("not the arm that ") + r.fields[0].name + " selects"
                   : is_ended && last->kind == Kind::text ? "not read, because an element without its last text, " +
                                                                std::string(last->name) + ", ends the elements"
                                                          : "not read");
    }

    void field(const Field& f, Node wrote, Node arrived, const std::string& path, const std::string& unread) {
        attributes(wrote, arrived, path);
        if (f.is_own_enum())
            enumeration(*f.enumeration, wrote, arrived, path, unread);
        else if (f.is_of_record())
            record(*f.record, wrote, arrived, path, unread);
        else
            value(f, wrote, arrived, path, unread);
    }

    void attributes(Node wrote, Node arrived, const std::string& path) {
        for (const pugi::xml_attribute a : wrote.attributes())
            if (std::string_view(arrived.attribute(a.name()).value()) != a.value())
                lose(path + "/@" + escaped(std::string_view(a.name())),
                     "attributes are not read; state flags belong in a note in front of the root element");
    }

    void value(const Field& f, Node wrote, Node arrived, const std::string& path, const std::string& unread) {
        for (const Node child : wrote.children())
            if (child.type() == pugi::node_element)
                lose(path + "/" + escaped(std::string_view(child.name())), "an element in a value is not read");
        const std::string told = text_in(wrote), came = text_in(arrived);
        const std::optional<std::string> a = unescaped(told), b = unescaped(came);
        if (a && b && spelled(f, *a) == spelled(f, *b)) return;
        const std::string shown = '"' + escaped(std::string_view(b ? *b : came)) + '"';
        if (f.kind == Kind::length)
            return lose(path, shown + " is written: it follows what it is the length of", Loss::Kind::remark);
        lose(path, !unread.empty() ? unread
                   : !a            ? "a backslash in front of what is not two hexadecimal digits"
                   : f.kind == Kind::text && a->find('\0') != a->npos ? "a text is taken up to its first NUL, \\00"
                   : is_blank(told)                                   ? "holds nothing, and " + shown + " is written"
                                                                      : "not read, " + shown + " is written");
    }

    void enumeration(const Enum& e, Node wrote, Node arrived, const std::string& path, const std::string& unread) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < e.count; ++i) names.push_back(e.enumerators[i].name);
        std::string_view taken = arrived.first_child().name();
        const bool has_text = !is_blank(text_in(wrote));
        if (has_text || !wrote.first_child())
            lose(path, "an enumerator is an element, such as <" + names.front() + "/>");
        for (const Node child : wrote.children()) {
            if (child.type() != pugi::node_element) continue;
            const std::string name = child.name();
            if (name == taken && unread.empty()) {
                taken = {}; // report it only once
                continue;
            }
            const bool is_known = std::ranges::find(names, name) != names.end();
            lose(path + "/" + escaped(name), !is_known ? std::string("no enumerator of ") + e.name + near(name, names)
                                             : !unread.empty() ? unread
                                                               : "one enumerator is read, the lowest");
        }
    }

    const VariantOf& variant_of_;
    const Loss::Kind beyond_variant_;
    std::vector<Loss>& found_;
};

} // namespace

bool parse(const std::string& xml, pugi::xml_document& document) {
    constexpr unsigned flags =
        pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol | pugi::parse_ws_pcdata_single | pugi::parse_pi;
    return static_cast<bool>(document.load_buffer(xml.data(), xml.size(), flags, pugi::encoding_utf8));
}

std::vector<Loss> losses(const Type& type, const pugi::xml_document& document, const pugi::xml_document& arrived,
                         const VariantOf& variant_of, Loss::Kind beyond_variant) {
    std::vector<Loss> found;
    Comparison(variant_of, beyond_variant, found).whole(type, document.document_element(), arrived.document_element());
    return found;
}

std::vector<Loss> losses(const Notes& notes, const Notes& arrived, Loss::Kind without_place) {
    std::vector<Loss> found;
    const auto without_zeros = [](Bytes flags) {
        while (!flags.empty() && flags.back() == 0) flags.pop_back();
        return flags;
    };
    for (const auto& [path, flags] : notes.state_flags) {
        const auto at = arrived.state_flags.find(path);
        if (without_zeros(flags) != without_zeros(at != arrived.state_flags.end() ? at->second : Bytes{}))
            found.push_back({without_place, escaped(path), "its state flags find no place in the message"});
    }
    return found;
}

} // namespace epm::tool
