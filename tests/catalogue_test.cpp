// The checks of the catalogue, tried on a made-up catalogue and on faulty copies of it. The numbers of the real tables
// are held where they stand.
#include "catalogue/catalogue.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace epm::catalogue;

constexpr Enum made_tag = enumeration("made_tag", "MadeTag", "A tag.",
                                      {"0123456789abcdef0123456789abcde0", "0123456789abcdef0123456789abcde1"},
                                      {{"MADE_SMALL", "Small."}, {"MADE_LARGE", "Large.", 1}});

constexpr Record made_part =
    record("made_part", "MadePart", "A part.", {"0123456789abcdef0123456789abcde2", "0123456789abcdef0123456789abcde3"},
           {value(zur_boolean, "is_last", "True for the last part.")})
        .linked("is_last");

constexpr Record made_whole = record(
    "made_whole", "MadeWhole", "A whole.", {"0123456789abcdef0123456789abcde4", "0123456789abcdef0123456789abcde5"},
    {value(u_int32, "number", "A number."), length(u_int32, "words_length", "Characters held by words."),
     text("words", "words_length", "Some words."), run(u_int8, 4, "bytes", "Four bytes."),
     list(made_part, "parts", "The parts."), value(u_int16, "late", "A later number.").from_variant(1)});

constexpr Record made_message = record("made_message", "MadeMessage", "A message.",
                                       {"0123456789abcdef0123456789abcde6", "0123456789abcdef0123456789abcde7"},
                                       {value(made_tag, "tag", "The live arm."), arm(0, made_part, "small", "A part."),
                                        arm(1, made_whole, "large", "A whole.").from_variant(1)});

/// Copies of all of them, to be spoilt.
struct Made {
    Record part = made_part, whole = made_whole, message = made_message;
    Enum tag = made_tag;

    Fault fault() const {
        const std::array records{&part, &whole, &message};
        const std::array enums{&tag};
        return first_fault(records, enums);
    }
};

TEST(CatalogueCheck, FaultIsNamed) {
    static const std::string long_name(64, 'm');
    const struct {
        std::string told;
        void (*spoil)(Made&, Field* whole);
    } cases[] = {
        {"made_whole.Number: the name is not a lower-case word", [](Made&, Field* whole) { whole[0].name = "Number"; }},
        {"made_whole.number: the documentation is not a sentence",
         [](Made&, Field* whole) { whole[0].doc = "A number"; }},
        {"made_whole.number: two fields have this name", [](Made&, Field* whole) { whole[3].name = "number"; }},
        {"made_whole.number: the first field must exist in variant 0", [](Made&, Field* whole) { whole[0].since = 1; }},
        {"made_whole.late: variants fall", [](Made&, Field* whole) { std::swap(whole[4].since, whole[5].since); }},
        {"made_whole.late: a variant is left out", [](Made&, Field* whole) { whole[5].since = 2; }},
        {"made_whole.late: the variant is above the highest that is provided for",
         [](Made&, Field* whole) { whole[3].since = 1, whole[4].since = 2, whole[5].since = 3; }},
        {"made_whole.words_length: no field has this as its length",
         [](Made&, Field* whole) { whole[2].companion = nullptr; }},
        {"made_whole.bytes: a fixed run holds nothing", [](Made&, Field* whole) { whole[3].capacity = 0; }},
        {"made_whole.parts: the element's record has no link members",
         [](Made&, Field* whole) { whole[4].record = &made_message; }},
        {"made_whole.words: its length field does not exist",
         [](Made&, Field* whole) { whole[1].kind = Kind::value, whole[2].companion = "missing"; }},
        {"made_whole.words: its length field stands behind it",
         [](Made&, Field* whole) { std::swap(whole[1], whole[2]); }},
        {"made_whole.words: its companion is not a length field",
         [](Made&, Field* whole) { whole[1].kind = Kind::value; }},
        {"made_whole.words: its length field belongs to another variant",
         [](Made&, Field* whole) {
             for (std::size_t i = 2; i < 6; ++i) whole[i].since = 1;
         }},
        {"made_message.small: the union's first field is not its tag",
         [](Made& m, Field*) { m.message.fields[0] = value(u_int32, "tag", "A bare number."); }},
        {"made_message.large: the tag is no enumerator", [](Made& m, Field*) { m.message.fields[2].tag = 2; }},
        {"made_message.large: the arm and its enumerator belong to different variants",
         [](Made& m, Field*) { m.message.fields[2].since = 0; }},
        {"made_message.small: two arms have this tag", [](Made& m, Field*) { m.message.fields[2].tag = 0; }},
        {long_name + ": the name is not a lower-case word of at most 63 characters",
         [](Made& m, Field*) { m.part.name = long_name.c_str(); }},
        {"made_part: the title is not made of capitalized words without blanks",
         [](Made& m, Field*) { m.part.title = "Made part"; }},
        {"made_whole: two types have this title", [](Made& m, Field*) { m.part.title = "MadeWhole"; }},
        {"made_part: a digest is not 32 hexadecimal digits",
         [](Made& m, Field*) { m.part.digests.identity = "0123456789ABCDEF0123456789ABCDEF"; }},
        {"made_part: the record has no fields", [](Made& m, Field*) { m.part.count = 0; }},
        {"made_part.missing: the field behind the links does not exist",
         [](Made& m, Field*) { m.part.linked_before = "missing"; }},
        {"made_tag.MADE_LARGE: variants fall",
         [](Made& m, Field*) { std::swap(m.tag.enumerators[0].since, m.tag.enumerators[1].since); }},
        {"made_whole: two types have this name", [](Made& m, Field*) { m.part.name = "made_whole"; }},
        {"made_whole: two types have this digest",
         [](Made& m, Field*) { m.part.digests.identity = made_whole.digests.identity; }},
    };
    EXPECT_FALSE(Made().fault());
    for (const auto& c : cases) {
        Made made;
        c.spoil(made, made.whole.fields.data());
        const Fault fault = made.fault();
        const std::string field = fault.field != nullptr ? std::string(".") + fault.field : "";
        EXPECT_EQ(fault ? fault.type + field + ": " + fault.sentence : "no fault", c.told);
    }
}

} // namespace
