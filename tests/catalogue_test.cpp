// The checks of the catalogue, tried on a made-up catalogue and on faulty copies of it, and what holds across the real
// tables. The tables' own numbers are held where they stand.
#include "catalogue/catalogue.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using namespace epm::catalogue;

constexpr Enum made_tag =
    enumeration("made_tag", "A tag.", {"0123456789abcdef0123456789abcde0", "0123456789abcdef0123456789abcde1"},
                {{"MADE_SMALL", "Small."}, {"MADE_LARGE", "Large.", 1}});

constexpr Record made_part =
    record("made_part", "A part.", {"0123456789abcdef0123456789abcde2", "0123456789abcdef0123456789abcde3"},
           {value(zur_boolean, "is_last", "True for the last part.")})
        .linked("is_last");

constexpr Record made_whole =
    record("made_whole", "A whole.", {"0123456789abcdef0123456789abcde4", "0123456789abcdef0123456789abcde5"},
           {value(u_int32, "number", "A number."), length(u_int32, "words_length", "Characters held by words."),
            text("words", "words_length", "Some words."), run(u_int8, 4, "bytes", "Four bytes."),
            list(made_part, "parts", "The parts."), value(u_int16, "late", "A later number.").from_variant(1)});

constexpr Record made_message =
    record("made_message", "A message.", {"0123456789abcdef0123456789abcde6", "0123456789abcdef0123456789abcde7"},
           {value(made_tag, "tag", "The live arm."), arm(0, made_part, "small", "A part."),
            arm(1, made_whole, "large", "A whole.").from_variant(1)});

Fault fault_of(const Record& part, const Record& whole, const Record& message, const Enum& tag) {
    const std::array records{&part, &whole, &message};
    const std::array enums{&tag};
    return first_fault(records, enums);
}

std::string text_of(const char* words) {
    return words == nullptr ? "" : words;
}

void expect_fault(const Fault& fault, const char* type, const char* field, const char* sentence) {
    SCOPED_TRACE(sentence);
    EXPECT_EQ(text_of(fault.type), type);
    EXPECT_EQ(text_of(fault.field), field);
    EXPECT_EQ(text_of(fault.sentence), sentence);
}

TEST(CatalogueCheck, FaultyFieldIsNamed) {
    EXPECT_FALSE(fault_of(made_part, made_whole, made_message, made_tag));
    struct Case {
        const char* field;
        const char* sentence;
        void (*spoil)(Record&);
    };
    const Case wholes[] = {
        {"Number", "the name is not a lower-case word", [](Record& r) { r.fields[0].name = "Number"; }},
        {"number", "the documentation is not a sentence", [](Record& r) { r.fields[0].doc = "A number"; }},
        {"number", "two fields have this name", [](Record& r) { r.fields[3].name = "number"; }},
        {"number", "the first field must exist in variant 0", [](Record& r) { r.fields[0].since = 1; }},
        {"late", "variants fall", [](Record& r) { std::swap(r.fields[4].since, r.fields[5].since); }},
        {"late", "a variant is left out", [](Record& r) { r.fields[5].since = 2; }},
        {"late", "the variant is above the highest that is provided for",
         [](Record& r) {
             for (std::size_t i = 3; i < 6; ++i) r.fields[i].since = static_cast<std::int8_t>(i - 2);
         }},
        {"words_length", "no field has this as its length", [](Record& r) { r.fields[2].companion = nullptr; }},
        {"bytes", "a fixed run holds nothing", [](Record& r) { r.fields[3].capacity = 0; }},
        {"parts", "the element's record has no link members", [](Record& r) { r.fields[4].record = &made_message; }},
        {"words", "its length field does not exist",
         [](Record& r) {
             r.fields[1].kind = Kind::value;
             r.fields[2].companion = "missing";
         }},
        {"words", "its length field stands behind it", [](Record& r) { std::swap(r.fields[1], r.fields[2]); }},
        {"words", "its companion is not a length field", [](Record& r) { r.fields[1].kind = Kind::value; }},
        {"words", "its length field belongs to another variant",
         [](Record& r) {
             for (std::size_t i = 2; i < 6; ++i) r.fields[i].since = 1;
         }},
    };
    for (const Case& c : wholes) {
        Record whole = made_whole;
        c.spoil(whole);
        expect_fault(fault_of(made_part, whole, made_message, made_tag), "made_whole", c.field, c.sentence);
    }
    const Case messages[] = {
        {"small", "the union's first field is not its tag",
         [](Record& r) { r.fields[0] = value(u_int32, "tag", "A bare number."); }},
        {"large", "the tag is no enumerator", [](Record& r) { r.fields[2].tag = 2; }},
        {"large", "the arm and its enumerator belong to different variants", [](Record& r) { r.fields[2].since = 0; }},
        {"small", "two arms have this tag", [](Record& r) { r.fields[2].tag = 0; }},
    };
    for (const Case& c : messages) {
        Record message = made_message;
        c.spoil(message);
        expect_fault(fault_of(made_part, made_whole, message, made_tag), "made_message", c.field, c.sentence);
    }
}

TEST(CatalogueCheck, FaultyTypeIsNamed) {
    struct Case {
        const char* type;
        const char* field;
        const char* sentence;
        void (*spoil)(Record& part, Enum& tag);
    };
    static const std::string long_name(64, 'm');
    const Case cases[] = {
        {"Part", "", "the name is not a lower-case word of at most 63 characters",
         [](Record& r, Enum&) { r.name = "Part"; }},
        {long_name.c_str(), "", "the name is not a lower-case word of at most 63 characters",
         [](Record& r, Enum&) { r.name = long_name.c_str(); }},
        {"made_part", "", "the documentation is not a sentence", [](Record& r, Enum&) { r.doc = nullptr; }},
        {"made_part", "", "a digest is not 32 hexadecimal digits",
         [](Record& r, Enum&) { r.digests.identity = "0123456789abcdef0123456789abcde"; }},
        {"made_tag", "", "a digest is not 32 hexadecimal digits",
         [](Record&, Enum& e) { e.digests.compatibility = "0123456789ABCDEF0123456789ABCDEF"; }},
        {"made_part", "", "the record has no fields", [](Record& r, Enum&) { r.count = 0; }},
        {"made_part", "missing", "the field behind the links does not exist",
         [](Record& r, Enum&) { r.linked_before = "missing"; }},
        {"made_tag", "MADE_LARGE", "the documentation is not a sentence",
         [](Record&, Enum& e) { e.enumerators[1].doc = "Large"; }},
        {"made_tag", "MADE_LARGE", "variants fall",
         [](Record&, Enum& e) { std::swap(e.enumerators[0].since, e.enumerators[1].since); }},
        {"made_whole", "", "two types have this name", [](Record& r, Enum&) { r.name = "made_whole"; }},
        {"made_whole", "", "two types have this digest",
         [](Record& r, Enum&) { r.digests.identity = made_whole.digests.identity; }},
        {"made_tag", "", "two types have this digest",
         [](Record& r, Enum& e) { e.digests.compatibility = r.digests.compatibility; }},
    };
    for (const Case& c : cases) {
        Record part = made_part;
        Enum tag = made_tag;
        c.spoil(part, tag);
        expect_fault(fault_of(part, made_whole, made_message, tag), c.type, c.field, c.sentence);
    }
}

TEST(Catalogue, RecordsThatPlaceNestedBlocksAreKnown) {
    std::set<std::string> placing;
    for (const Record* r : all_records)
        if (has_nested_blocks(*r)) placing.insert(r->name);
    EXPECT_EQ(placing, (std::set<std::string>{"rcl_sess_mgr_authorize_ack", "orlan_ial_svm_bm_data",
                                              "auth_mgr_linksec_start_info", "auth_mgr_linksec_event",
                                              "auth_mgr_linksec_update", "orlan_svm_epm_ip_address_update_notify"}));
}

} // namespace
