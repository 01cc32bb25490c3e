// The print form and the XML form against hand-written files, and of enumerations. That every
// record has the form that its fields ask for is tested in model_test.cpp, reading XML back in text_read_test.cpp.
#include "support/bundle_test.hpp"
#include "support/text.hpp"
#include "support/types.hpp"

#include <orlan_epm.h>

#include <fstream>
#include <regex>

namespace epm::test {
namespace {

/// These tests make very many calls. What they write is checked by the tests of the setters.
class TextForm : public BundleTest {
protected:
    void SetUp() override {
        BundleTest::SetUp();
        checker.reset();
    }
};

// ---- hand-written files ----

std::string contents(const std::string& file) {
    std::ifstream in(EPM_SOURCE_DIR "/tests/expected/text/" + file, std::ios::binary);
    EXPECT_TRUE(in) << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(TextForm, HandWrittenRecordsAreReadShownAndWritten) {
    const struct {
        const char* type;
        std::string file;
        int variant;
    } records[] = {
        {"orlan_ial_vlan_group_info", "vlan_group", 0}, {"orlan_ial_svm_epm_data", "message_with_acl", 2},
        {"orlan_ial_svm_acl_data", "acl_variant_0", 0}, {"orlan_ial_svm_acl_data", "acl_variant_1", 1},
        {"orlan_ial_svm_acl_data", "acl_variant_2", 2}, {"epm_client_acl_feat_ctx", "feature_context", 0},
        {"orlan_ial_svm_bm_data", "grants", 1},
    };
    for (const auto& w : records) {
        SCOPED_TRACE(w.file);
        TestDomain D;
        D.agree_all(w.variant);
        const TextOperations text(w.type);
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

TEST_F(TextForm, EnumeratorsAndOthers) {
    TestDomain D;
    D.agree_all(0); // so that known values above the Instance's variant are among them
    for (const Enum* e : catalogue::all_enums) {
        SCOPED_TRACE(e->name);
        const TextOperations text(e->name);
        const std::string name = e->name;
        Instance* x = create(name, D);
        auto& value = *reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(x) + 12);
        const auto expect = [&](const std::string& shown, const std::string& element) {
            EXPECT_EQ(text.printed(D, x, 3, "f"), "   f@" + name + ":" + shown);
            EXPECT_EQ(text.xml(D, x, "f", 7), "<f>" + element + "</f>");
            char buffer[200];
            EXPECT_EQ(text.print_cr(D, x, buffer, sizeof buffer), 2 * name.size() + 2 + shown.size());
            EXPECT_EQ(buffer, name + "@" + name + ":" + shown);
            EXPECT_EQ(text.toxml_cr(D, x, buffer, sizeof buffer), 2 * name.size() + 5 + element.size());
            EXPECT_EQ(buffer, "<" + name + ">" + element + "</" + name + ">");
        };
        for (std::uint32_t v = 0; v < e->count; ++v) {
            value = v;
            const std::string enumerator = e->enumerators[v].name;
            expect(enumerator + "\n", "<" + enumerator + "/>");
            value = 200;
            EXPECT_EQ(text.read(D, sound_xml("<" + name + "> <x/><" + enumerator + "/></" + name + ">").get(), x), 0u);
            EXPECT_EQ(value, v);
        }
        for (const std::uint32_t v : {static_cast<std::uint32_t>(e->count), 200u, 0xFFFFFFFFu}) {
            value = v;
            expect("Enum value out of range", "<" + name + " value out of range/>");
            EXPECT_EQ(text.read(D, sound_xml("<" + name + "><other/></" + name + ">").get(), x), 0u) << "none found";
            EXPECT_EQ(text.read(D, sound_xml("<other/>").get(), x), 0u) << "nor the element itself";
            EXPECT_EQ(value, v);
        }
        if (e->count > 1) { // the first that is found wins, wherever it is
            const std::string first = e->enumerators[e->count - 2].name;
            const std::string last = e->enumerators[e->count - 1].name;
            text.read(D, sound_xml("<" + name + "><" + last + "/><" + first + "/></" + name + ">").get(), x);
            EXPECT_EQ(value, e->count - 2);
        }
        value = 0;
        destroy(name, D, x);
    }
}

TEST_F(TextForm, OutOfRangeRunsIntoTheNextLine) {
    TestDomain D;
    auto* x = orlan_ial_svm_epm_nack_info_create(D, D.set_id());
    auto* type = orlan_ial_svm_epm_nack_info_nack_type_get(D, D.set_id(), x, &D.st);
    *reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(type) + 12) = 4;
    char buffer[400];
    orlan_ial_svm_epm_nack_info_print(D, D.set_id(), buffer, 0, "x", x, sizeof buffer, &D.st);
    EXPECT_STREQ(buffer, "x@orlan_ial_svm_epm_nack_info: {\n"
                         "  nack_type@orlan_ial_svm_epm_nack_e:Enum value out of range"
                         "  mac@zur_mac_addr:00:00:00:00:00:00\n"
                         "  if_num@u_int32:0\n}\n");
    orlan_ial_svm_epm_nack_info_destroy(D, D.set_id(), x);
}

TEST_F(TextForm, ValidityIsSigned) {
    TestDomain D;
    for (const int agreed : {0, 1, 127})
        for (const Enum* e : catalogue::all_enums) {
            SCOPED_TRACE(e->name);
            D.agree_all(agreed);
            const auto is_valid = operation<std::uint32_t(zur_domain*, std::int32_t)>(*e, "is_valid_cr");
            const auto accepted = static_cast<std::int32_t>(e->accepted(static_cast<std::int8_t>(agreed)));
            for (const std::int32_t v : {0, accepted - 1, -1, INT32_MIN}) EXPECT_EQ(is_valid(D, v), 1u) << v;
            for (const std::int32_t v : {accepted, 200, INT32_MAX}) EXPECT_EQ(is_valid(D, v), 0u) << v;
        }
    D.agree_all(-1);
    EXPECT_EQ(exported(orlan_ial_svm_epm_type_e_is_valid_cr)(D, 9), 1u);
    EXPECT_EQ(exported(orlan_ial_svm_epm_type_e_is_valid_cr)(D, 10), 0u);
}

} // namespace
} // namespace epm::test
