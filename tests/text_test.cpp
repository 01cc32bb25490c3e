// The print form and the XML form against hand-written files, enumerations by themselves, and documents that lack
// something or have too long names. That every record has the forms that its fields ask for and comes back from its XML
// is tested in model_test.cpp; calls/readers.txt has the calls of a reader.
#include "support/bundle_test.hpp"
#include "support/model.hpp"

#include <fstream>
#include <regex>
#include <span>

namespace epm::test {
namespace {

using Text = BundleTest;

std::string element(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

std::string contents(const std::string& file) {
    std::ifstream in(EPM_SOURCE_DIR "/tests/expected/text/" + file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(Text, HandWrittenRecordsAreReadShownAndWritten) {
    const std::tuple<const char*, std::string, int> records[] = {
        {"orlan_ial_vlan_group_info", "vlan_group", 0}, {"orlan_ial_svm_epm_data", "message_with_acl", 2},
        {"orlan_ial_svm_acl_data", "acl_variant_0", 0}, {"orlan_ial_svm_acl_data", "acl_variant_1", 1},
        {"orlan_ial_svm_acl_data", "acl_variant_2", 2}, {"orlan_ial_svm_bm_data", "grants", 1},
    };
    TestDomain D;
    for (const auto& [type, file, variant] : records) {
        SCOPED_TRACE(file);
        D.agree_all(variant);
        const Operations text(type);
        const std::string xml = contents(file + ".xml");
        Instance* x = create(type, D);
        EXPECT_EQ(text.read(D, sound_xml(xml).get(), x), 0u);
        // The files have a line for each element, and the library writes no white space between elements.
        EXPECT_EQ(text.xml(D, x, type), std::regex_replace(xml, std::regex("\n *"), ""));
        // Bytes that print left unwritten are shown as dots.
        std::string print = text.printed(D, x, 0, type);
        for (char& c : print)
            if (c == '\0' || c == GuardedBuffer::filler) c = '.';
        EXPECT_EQ(print, contents(file + ".txt"));
        EXPECT_EQ(D.st, 0u);
        destroy(type, D, x);
    }
}

TEST_F(Text, Enumerations) {
    TestDomain D;
    for (const Enum* e : catalogue::all_enums) {
        SCOPED_TRACE(e->name);
        D.agree_all(0); // so that known values above the Instance's variant are among them
        const Operations type(e->name);
        Instance* x = create(type.type, D);
        Instance* y = create(type.type, D);
        auto& value = *reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(x) + catalogue::header_length);
        const auto read = [&](const std::string& content) {
            return type.read(D, sound_xml(element(e->name, content)).get(), x);
        };
        using Chained = std::uint32_t(zur_domain*, const Instance*, char*, std::uint32_t);
        std::string image(5, '\0');
        for (const std::uint32_t v : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 200u, 0xFFFFFFFFu}) {
            value = v;
            EXPECT_EQ(type.printed(D, x, 3, "f"), shown(*e, "f", v, 3));
            EXPECT_EQ(type.xml(D, x, "f", 7), shown(*e, "f", v, -1));
            char buffer[200];
            EXPECT_EQ(operation<Chained>(*e, "print_cr")(D, x, buffer, 200), shown(*e, e->name, v, 0).size());
            EXPECT_EQ(buffer, shown(*e, e->name, v, 0));
            operation<Chained>(*e, "toxml_cr")(D, x, buffer, 200);
            EXPECT_EQ(buffer, shown(*e, e->name, v, -1));
            // On the wire, and by number.
            EXPECT_EQ(type.marshal(D, 1, image.data(), x, 4, &D.st), 1u);
            EXPECT_EQ(std::exchange(D.st, 0), 90u);
            EXPECT_EQ(type.marshal(D, 1, image.data(), x, 5, &D.st), type.len(D, 1, x));
            EXPECT_EQ(hex(image), "00" + hex(big_endian(v, 4)));
            EXPECT_EQ(type.compare(x, nullptr), 1);
            EXPECT_EQ(type.hash(x, 5), hash(in_memory(v, 4), 5));
            type.unmarshal(D, 1, std::array<char, 5>{}.data(), y, 5, 0, &D.st);
            EXPECT_EQ(type.compare(x, y), static_cast<std::int32_t>(v));
            EXPECT_EQ(type.unmarshal(D, 1, image.data(), y, 5, 0, &D.st), 5u);
            EXPECT_EQ(type.compare(x, y), 0);
            if (v >= e->count) continue;
            value = 200;
            EXPECT_EQ(read(" <x/><" + std::string(e->enumerators[v].name) + "/>"), 0u);
            EXPECT_EQ(value, v);
        }
        // Where no enumerator is found, or not even the element, the value stays; else the lowest wins.
        value = 77;
        EXPECT_EQ(read("<x/>") + type.read(D, sound_xml("<other/>").get(), x), 0u);
        EXPECT_EQ(value, 77u);
        read("<" + std::string(e->enumerators[e->count - 1].name) + "/><" + e->enumerators[0].name + "/>");
        EXPECT_EQ(value, 0u);
        // No variant above the top is written or taken.
        D.agree_all(PLATFORM_HIGHEST_VARIANT);
        x->variant = static_cast<std::int8_t>(e->top() + 1);
        type.marshal(D, 1, image.data(), x, 5, &D.st);
        EXPECT_EQ(std::exchange(image[0], x->variant), e->top());
        type.unmarshal(D, 1, image.data(), y, 5, 0, &D.st);
        EXPECT_EQ(y->variant, e->top());
        EXPECT_EQ(D.st, 0u);
        x->variant = e->top();
        destroy(type.type, D, x);
        destroy(type.type, D, y);
        for (const int agreed : {-1, 0, 1, 127}) {
            D.agree_all(agreed);
            const auto is_valid = operation<std::uint32_t(zur_domain*, std::int32_t)>(*e, "is_valid_cr");
            const auto accepted = static_cast<std::int32_t>(e->accepted(static_cast<std::int8_t>(std::max(agreed, 0))));
            for (const std::int32_t v : {0, accepted - 1, -1, INT32_MIN, accepted, 200, INT32_MAX}) // it is signed
                EXPECT_EQ(is_valid(D, v), v < accepted) << v << " in " << agreed;
        }
    }
}

// A document without the record, one without its fields, and none; and names that are too long for a path. A path that
// is cut may happen to lead somewhere, and then to the same place for each element.
TEST_F(Text, WhatIsAbsentOrTooLong) {
    TestDomain D;
    checker.reset(); // which would look at every block at each of very many calls
    for (const Record* r : catalogue::all_records) {
        SCOPED_TRACE(r->name);
        const Operations text(r->name);
        Instance* x = create(r->name, D);
        EXPECT_EQ(text.read(D, sound_xml("<other/>").get(), x), 2u);
        // Arms are made when they are selected, so that a tag 0 that selects one leaves an empty arm behind.
        const bool ends_in_text = r->fields[r->count - 1].kind == Kind::text;
        EXPECT_EQ(text.read(D, sound_xml(element(r->name, "")).get(), x), ends_in_text ? 2u : 0u);
        EXPECT_TRUE(r->is_union() || text.xml(D, x, "n") == shown(blank(*r, {}), "n", -1));
        std::uint32_t st = 99;
        text.from_xml(D, 1, r->name, nullptr, x, &st, nullptr, 0);
        EXPECT_EQ(st, 99u);
        destroy(r->name, D, x);
        // What every way to cut a field's path leads to.
        std::string children;
        for (const Field& f : std::span(r->fields).first(r->count)) {
            const std::string name = (f.kind == Kind::arm ? "epm_type-" : "") + std::string(f.name);
            for (std::size_t cut = 1; cut <= name.size(); ++cut)
                children += element(name.substr(0, cut), cut % 2 != 0 ? "1" : "");
        }
        for (std::size_t length = 200; length < 300; ++length) {
            const std::string root(length, 'r');
            const XmlDocument document = sound_xml(element(root, children));
            x = create(r->name, D);
            heap().refuse_beyond(1 << 20);
            text.from_xml(D, 1, root.c_str(), document.get(), x, &(st = 0), nullptr, 0);
            ASSERT_EQ(heap().refusals(), 0u) << length;
            heap().stop_refusing();
            destroy(r->name, D, x);
        }
    }
}

} // namespace
} // namespace epm::test
