// Parsed XML documents and the look-up of elements by path. Parsing itself is pugixml's.
//
// A document is walked once, without recursion, into an index sorted by (parent, name, place). A look-up is a binary
// search for each step of the path, and the last step's run of equally named elements is remembered, so that asking
// for x[1], x[2], ... costs the same for each. No document can make one step cost more than that.
#include "../common/contract.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct zur_xml_document {
    struct Element {
        pugi::xml_node node;
        uint32_t parent; // 0 is the document
        uint32_t name;   // as in names
        uint32_t number; // from 1, in document order
    };
    struct Run {
        const Element* first;
        std::size_t count;
    };

    pugi::xml_document tree;
    std::map<std::string_view, uint32_t> names;
    std::vector<Element> index;
    std::string last_path; // up to the last step's number
    Run last_run{};
};

namespace {

using Document = zur_xml_document;
using Element = Document::Element;
using Run = Document::Run;

constexpr platform_xml_limits default_limits = {16u << 20, 64, 65536};

struct Failure {
    const char* reason = nullptr;
    std::size_t offset = 0;
};

auto key(const Element& element) {
    return std::pair(uint64_t{element.parent} << 32 | element.name, element.number);
}

// What cannot be told from the tree, and what must be told before there is one. The count of brackets bounds the
// memory that the tree will take.
Failure examine_text(std::string_view text, const platform_xml_limits& limits) {
    if (text.size() > limits.size) return {"document too large", limits.size};
    std::size_t brackets = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == 0) return {"NUL byte", i};
        if (text[i] == '<' && ++brackets > 2 * std::size_t{limits.elements} + 16) return {"too many elements", i};
    }
    return {};
}

Failure build_index(Document& document, const platform_xml_limits& limits) {
    const auto offset = [](pugi::xml_node node) {
        return static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0));
    };
    std::vector<uint32_t> parents = {0};
    std::string_view last_name;
    uint32_t last_id = 0;
    for (pugi::xml_node node = document.tree.first_child(); node;) {
        if (node.type() == pugi::node_doctype) return {"document type declarations are not accepted", offset(node)};
        if (node.type() == pugi::node_element) {
            if (parents.size() > limits.depth) return {"elements nested too deeply", offset(node)};
            if (document.index.size() == limits.elements) return {"too many elements", offset(node)};
            if (parents.size() == 1 && !document.index.empty()) return {"more than one root element", offset(node)};
            const auto number = static_cast<uint32_t>(document.index.size() + 1);
            if (const std::string_view name = node.name(); name != last_name) {
                last_name = name;
                last_id = document.names.try_emplace(name, static_cast<uint32_t>(document.names.size())).first->second;
            }
            document.index.push_back({node, parents.back(), last_id, number});
            if (node.first_child()) {
                parents.push_back(number);
                node = node.first_child();
                continue;
            }
        }
        while (!node.next_sibling() && parents.size() > 1) {
            node = node.parent();
            parents.pop_back();
        }
        node = node.next_sibling();
    }
    // Most documents have their elements of one name together, in the order of the first of each.
    const auto comes_first = [](const Element& a, const Element& b) { return key(a) < key(b); };
    if (!std::is_sorted(document.index.begin(), document.index.end(), comes_first))
        std::sort(document.index.begin(), document.index.end(), comes_first);
    return {};
}

void tell(std::string_view text, const Failure& failure, char* message, std::size_t message_size) {
    if (message == nullptr || message_size == 0) return;
    const std::string_view before = text.substr(0, failure.offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t line_start = before.rfind('\n') + 1;
    std::snprintf(message, message_size, "line %td, column %zu: %s", line, before.size() - line_start + 1,
                  failure.reason);
}

// All children of one name, in document order.
Run children(const Document& document, uint32_t parent, std::string_view name) {
    const auto named = document.names.find(name);
    if (named == document.names.end()) return {};
    const auto place_of = [&](uint32_t number) {
        const Element wanted = {{}, parent, named->second, number};
        return std::lower_bound(document.index.begin(), document.index.end(), wanted,
                                [](const Element& a, const Element& b) { return key(a) < key(b); });
    };
    const auto first = place_of(0);
    const auto last = place_of(UINT32_MAX);
    return {document.index.data() + (first - document.index.begin()), static_cast<std::size_t>(last - first)};
}

// One step of a path: a name, and a number from 1; 0 when the path gives none, and past every run when it is no number.
struct Step {
    std::string_view name;
    std::size_t number = 0;
};

Step read_step(std::string_view text) {
    const std::size_t bracket = text.find('[');
    if (bracket == text.npos) return {text, 0};
    Step step = {text.substr(0, bracket), 0};
    const std::string_view digits = text.substr(bracket + 1);
    for (const char c : digits.substr(0, digits.empty() ? 0 : digits.size() - 1)) {
        if (c < '0' || c > '9' || step.number > UINT32_MAX) return {step.name, SIZE_MAX};
        step.number = 10 * step.number + static_cast<std::size_t>(c - '0');
    }
    if (digits.empty() || digits.back() != ']' || step.number == 0) step.number = SIZE_MAX;
    return step;
}

// The elements that match: one for a path that ends in a number, else all of the last step's name.
Run find(Document& document, std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t last_step = slash == path.npos ? 0 : slash + 1;
    const Step last = read_step(path.substr(last_step));
    const std::string_view without_number = path.substr(0, last_step + last.name.size());
    if (document.last_path != without_number || document.last_path.empty()) {
        uint32_t parent = 0;
        for (std::size_t start = 0; start < last_step;) {
            const std::size_t end = path.find('/', start);
            const Step step = read_step(path.substr(start, end - start));
            const Run run = children(document, parent, step.name);
            const std::size_t place = step.number != 0 ? step.number - 1 : 0;
            if (place >= run.count) return {};
            parent = run.first[place].number;
            start = end + 1;
        }
        document.last_run = children(document, parent, last.name);
        document.last_path = without_number;
    }
    const Run& run = document.last_run;
    if (last.number == 0) return run;
    return last.number <= run.count ? Run{run.first + last.number - 1, 1} : Run{};
}

int hex_digit(char c) {
    const char digits[] = "0123456789abcdef0123456789ABCDEF";
    const char* found = c != 0 ? std::strchr(digits, c) : nullptr;
    return found != nullptr ? static_cast<int>(found - digits) & 15 : -1;
}

// Undoes the backslash escape of the element's text. Gives the whole length; false for an escape that is none.
bool unescape(pugi::xml_node element, char* buffer, std::size_t size, std::size_t& length) {
    length = 0;
    const auto put = [&](char c) {
        if (length + 1 < size) buffer[length] = c;
        ++length;
    };
    for (const pugi::xml_node piece : element.children()) {
        if (piece.type() != pugi::node_pcdata && piece.type() != pugi::node_cdata) continue;
        for (const char* p = piece.value(); *p != 0; ++p) {
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
    }
    if (size != 0) buffer[std::min(length, size - 1)] = 0;
    return length <= UINT32_MAX - 1;
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
    Failure failure = examine_text(whole, chosen);
    if (document == nullptr) failure = {"out of memory", 0};
    if (failure.reason == nullptr) {
        // White space counts where it is all that an element holds; elsewhere between elements it is layout.
        constexpr unsigned flags = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                                   pugi::parse_ws_pcdata_single | pugi::parse_doctype;
        const pugi::xml_parse_result result = document->tree.load_buffer(text, length, flags, pugi::encoding_utf8);
        failure = result ? build_index(*document, chosen)
                         : Failure{result.description(),
                                   static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0))};
    }
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
    *count = static_cast<uint32_t>(find(*document, path).count);
    return 0;
}

uint32_t xml_get_element_value(zur_xml_document* document, const char* path, char* buffer, uint32_t size,
                               uint32_t* length) {
    if (length != nullptr) *length = 0;
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    const Run run = find(*document, path);
    if (run.count == 0) return ZUR_ABSENT;
    std::size_t whole = 0;
    if (!unescape(run.first->node, buffer, buffer != nullptr ? size : 0, whole)) return ZUR_BAD_ARGUMENT;
    if (length != nullptr) *length = static_cast<uint32_t>(whole);
    return whole != 0 && (buffer == nullptr || whole >= size) ? ZUR_BUFFER_TOO_SMALL : 0;
}
