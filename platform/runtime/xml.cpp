// Parsed XML documents and the look-up of elements by path. Parsing itself is pugixml's.
//
// A look-up walks the children of one element for each step of the path. The steps of the last path are remembered:
// those that a path shares with it are not walked again, and a step that asks for a later element of the same name
// goes on where the last one stopped, so that asking for x[1], x[2], ... walks the siblings once.
#include "../common/contract.hpp"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

struct zur_xml_document {
    struct Step {
        std::size_t start; // of the name, in last_path
        std::size_t name_length;
        std::size_t end;
        std::size_t number; // from 1
        pugi::xml_node node;
    };

    pugi::xml_document tree;
    std::string last_path; // as far as it led to an element
    std::vector<Step> steps;
};

namespace {

using Document = zur_xml_document;

constexpr platform_xml_limits default_limits = {16u << 20, 64, 65536};

struct Failure {
    const char* reason = nullptr;
    std::size_t offset = 0;
};

// What cannot be told from the tree, and what must be told before there is one. The count of brackets bounds the
// memory that the tree will take.
Failure examine_text(std::string_view text, const platform_xml_limits& limits) {
    if (text.size() > limits.size) return {"document too large", limits.size};
    if (const std::size_t nul = text.find('\0'); nul != text.npos) return {"NUL byte", nul};
    std::size_t brackets = 0;
    for (std::size_t i = 0; (i = text.find('<', i)) != text.npos; ++i)
        if (++brackets > 2 * std::size_t{limits.elements} + 16) return {"too many elements", i};
    return {};
}

Failure examine_tree(const pugi::xml_document& tree, const platform_xml_limits& limits) {
    const auto failed = [](const char* reason, pugi::xml_node node) {
        return Failure{reason, static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0))};
    };
    std::size_t elements = 0;
    std::size_t depth = 1;
    for (pugi::xml_node node = tree.first_child(); node;) {
        const pugi::xml_node_type type = node.type();
        if (type == pugi::node_doctype) return failed("document type declarations are not accepted", node);
        if (type == pugi::node_element) {
            if (depth > limits.depth) return failed("elements nested too deeply", node);
            if (elements == limits.elements) return failed("too many elements", node);
            if (depth == 1 && elements != 0) return failed("more than one root element", node);
            ++elements;
            if (const pugi::xml_node child = node.first_child()) {
                node = child;
                ++depth;
                continue;
            }
        }
        pugi::xml_node next = node.next_sibling();
        for (; !next && depth > 1; --depth) {
            node = node.parent();
            next = node.next_sibling();
        }
        node = next;
    }
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

// One step of a path: a name, and a number from 1; past every run when it is no number.
struct Step {
    std::string_view name;
    std::size_t number = 1;
};

Step read_step(std::string_view text) {
    const std::size_t bracket = text.find('[');
    if (bracket == text.npos) return {text, 1};
    Step step = {text.substr(0, bracket), 0};
    const std::string_view digits = text.substr(bracket + 1);
    for (const char c : digits.substr(0, digits.empty() ? 0 : digits.size() - 1)) {
        if (c < '0' || c > '9' || step.number > UINT32_MAX) return {step.name, SIZE_MAX};
        step.number = 10 * step.number + static_cast<std::size_t>(c - '0');
    }
    if (digits.empty() || digits.back() != ']' || step.number == 0) step.number = SIZE_MAX;
    return step;
}

// The element of that number, from 1, among those of a name behind `former` or, without one, in `parent`.
// A name that no path of a Bundle has room for is not looked for.
pugi::xml_node walk(pugi::xml_node parent, pugi::xml_node former, std::string_view name, std::size_t number) {
    char terminated[256];
    if (name.size() >= sizeof terminated) return {};
    terminated[name.copy(terminated, name.size())] = 0;
    pugi::xml_node node = former ? former.next_sibling(terminated) : parent.child(terminated);
    while (node && --number != 0) node = node.next_sibling(terminated);
    return node;
}

std::size_t length_in_common(std::string_view a, std::string_view b) {
    const std::size_t shorter = std::min(a.size(), b.size());
    std::size_t i = 0;
    for (uint64_t of_a, of_b; i + sizeof of_a <= shorter; i += sizeof of_a) {
        std::memcpy(&of_a, a.data() + i, sizeof of_a);
        std::memcpy(&of_b, b.data() + i, sizeof of_b);
        if (of_a != of_b) return i + static_cast<std::size_t>(std::countr_zero(of_a ^ of_b)) / 8;
    }
    while (i < shorter && a[i] == b[i]) ++i;
    return i;
}

// The first characters are there already.
void remember(std::string& last, std::string_view path, std::size_t same) {
    last.resize(path.size());
    if (path.size() > same) std::memcpy(last.data() + same, path.data() + same, path.size() - same);
}

// The element that a path leads to; of several, the first.
pugi::xml_node find(Document& document, std::string_view path) {
    std::string& last = document.last_path;
    std::vector<Document::Step>& steps = document.steps;
    const std::size_t same = length_in_common(path, last);
    const auto is_kept = [&](const Document::Step& step) {
        return step.end <= same && (step.end == path.size() || path[step.end] == '/');
    };
    std::size_t kept = 0;
    while (kept < steps.size() && is_kept(steps[kept])) ++kept;
    const Document::Step former = kept < steps.size() ? steps[kept] : Document::Step{};
    const std::size_t depth_of_former = kept;
    steps.resize(kept);
    for (std::size_t start = kept != 0 ? steps.back().end + 1 : 0; start <= path.size(); start = steps.back().end + 1) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const Step step = read_step(path.substr(start, end - start));
        const bool goes_on = steps.size() == depth_of_former && step.name.size() == former.name_length &&
                             start + former.name_length <= same && step.number > former.number;
        const pugi::xml_node parent = steps.empty() ? document.tree : steps.back().node;
        pugi::xml_node node;
        if (!step.name.empty())
            node = goes_on ? walk(parent, former.node, step.name, step.number - former.number)
                           : walk(parent, {}, step.name, step.number);
        if (!node) {
            remember(last, path.substr(0, steps.empty() ? 0 : steps.back().end), same);
            return {};
        }
        steps.push_back({start, step.name.size(), end, step.number, node});
    }
    remember(last, path, same);
    return steps.back().node;
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
    if (!put_piece(element.value())) return false;
    for (pugi::xml_node piece = element.first_child(); piece; piece = piece.next_sibling()) {
        const bool is_text = piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata;
        if (is_text && !put_piece(piece.value())) return false;
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
        // The first text stands in its element's node.
        constexpr unsigned flags = pugi::parse_embed_pcdata | pugi::parse_cdata | pugi::parse_escapes |
                                   pugi::parse_eol | pugi::parse_ws_pcdata_single | pugi::parse_doctype;
        const pugi::xml_parse_result result = document->tree.load_buffer(text, length, flags, pugi::encoding_utf8);
        failure = result ? examine_tree(document->tree, chosen)
                         : Failure{result.description(),
                                   static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0))};
    }
    if (failure.reason == nullptr) {
        document->last_path.reserve(256);
        document->steps.reserve(8);
        return document;
    }
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
    const std::string_view whole(path);
    pugi::xml_node node = find(*document, whole);
    if (!node) return 0;
    *count = 1;
    if (whole.back() == ']') return 0;
    const std::string_view name = node.name();
    while ((node = walk({}, node, name, 1))) ++*count;
    return 0;
}

uint32_t xml_get_element_value(zur_xml_document* document, const char* path, char* buffer, uint32_t size,
                               uint32_t* length) {
    if (length != nullptr) *length = 0;
    if (document == nullptr || path == nullptr) return ZUR_BAD_ARGUMENT;
    const pugi::xml_node node = find(*document, path);
    if (!node) return ZUR_ABSENT;
    std::size_t whole = 0;
    if (!unescape(node, buffer, buffer != nullptr ? size : 0, whole)) return ZUR_BAD_ARGUMENT;
    if (length != nullptr) *length = static_cast<uint32_t>(whole);
    return whole != 0 && (buffer == nullptr || whole >= size) ? ZUR_BUFFER_TOO_SMALL : 0;
}
