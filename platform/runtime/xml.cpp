// Parsed XML documents and the look-up of elements by path, on pugixml's tree.
//
// A Bundle asks for each element by its whole path: for the fields of a record, and for x[1], x[2], ... of an array or
// list. So this remembers two things. One is the parent that the last path named, because the next path mostly names
// the same. The other is the child that each step of a path last found: the search for x[2] starts at x[1], so that
// reading all elements takes linear time.
#include "../common/element_text.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <string_view>

struct zur_xml_document {
    struct Step {
        pugi::xml_node parent, child;
        std::string_view name; // the child's own, so a NUL follows
        uint32_t number = 0;   // of the child among those of its name, from 1
    };

    pugi::xml_document tree;
    Step steps[16]; // by depth; deeper steps share the last one

    pugi::xml_node parent; // that the last path named; null when there is none
    Step* step = steps;    // of the parent's children
    char parent_path[256]; // ends with a slash; longer ones are not remembered
    std::size_t parent_length = 0;
};

namespace {

using Document = zur_xml_document;

constexpr platform_xml_limits default_limits = {16u << 20, 64, 8192};

struct Failure {
    const char* reason = nullptr;
    std::size_t offset = 0;
};

// Refuses what only shows in the tree.
struct TreeCheck : pugi::xml_tree_walker {
    explicit TreeCheck(const platform_xml_limits& chosen) : limits(chosen) {}

    bool for_each(pugi::xml_node& node) override {
        const pugi::xml_node_type type = node.type();
        if (type == pugi::node_doctype) return refuse(node, "document type declarations are not accepted");
        if (type != pugi::node_element) return true;
        const auto outer = static_cast<uint32_t>(depth());
        if (outer >= limits.depth) return refuse(node, "elements nested too deeply");
        if (++elements > limits.elements) return refuse(node, "too many elements");
        return outer != 0 || elements == 1 || refuse(node, "more than one root element");
    }

    bool refuse(pugi::xml_node node, const char* reason) {
        failure = {reason, static_cast<std::size_t>(node.offset_debug())};
        return false;
    }

    const platform_xml_limits& limits;
    std::size_t elements = 0;
    Failure failure;
};

Failure parse(Document& document, std::string_view text, const platform_xml_limits& limits) {
    if (text.size() > limits.size) return {"document too large", limits.size};
    if (const std::size_t nul = text.find('\0'); nul != text.npos) return {"NUL byte", nul};
    // A tree of many small elements takes many times its text's memory, so the brackets are counted before parsing.
    std::size_t room = 2 * std::size_t{limits.elements} + 16;
    if (text.size() > room)
        for (std::size_t i = 0; (i = text.find('<', i)) != text.npos; ++i)
            if (room-- == 0) return {"too many elements", i};
    // White space is text where an element holds nothing else, and layout between elements. The first piece of an
    // element's text becomes the element's own value, the other pieces become nodes.
    constexpr unsigned flags = pugi::parse_embed_pcdata | pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                               pugi::parse_ws_pcdata_single | pugi::parse_doctype;
    const pugi::xml_parse_result result =
        document.tree.load_buffer(text.data(), text.size(), flags, pugi::encoding_utf8);
    if (!result) return {result.description(), static_cast<std::size_t>(result.offset)};
    document.parent = document.tree;
    TreeCheck check(limits);
    document.tree.traverse(check);
    return check.failure;
}

void tell(std::string_view text, const Failure& failure, char* message, std::size_t message_size) {
    if (message == nullptr || message_size == 0) return;
    const std::string_view before = text.substr(0, failure.offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t line_start = before.rfind('\n') + 1;
    std::snprintf(message, message_size, "line %td, column %zu: %s", line, before.size() - line_start + 1,
                  failure.reason);
}

// The child that a step of a path names, such as x or x[2]. Null when there is none.
pugi::xml_node find_child(pugi::xml_node parent, std::string_view text, Document::Step& last) {
    const std::string_view name = text.substr(0, text.find('['));
    uint32_t number = 1;
    if (name.size() != text.size()) {
        const auto [end, error] = std::from_chars(name.end() + 1, text.end(), number);
        if (error != std::errc() || text.end() - end != 1 || *end != ']' || number == 0) return {};
    }
    if (last.parent != parent || last.number > number || last.name != name) {
        char terminated[256]; // a Bundle's paths are shorter
        if (name.empty() || name.size() >= sizeof terminated) return {};
        terminated[name.copy(terminated, name.size())] = 0;
        const pugi::xml_node first = parent.child(terminated);
        if (!first) return {};
        last = {parent, first, {first.name(), name.size()}, 1};
    }
    for (; last.number != number; ++last.number) {
        const pugi::xml_node next = last.child.next_sibling(last.name.data());
        if (!next) return {};
        last.child = next;
    }
    return last.child;
}

// The element that a path names; the first one of several. Null when there is none.
pugi::xml_node find(Document& document, std::string_view path) {
    const void* const slash = memrchr(path.data(), '/', path.size());
    const std::string_view parent_path(path.data(), slash ? static_cast<const char*>(slash) + 1 : path.data());
    path.remove_prefix(parent_path.size());
    if (parent_path != std::string_view(document.parent_path, document.parent_length)) {
        pugi::xml_node parent = document.tree;
        Document::Step* step = document.steps;
        for (std::size_t start = 0, end; start < parent_path.size(); start = end + 1) {
            end = parent_path.find('/', start);
            parent = find_child(parent, parent_path.substr(start, end - start), *step);
            step += step != std::end(document.steps) - 1;
        }
        if (parent_path.size() > sizeof document.parent_path) return find_child(parent, path, *step);
        document.parent = parent;
        document.step = step;
        document.parent_length = parent_path.copy(document.parent_path, parent_path.size());
    }
    return find_child(document.parent, path, *document.step);
}

// An element's text if it is one piece without an escape, so that it can be read in place; else null.
const char* plain_text(pugi::xml_node element, std::size_t& length) {
    const char* const text = element.value();
    const char* const end = strchrnul(text, '\\');
    length = static_cast<std::size_t>(end - text);
    for (pugi::xml_node piece = element.first_child(); piece; piece = piece.next_sibling())
        if (piece.type() != pugi::node_element) return nullptr;
    return *end == 0 ? text : nullptr;
}

// Copies an element's text without its escapes, as far as it fits, and gives the whole length. Returns false when a
// backslash is not followed by two digits.
bool unescape(pugi::xml_node element, char* buffer, std::size_t size, std::size_t& length) {
    length = 0;
    const auto put = [&](const char* characters, std::size_t count) {
        if (length < size) std::memcpy(buffer + length, characters, std::min(count, size - length));
        length += count;
    };
    const auto put_piece = [&](const char* p) {
        for (;;) {
            const char* const escape = strchrnul(p, '\\');
            put(p, static_cast<std::size_t>(escape - p));
            if (*escape == 0) return true;
            uint8_t byte = 0;
            p = escape + 3;
            if (std::from_chars(escape + 1, p, byte, 16).ptr != p) return false;
            put(reinterpret_cast<const char*>(&byte), 1);
        }
    };
    if (!put_piece(element.value())) return false;
    for (pugi::xml_node piece = element.first_child(); piece; piece = piece.next_sibling())
        if (piece.type() != pugi::node_element && !put_piece(piece.value())) return false;
    if (size != 0) buffer[std::min(length, size - 1)] = 0;
    return true;
}

std::string laid_out(std::string_view xml, std::size_t width) {
    std::string lines;
    std::string_view last_value;
    std::size_t depth = 0, line = 0;
    const auto next_tag = [&](std::size_t from) { return std::min(xml.find('<', from), xml.size()); };
    for (std::size_t at = 0, end; at < xml.size(); at = end) {
        end = next_tag(at + 1);
        const bool closes = xml.substr(at, 2) == "</";
        const bool is_empty = xml.substr(at, end - at).ends_with("/>");
        const bool opens = !closes && !is_empty && xml.substr(end, 2) != "</";
        if (!closes && !is_empty && !opens) end = next_tag(end + 1); // a value ends after its closing tag
        const std::string_view piece = xml.substr(at, end - at);
        const std::string_view tag = piece.substr(0, piece.find('>'));
        if (closes && depth != 0) --depth;
        if (tag != last_value || lines.size() - line + piece.size() > width) {
            if (at != 0) lines += '\n';
            line = lines.size();
            lines.append(2 * depth, ' ');
        }
        lines += piece;
        if (opens) ++depth;
        last_value = opens || closes ? std::string_view() : tag;
    }
    return lines + '\n';
}

} // namespace

zur_xml_document* platform_xml_parse(const char* text, size_t length, const platform_xml_limits* limits, char* message,
                                     size_t message_size) {
    platform_xml_limits chosen = limits != nullptr ? *limits : platform_xml_limits{};
    chosen.size = chosen.size != 0 ? chosen.size : default_limits.size;
    chosen.depth = chosen.depth != 0 ? chosen.depth : default_limits.depth;
    chosen.elements = chosen.elements != 0 ? chosen.elements : default_limits.elements;

    const std::string_view whole(text, length);
    auto* document = new (std::nothrow) Document;
    const Failure failure = document != nullptr ? parse(*document, whole, chosen) : Failure{"out of memory"};
    if (failure.reason == nullptr) return document;
    tell(whole, failure, message, message_size);
    delete document;
    return nullptr;
}

void platform_xml_free(zur_xml_document* document) {
    delete document;
}

uint32_t xml_get_element_nodecount(zur_xml_document* document, const char* path, uint32_t* count) {
    *count = 0;
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    pugi::xml_node node = find(*document, path);
    const bool is_numbered = node && path[std::strlen(path) - 1] == ']';
    for (; node; node = is_numbered ? pugi::xml_node() : node.next_sibling(node.name())) ++*count;
    return 0;
}

uint32_t xml_get_element_value(zur_xml_document* document, const char* path, char* buffer, uint32_t size,
                               uint32_t* length) {
    if (length != nullptr) *length = 0;
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    const pugi::xml_node node = find(*document, path);
    if (!node) return ZUR_ABSENT;
    if (buffer == nullptr) size = 0;
    std::size_t whole;
    if (!unescape(node, buffer, size, whole) || whole >= UINT32_MAX) return ZUR_BAD_ARGUMENT;
    if (length != nullptr) *length = static_cast<uint32_t>(whole);
    return whole != 0 && whole >= size ? ZUR_BUFFER_TOO_SMALL : 0;
}

uint32_t platform_xml_plain_text(zur_xml_document* document, const char* path, const char** characters,
                                 uint32_t* length) {
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    const pugi::xml_node node = find(*document, path);
    if (!node) return ZUR_ABSENT;
    std::size_t whole;
    *characters = plain_text(node, whole);
    if (*characters == nullptr || whole >= UINT32_MAX) return ZUR_BUFFER_TOO_SMALL;
    *length = static_cast<uint32_t>(whole);
    return 0;
}

size_t platform_xml_lay_out(const char* text, size_t length, size_t width, char* buffer, size_t size) {
    std::size_t whole = 0;
    platform::guarded([&] {
        const std::string lines = laid_out({text, length}, width);
        whole = lines.size();
        lines.copy(buffer, size);
    });
    return whole;
}
