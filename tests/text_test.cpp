// The print form and the XML form against hand-written files, enumerations by themselves, and documents that lack
// something or are hostile. That every record has the forms that its fields ask for and comes back from its XML is
// tested in model_test.cpp; calls/readers.txt has the calls of a reader.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/model.hpp"
#include "support/types.hpp"

#include <fstream>
#include <regex>
#include <sys/resource.h>

namespace epm::test {
namespace {

/// These tests make very many calls. What they write is checked by the tests of the setters.
class Text : public BundleTest {
protected:
    void SetUp() override {
        BundleTest::SetUp();
        checker.reset();
    }
    TestDomain D;
};

std::string element(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

std::string contents(const std::string& file) {
    std::ifstream in(EPM_SOURCE_DIR "/tests/expected/text/" + file, std::ios::binary);
    EXPECT_TRUE(in) << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(Text, HandWrittenRecordsAreReadShownAndWritten) {
    const struct {
        const char* type;
        std::string file;
        int variant;
    } records[] = {
        {"orlan_ial_vlan_group_info", "vlan_group", 0}, {"orlan_ial_svm_epm_data", "message_with_acl", 2},
        {"orlan_ial_svm_acl_data", "acl_variant_0", 0}, {"orlan_ial_svm_acl_data", "acl_variant_1", 1},
        {"orlan_ial_svm_acl_data", "acl_variant_2", 2}, {"orlan_ial_svm_bm_data", "grants", 1},
    };
    for (const auto& w : records) {
        SCOPED_TRACE(w.file);
        D.agree_all(w.variant);
        const Operations text(w.type);
        const std::string xml = contents(w.file + ".xml");
        const XmlDocument document = sound_xml(xml);
        Instance* x = create(w.type, D);
        EXPECT_EQ(text.read(D, document.get(), x), 0u);
        // The files have a line for each element, and the library writes no white space between elements.
        EXPECT_EQ(text.xml(D, x, w.type), std::regex_replace(xml, std::regex("\n *"), ""));
        // Bytes that print left unwritten are shown as dots.
        std::string print = text.printed(D, x, 0, w.type);
        for (char& c : print)
            if (c == '\0' || c == GuardedBuffer::filler) c = '.';
        EXPECT_EQ(print, contents(w.file + ".txt"));
        EXPECT_EQ(D.st, 0u);
        destroy(w.type, D, x);
    }
}

// ---- enumerations ----

TEST_F(Text, EnumeratorsAndOthers) {
    for (const Enum* e : catalogue::all_enums) {
        SCOPED_TRACE(e->name);
        D.agree_all(0); // so that known values above the Instance's variant are among them
        const std::string name = e->name;
        const Operations type(name);
        Instance* x = type.create(D, D.set_id());
        Instance* y = type.create(D, D.set_id());
        auto& value = *reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(x) + catalogue::header_length);
        const auto document_of = [&](const std::string& content) { return sound_xml(element(name, content)); };
        using Chained = std::uint32_t(zur_domain*, const Instance*, char*, std::uint32_t);
        const auto print_cr = operation<Chained>(name, "print_cr"), toxml_cr = operation<Chained>(name, "toxml_cr");
        for (const std::uint32_t v : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 200u, 0xFFFFFFFFu}) {
            value = v;
            const bool is_known = v < e->count;
            const std::string enumerator = is_known ? e->enumerators[v].name : name + " value out of range";
            const std::string printed =
                "@" + name + ":" + (is_known ? enumerator + "\n" : std::string("Enum value out of range"));
            EXPECT_EQ(type.printed(D, x, 3, "f"), "   f" + printed);
            EXPECT_EQ(type.xml(D, x, "f", 7), element("f", "<" + enumerator + "/>"));
            char buffer[200];
            EXPECT_EQ(print_cr(D, x, buffer, sizeof buffer), name.size() + printed.size());
            EXPECT_EQ(buffer, name + printed);
            toxml_cr(D, x, buffer, sizeof buffer);
            EXPECT_EQ(buffer, element(name, "<" + enumerator + "/>"));
            // On the wire, and by number.
            EXPECT_EQ(type.len(D, D.set_id(), x), 5u);
            EXPECT_EQ(type.marshal(D, D.set_id(), buffer, x, 5, &D.st), 5u);
            EXPECT_EQ(hex({buffer, 5}), hex(std::string(1, '\0') + big_endian(v, 4)));
            EXPECT_EQ(type.marshal(D, D.set_id(), buffer, x, 4, &D.st), 1u);
            EXPECT_EQ(std::exchange(D.st, 0), 90u);
            EXPECT_EQ(type.compare(x, y), static_cast<std::int32_t>(v));
            EXPECT_EQ(type.hash(x, 5), hash(in_memory(v, 4), 5));
            EXPECT_EQ(type.unmarshal(D, D.set_id(), buffer, y, 5, 0, &D.st), 5u);
            EXPECT_EQ(type.compare(x, y), 0);
            type.unmarshal(D, D.set_id(), std::array<char, 5>{}.data(), y, 5, 0, &D.st);
            // Read back; where no enumerator is found, or not even the element, the value stays.
            value = is_known ? 200 : v;
            EXPECT_EQ(type.read(D, document_of(" <x/><" + enumerator.substr(0, enumerator.find(' ')) + "/>").get(), x),
                      0u);
            EXPECT_EQ(value, v);
            EXPECT_EQ(type.read(D, sound_xml("<other/>").get(), x), 0u);
            EXPECT_EQ(value, v);
        }
        if (e->count > 1) { // the first that is found wins, wherever it is
            const std::string first = e->enumerators[e->count - 2].name;
            const std::string last = e->enumerators[e->count - 1].name;
            type.read(D, document_of("<" + last + "/><" + first + "/>").get(), x);
            EXPECT_EQ(value, e->count - 2);
        }
        // No variant above the top is written or taken.
        D.agree_all(PLATFORM_HIGHEST_VARIANT);
        x->variant = static_cast<std::int8_t>(e->top() + 1);
        std::string image(5, '\0');
        type.marshal(D, D.set_id(), image.data(), x, 5, &D.st);
        EXPECT_EQ(image[0], e->top());
        image[0] = static_cast<char>(e->top() + 1);
        type.unmarshal(D, D.set_id(), image.data(), y, 5, 0, &D.st);
        EXPECT_EQ(y->variant, e->top());
        EXPECT_EQ(D.st, 0u);
        x->variant = e->top();
        value = 0;
        destroy(name, D, x);
        destroy(name, D, y);
    }
}

TEST_F(Text, ValidityIsSigned) {
    for (const int agreed : {-1, 0, 1, 127})
        for (const Enum* e : catalogue::all_enums) {
            SCOPED_TRACE(e->name);
            D.agree_all(agreed);
            const auto is_valid = operation<std::uint32_t(zur_domain*, std::int32_t)>(*e, "is_valid_cr");
            const auto accepted = static_cast<std::int32_t>(e->accepted(static_cast<std::int8_t>(std::max(agreed, 0))));
            for (const std::int32_t v : {0, accepted - 1, -1, INT32_MIN}) EXPECT_EQ(is_valid(D, v), 1u) << v;
            for (const std::int32_t v : {accepted, 200, INT32_MAX}) EXPECT_EQ(is_valid(D, v), 0u) << v;
        }
}

// ---- documents that lack something, and hostile ones ----

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    for (; count != 0; --count) all += text;
    return all;
}

TEST_F(Text, WhatIsAbsent) {
    for (const Record* r : catalogue::all_records) {
        SCOPED_TRACE(r->name);
        const Operations text(r->name);
        Instance* x = create(r->name, D);
        Instance* untouched = create(r->name, D);
        EXPECT_EQ(text.read(D, sound_xml("<other/>").get(), x), 2u);
        // Arms are made when they are selected, so that a tag 0 that selects one leaves an empty arm behind.
        const bool ends_in_text = r->fields[r->count - 1].kind == Kind::text;
        EXPECT_EQ(text.read(D, sound_xml(element(r->name, "")).get(), x), ends_in_text ? 2u : 0u);
        EXPECT_TRUE(r->is_union() || text.compare(x, untouched) == 0);
        std::uint32_t st = 99;
        text.from_xml(D, D.set_id(), r->name, nullptr, x, &st, nullptr, 0);
        EXPECT_EQ(st, 99u);
        destroy(r->name, D, x);
        destroy(r->name, D, untouched);
    }
}

double seconds_now() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec) / 1e6;
}

TEST_F(Text, DocumentsThatAreTolerated) {
    const Operations text("orlan_ial_vlan_notify_name");
    const std::string fields = "<vlan_id>7</vlan_id><vlan_name>v</vlan_name><prev_vlan_name>p</prev_vlan_name>";
    const std::string deep = repeated("<d>", 60) + repeated("</d>", 60);
    for (const std::string& content : {
             fields + deep,
             repeated("<vlan_id>7</vlan_id>", 60000) + fields,
             repeated("<other/>", 60000) + fields,
             "<other " + std::string("a='") + repeated("x", 4000000) + "'/>" + fields,
             "<vlan_id b='" + repeated("&lt;", 1000000) + "'>7</vlan_id>" + fields,
             "&unknown;&#0;" + fields,
             "<!-- " + repeated("x", 1000000) + "-->" + fields,
         }) {
        Instance* x = create(text.type, D);
        const double start = seconds_now();
        EXPECT_EQ(text.read(D, sound_xml(element(text.type, content)).get(), x), 0u) << content.substr(0, 40);
        EXPECT_LT(seconds_now() - start, 5.0) << content.substr(0, 40);
        EXPECT_EQ(call<std::uint32_t>(D, text.type, std::string("vlan_id"), "get_value", x), 7u)
            << content.substr(0, 40);
        destroy(text.type, D, x);
    }
}

/// A path that is cut may happen to lead somewhere, and then to the same place for each element.
TEST_F(Text, PathsThatAreTooLong) {
    for (const Record* r : catalogue::all_records)
        for (std::size_t length = 200; length < 300; ++length) {
            const std::string root(length, 'r');
            std::string children;
            for (std::size_t i = 0; i < r->count; ++i) {
                const std::string name =
                    (r->fields[i].kind == Kind::arm ? "epm_type-" : "") + std::string(r->fields[i].name);
                // What every way to cut the field's path leads to.
                for (std::size_t cut = 1; cut <= name.size(); ++cut)
                    children += element(name.substr(0, cut), cut % 2 != 0 ? "1" : "");
            }
            const XmlDocument document = sound_xml(element(root, children));
            const Operations text(r->name);
            Instance* x = create(r->name, D);
            std::uint32_t st = 0;
            heap().refuse_beyond(1 << 20);
            text.from_xml(D, D.set_id(), root.c_str(), document.get(), x, &st, nullptr, 0);
            ASSERT_EQ(heap().refusals(), 0u) << r->name << " at " << length;
            heap().stop_refusing();
            destroy(r->name, D, x);
        }
}

} // namespace
} // namespace epm::test
