// Parsed XML documents and the look-up of elements by path. Parsing itself is pugixml's.
//
// A document's elements stand in one block, in the document's order, so that a look-up needs pugixml for nothing but
// the further pieces of a text. It walks the children of one element for each step of the path. The steps of the last
// path are remembered: those that a path shares with it are not walked again, and a step that asks for a later element
// of the same name goes on where the last one stopped, so that asking for x[1], x[2], ... walks the siblings once.
#include "../common/element_text.hpp"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <immintrin.h>
#include <memory>
#include <new>
#include <pugixml.hpp>
#include <string_view>
#include <utility>

struct zur_xml_document {
    // A Bundle's paths are shorter. A name that is as long is not looked for.
    static constexpr std::size_t path_room = 256;

    // An element's descendants stand behind it, its next sibling behind them.
    struct Element {
        const char* name;
        const char* text; // the first piece
        pugi::xml_node node;
        uint32_t size; // in elements, with its descendants
        bool has_more_text;

        const Element* end() const { return this + size; }
    };

    // A step of a path that led to an element. The first one stands for the document.
    struct Step {
        std::size_t start; // of its name, in the path
        std::size_t name_end;
        std::size_t number; // from 1
        const Element* element;
    };

    std::unique_ptr<char[]> text;
    pugi::xml_document tree; // in the text's place
    std::unique_ptr<Element, decltype(&std::free)> elements{nullptr, &std::free};
    std::unique_ptr<Step[]> steps; // as many as the deepest element has
    Step* last = nullptr;          // of the last path, which is kept up to the end of this name
    char last_path[path_room];
};

namespace {

using Document = zur_xml_document;
using Element = Document::Element;
using Step = Document::Step;

constexpr platform_xml_limits default_limits = {16u << 20, 64, 8192};

// Behind the text, for its end and for whole words of a name.
constexpr std::size_t text_padding = 1 + sizeof(uint64_t);

struct Failure {
    const char* reason = nullptr;
    std::size_t offset = 0;
};

constexpr Failure out_of_memory = {"out of memory", 0};

// What cannot be told from the tree, and what must be told before there is one. The count of brackets bounds the
// memory that the tree will take.
Failure examine_text(std::string_view text, const platform_xml_limits& limits) {
    if (text.size() > limits.size) return {"document too large", limits.size};
    if (const std::size_t nul = text.find('\0'); nul != text.npos) return {"NUL byte", nul};
    const std::size_t most = 2 * std::size_t{limits.elements} + 16;
    if (text.size() <= most) return {};
    std::size_t brackets = 0;
    for (std::size_t i = 0; (i = text.find('<', i)) != text.npos; ++i)
        if (++brackets > most) return {"too many elements", i};
    return {};
}

// Lists the tree's elements. One that is still open has its parent's number for its size.
Failure list_elements(Document& document, const platform_xml_limits& limits) {
    const auto failed = [](const char* reason, pugi::xml_node node) {
        return Failure{reason, static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0))};
    };
    Element* elements = nullptr;
    std::size_t room = 0;
    uint32_t count = 0;
    uint32_t parent = 0;
    std::size_t depth = 0;
    std::size_t deepest = 0;
    pugi::xml_node node = document.tree;
    do {
        switch (node.type()) {
        case pugi::node_doctype: return failed("document type declarations are not accepted", node);
        case pugi::node_document:
        case pugi::node_element:
            if (depth > limits.depth) return failed("elements nested too deeply", node);
            if (count > limits.elements) return failed("too many elements", node);
            if (depth == 1 && count != 1) return failed("more than one root element", node);
            if (count == room) {
                room = std::max<std::size_t>(2 * room, 64);
                elements = static_cast<Element*>(std::realloc(document.elements.get(), room * sizeof(Element)));
                if (elements == nullptr) return out_of_memory;
                (void)document.elements.release();
                document.elements.reset(elements);
            }
            new (elements + count) Element{node.name(), node.value(), node, parent, false};
            parent = count++;
            deepest = std::max(deepest, ++depth);
            node = node.first_child();
            break;
        case pugi::node_null: {
            Element& closed = elements[parent];
            parent = std::exchange(closed.size, count - parent);
            --depth;
            node = closed.node.next_sibling();
            break;
        }
        default: // a piece of text behind the first
            elements[parent].has_more_text = true;
            node = node.next_sibling();
        }
    } while (depth != 0);
    document.steps.reset(new (std::nothrow) Step[deepest]);
    if (document.steps == nullptr) return out_of_memory;
    document.last = document.steps.get();
    *document.last = {0, 0, 1, elements};
    return {};
}

Failure parse(Document& document, std::string_view text, const platform_xml_limits& limits) {
    document.text.reset(new (std::nothrow) char[text.size() + text_padding]);
    if (document.text == nullptr) return out_of_memory;
    std::memset(document.text.get() + text.copy(document.text.get(), text.size()), 0, text_padding);
    // White space counts where it is all that an element holds; elsewhere between elements it is layout.
    // The first text stands in its element's node.
    constexpr unsigned flags = pugi::parse_embed_pcdata | pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                               pugi::parse_ws_pcdata_single | pugi::parse_doctype;
    const pugi::xml_parse_result result =
        document.tree.load_buffer_inplace(document.text.get(), text.size() + 1, flags, pugi::encoding_utf8);
    if (result) return list_elements(document, limits);
    return {result.description(), static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0))};
}

void tell(std::string_view text, const Failure& failure, char* message, std::size_t message_size) {
    if (message == nullptr || message_size == 0) return;
    const std::string_view before = text.substr(0, failure.offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t line_start = before.rfind('\n') + 1;
    std::snprintf(message, message_size, "line %td, column %zu: %s", line, before.size() - line_start + 1,
                  failure.reason);
}

std::size_t length_in_common(const char* a, const char* b, std::size_t length) {
    const auto difference = [&](std::size_t i) {
        const __m128i of_a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i of_b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(of_a, of_b))) ^ 0xFFFF;
    };
    constexpr std::size_t width = sizeof(__m128i);
    std::size_t i = 0;
    for (; i < length && length >= width; i += width) {
        i = std::min(i, length - width); // the last vector overlaps the one before it
        if (const unsigned found = difference(i)) return i + static_cast<std::size_t>(std::countr_zero(found));
    }
    while (i < length && a[i] == b[i]) ++i;
    return std::min(i, length);
}

// Whether an element has that name. Behind a document's last name there is room, so that words of both are compared
// where the element's name is shorter.
bool is_named(const Element& element, const char* name, std::size_t length) {
    if (*element.name != *name) return false;
    std::size_t i = 0;
    for (; i + sizeof(uint64_t) <= length; i += sizeof(uint64_t))
        if (std::memcmp(element.name + i, name + i, sizeof(uint64_t)) != 0) return false;
    while (i < length && element.name[i] == name[i]) ++i;
    return i == length && element.name[length] == 0;
}

// The element of that number, from 1, among those of a name from `first` to `end`; null when there are fewer.
const Element* walk(const Element* first, const Element* end, std::string_view name, std::size_t number) {
    for (; first != end; first = first->end())
        if (is_named(*first, name.data(), name.size()) && --number == 0) return first;
    return nullptr;
}

// What stands behind a step's name: its number, from 1, or nothing for the first. No end: this is no step.
struct Rest {
    const char* end = nullptr;
    std::size_t number = 1;
};

Rest read_rest(const char* p) {
    Rest rest;
    if (*p == '[') {
        rest.number = 0;
        for (unsigned digit; (digit = static_cast<unsigned char>(*++p) - unsigned{'0'}) <= 9;)
            if (rest.number <= UINT32_MAX) rest.number = 10 * rest.number + digit;
        if (rest.number == 0 || *p++ != ']') return rest;
    }
    if (*p == '/' || *p == 0) rest.end = p;
    return rest;
}

// The last step of a path that leads to an element; of several elements, to the first. Where it leads nowhere, the
// steps before remain, or all of the last path, if but a number is not there.
const Step* find(Document& document, const char* path) {
    Step* step = document.last;
    const std::size_t kept = std::min(std::strlen(path), step->name_end);
    const std::size_t same = length_in_common(path, document.last_path, kept);
    while (step->name_end > same) --step;
    const char* name = path;
    char delimiter = '/';
    if (step->name_end != 0) {
        const char* name_end = path + step->name_end;
        if (*name_end == '[' || *name_end == '/' || *name_end == 0) {
            const auto [end, number] = read_rest(name_end);
            if (end == nullptr) return nullptr;
            if (number != step->number) {
                const Element* parent = step[-1].element;
                const std::string_view whole(path + step->start, step->name_end - step->start);
                const Element* found = number > step->number
                                           ? walk(step->element->end(), parent->end(), whole, number - step->number)
                                           : walk(parent + 1, parent->end(), whole, number);
                if (found == nullptr) return nullptr;
                step->number = number;
                step->element = found;
            }
            delimiter = *end;
            name = end + 1;
        } else {
            name = path + step->start;
            --step;
        }
    }
    while (delimiter == '/') {
        const char* name_end = name + std::strcspn(name, "/[");
        const auto [end, number] = read_rest(name_end);
        const std::string_view whole(name, static_cast<std::size_t>(name_end - name));
        if (end == nullptr || whole.size() >= Document::path_room) break;
        const Element* found = walk(step->element + 1, step->element->end(), whole, number);
        if (found == nullptr) break;
        *++step = {static_cast<std::size_t>(name - path), static_cast<std::size_t>(name_end - path), number, found};
        delimiter = *end;
        name = end + 1;
    }
    const Step* found = delimiter == 0 ? step : nullptr;
    while (step->name_end > Document::path_room) --step;
    document.last = step;
    if (step->name_end > same) std::memcpy(document.last_path + same, path + same, step->name_end - same);
    return found;
}

int hex_digit(char c) {
    const char digits[] = "0123456789abcdef0123456789ABCDEF";
    const char* found = c != 0 ? std::strchr(digits, c) : nullptr;
    return found != nullptr ? static_cast<int>(found - digits) & 15 : -1;
}

// The text of an element if it stands there as it is, in one piece and without an escape; else null.
const char* plain_text(const Element& element, std::size_t& length) {
    const char* end = strchrnul(element.text, '\\');
    length = static_cast<std::size_t>(end - element.text);
    return *end == 0 && !element.has_more_text ? element.text : nullptr;
}

// Undoes the backslash escape of the element's text. Gives the whole length; false for an escape that is none.
bool unescape(const Element& element, char* buffer, std::size_t size, std::size_t& length) {
    length = 0;
    const auto put = [&](char c) {
        if (length + 1 < size) buffer[length] = c;
        ++length;
    };
    const auto put_piece = [&](const char* p) {
        for (; *p != 0; ++p) {
            if (*p != '\\') {
                put(*p);
                continue;
            }
            const int high = hex_digit(p[1]);
            const int low = high >= 0 ? hex_digit(p[2]) : -1;
            if (low < 0) return false;
            put(static_cast<char>(high << 4 | low));
            p += 2;
        }
        return true;
    };
    if (!put_piece(element.text)) return false;
    for (pugi::xml_node piece = element.node.first_child(); piece; piece = piece.next_sibling()) {
        const bool is_text = piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata;
        if (is_text && !put_piece(piece.value())) return false;
    }
    if (size != 0) buffer[std::min(length, size - 1)] = 0;
    return true;
}

} // namespace

zur_xml_document* platform_xml_parse(const char* text, size_t length, const platform_xml_limits* limits, char* message,
                                     size_t message_size) {
    platform_xml_limits chosen = limits != nullptr ? *limits : platform_xml_limits{};
    chosen.size = chosen.size != 0 ? chosen.size : default_limits.size;
    chosen.depth = chosen.depth != 0 ? chosen.depth : default_limits.depth;
    chosen.elements = chosen.elements != 0 ? chosen.elements : default_limits.elements;

    chosen.elements = std::min(chosen.elements, UINT32_MAX - 1);

    const std::string_view whole(text, length);
    auto* document = new (std::nothrow) Document;
    Failure failure = examine_text(whole, chosen);
    if (failure.reason == nullptr) failure = document != nullptr ? parse(*document, whole, chosen) : out_of_memory;
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
    const Step* step = find(*document, path);
    if (step == nullptr) return 0;
    *count = 1;
    if (path[step->name_end] == '[') return 0;
    const Element* element = step->element;
    const std::string_view name = element->name;
    while ((element = walk(element->end(), step[-1].element->end(), name, 1)) != nullptr) ++*count;
    return 0;
}

uint32_t xml_get_element_value(zur_xml_document* document, const char* path, char* buffer, uint32_t size,
                               uint32_t* length) {
    if (length != nullptr) *length = 0;
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    const Step* step = find(*document, path);
    if (step == nullptr) return ZUR_ABSENT;
    if (buffer == nullptr) size = 0;
    std::size_t whole;
    if (const char* plain = plain_text(*step->element, whole); plain == nullptr) {
        if (!unescape(*step->element, buffer, size, whole)) return ZUR_BAD_ARGUMENT;
    } else if (size != 0) {
        const std::size_t fits = std::min<std::size_t>(whole, size - 1);
        std::memcpy(buffer, plain, fits);
        buffer[fits] = 0;
    }
    if (whole >= UINT32_MAX) return ZUR_BAD_ARGUMENT;
    if (length != nullptr) *length = static_cast<uint32_t>(whole);
    return whole != 0 && whole >= size ? ZUR_BUFFER_TOO_SMALL : 0;
}

uint32_t platform_xml_plain_text(zur_xml_document* document, const char* path, const char** characters,
                                 uint32_t* length) {
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    const Step* step = find(*document, path);
    if (step == nullptr) return ZUR_ABSENT;
    std::size_t whole;
    *characters = plain_text(*step->element, whole);
    if (*characters == nullptr || whole >= UINT32_MAX) return ZUR_BUFFER_TOO_SMALL;
    *length = static_cast<uint32_t>(whole);
    return 0;
}
