// pugixml: builds the library's XML documents as trees and writes them, and reads the library's own documents into
// plain structures.
#include "bench/suite.hpp"

#include <algorithm>
#include <cstring>

#include <pugixml.hpp>

namespace bench {
namespace {

constexpr char digits[] = "0123456789abcdef";

void add_hex(std::string& to, std::uint8_t byte) {
    to += digits[byte >> 4];
    to += digits[byte & 15];
}

std::uint8_t byte_of(const char* hex) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    return static_cast<std::uint8_t>(digit(hex[0]) << 4 | digit(hex[1]));
}

struct Build {
    pugi::xml_node at;

    void put(const char* name, const auto& value) { at.append_child(name).text() = value; }
    void number(const char* name, std::uint16_t value) { put(name, unsigned{value}); }
    void number(const char* name, std::uint32_t value) { put(name, value); }
    void number(const char* name, std::uint64_t value) { put(name, static_cast<unsigned long long>(value)); }
    void length(const char* name, const auto& text) { put(name, static_cast<unsigned>(text.size())); }
    void text(const char* name, const std::string& value) { put(name, value.c_str()); }
    void vstring(const char* name, const std::string& value) { text(name, value); }
    void six(const char* name, const Mac& value) { text(name, std::string(value.begin(), value.end())); }
    void mac(const char* name, const Mac& value) {
        std::string written;
        for (const std::uint8_t byte : value) {
            if (!written.empty()) written += ':';
            add_hex(written, byte);
        }
        text(name, written);
    }
    void tlv(const char* name, const TlvOf<Plain>& value) {
        std::string written = std::to_string(value.type) + ':';
        for (const char byte : value.value) add_hex(written, static_cast<std::uint8_t>(byte));
        text(name, written);
    }
    void enumerator(const char* name, int, std::nullptr_t, std::uint32_t value) { number(name, value); }
    void enumerator(const char* name, int, const char* const* names, std::uint32_t value) {
        at.append_child(name).append_child(names[value]);
    }
    void words(const char* name, const auto& values) {
        for (const std::uint32_t value : values) number(name, value);
    }
    void run(const char* name, const auto& values) { words(name, values); }
    void record(const char* name, int, int, auto body) {
        const pugi::xml_node outer = std::exchange(at, at.append_child(name));
        body();
        at = outer;
    }
    void array(const char* name, int, int, auto visit_element, auto& elements) {
        for (auto& element : elements) record(name, 0, 0, [&] { visit_element(element); });
    }
    void list(const char* name, int, int, auto visit_element, auto& elements) {
        array(name, 0, 0, visit_element, elements);
    }
    void arm(const char* name, int, int, auto visit_arm, auto& arm) {
        record(name, 0, 0, [&] { visit_arm(*arm); });
    }
};

struct Read {
    pugi::xml_node at;

    pugi::xml_text get(const char* name) const { return at.child(name).text(); }
    void number(const char* name, std::uint16_t& value) { value = static_cast<std::uint16_t>(get(name).as_uint()); }
    void number(const char* name, std::uint32_t& value) { value = get(name).as_uint(); }
    void number(const char* name, std::uint64_t& value) { value = get(name).as_ullong(); }
    void length(const char* name, auto&) { keep(get(name).as_uint()); }
    void text(const char* name, std::string& value) { value = get(name).get(); }
    void vstring(const char* name, std::string& value) { text(name, value); }
    void six(const char* name, Mac& value) { std::memcpy(value.data(), get(name).get(), value.size()); }
    void mac(const char* name, Mac& value) {
        const char* from = get(name).get();
        require(std::strlen(from) == 3 * sizeof value - 1, "an address is read wrong");
        for (std::size_t i = 0; i < sizeof value; ++i) value[i] = byte_of(from + 3 * i);
    }
    void tlv(const char* name, TlvOf<Plain>& value) {
        char* from;
        value.type = static_cast<std::uint32_t>(std::strtoul(get(name).get(), &from, 10));
        while (from[0] != 0 && from[1] != 0 && from[2] != 0) {
            value.value += static_cast<char>(byte_of(from + 1));
            from += 2;
        }
    }
    void enumerator(const char* name, int, std::nullptr_t, std::uint32_t& value) { number(name, value); }
    template <std::size_t n>
    void enumerator(const char* name, int, const char* const (&names)[n], std::uint32_t& value) {
        const char* found = at.child(name).first_child().name();
        const auto is_found = [=](const char* known) { return std::strcmp(known, found) == 0; };
        value = static_cast<std::uint32_t>(std::find_if(names, names + n, is_found) - names);
    }
    void each(const char* name, auto read_element) {
        const pugi::xml_node outer = at;
        for (at = outer.child(name); at; at = at.next_sibling(name)) read_element();
        at = outer;
    }
    void words(const char* name, std::vector<std::uint32_t>& values) {
        each(name, [&] { values.push_back(at.text().as_uint()); });
    }
    void run(const char* name, std::array<std::uint8_t, 256>& values) {
        std::size_t i = 0;
        each(name, [&] { values[i++ % values.size()] = static_cast<std::uint8_t>(at.text().as_uint()); });
    }
    void record(const char* name, int, int, auto body) {
        const pugi::xml_node outer = std::exchange(at, at.child(name));
        body();
        at = outer;
    }
    void array(const char* name, int, int, auto visit_element, auto& elements) {
        each(name, [&] { visit_element(elements.emplace_back()); });
    }
    void list(const char* name, int, int, auto visit_element, auto& elements) {
        array(name, 0, 0, visit_element, elements);
    }
    void arm(const char* name, int, int, auto visit_arm, auto& arm) {
        record(name, 0, 0, [&] { visit_arm(arm.emplace()); });
    }
};

struct Written : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

template <class Data, class X>
struct Subject {
    X x;
    std::string ours;
    Written written;

    explicit Subject(const Workload<Data>& workload) : x(workload.data), ours(workload.xml) {
        const std::string expected = write(x);
        X back = parsed();
        require(write(back) == expected && expected.size() >= ours.size(),
                workload.name + ": pugixml reads and writes something else");
    }
    const std::string& write(X& from) {
        pugi::xml_document document;
        Build build{document};
        visit(build, from);
        written.text.clear();
        document.save(written, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
        return written.text;
    }
    X parsed() const {
        pugi::xml_document document;
        require(bool(document.load_buffer(ours.data(), ours.size(), pugi::parse_default, pugi::encoding_utf8)),
                "pugixml does not read a document");
        X y{};
        Read reader{document};
        visit(reader, y);
        return y;
    }
    std::size_t to_xml() {
        keep(write(x).data());
        return written.text.size();
    }
    std::size_t from_xml() {
        const X fresh = parsed();
        keep(&fresh);
        return ours.size();
    }
};

const Peer pugixml("pugixml", add_all<Subject, Message, VlanGroup, DomainNames>);

} // namespace
} // namespace bench
