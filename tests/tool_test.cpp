// The tool orlan-epm on each image of the golden corpus: what it tells of the image's bytes, wherever the image is cut,
// and its way to XML or JSON and back. How it answers on a command line is in transcripts.
#include "support/images.hpp"
#include "tool/failure.hpp"
#include "tool/message.hpp"
#include "tool/walk.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <regex>

namespace epm::tool {
namespace {

template <class Body>
void for_each_image(Body body) {
    for (const Type& type : all_types()) {
        const std::vector<test::Image> images = test::images_of(type.name);
        EXPECT_FALSE(images.empty()) << type.name;
        for (const test::Image& image : images) {
            SCOPED_TRACE(image.name);
            body(type, image);
        }
    }
}

// The texts of both differ in form: an array of single bytes is one part, a text stands in quotes, and a number is in
// front of its enumerator. Of a message that is cut, it tells up to the cut.
TEST(Tool, TellsTheFieldsThatTheLibraryPrints) {
    for_each_image([](const Type& type, const test::Image& image) {
        const std::string text = decode(type, image.bytes, TextForm::print, {});
        std::size_t end = 0, at = 0;
        walk(type, image.bytes, [&](const Part& part) {
            EXPECT_EQ(part.offset, end);
            end += part.length;
            if (part.kind != Part::Kind::value && part.kind != Part::Kind::count) return;
            const std::string name = type.is_enum() ? type.name : part.path.substr(part.path.rfind('.') + 1);
            at = text.find(name, at);
            ASSERT_NE(at, text.npos) << part.path;
            at = text.find(':', at) + 1;
            const std::string value = text.substr(at, text.find('\n', at) - at);
            EXPECT_TRUE(part.value.find(value) != std::string::npos || value.ends_with(":" + part.value))
                << part.path << " " << part.value << " " << value;
        });
        EXPECT_EQ(end, image.bytes.size());
        for (std::size_t length = 0; length < image.bytes.size(); length += length < 64 ? 1 : 13) {
            end = 0;
            try {
                walk(type, ByteView(image.bytes).first(length), [&](const Part& part) { end += part.length; });
                FAIL() << "accepted when cut to " << length;
            } catch (const Damage& damage) {
                EXPECT_EQ(damage.offset, end);
                EXPECT_LE(damage.offset, length);
            }
        }
    });
}

// And it notices when an element has a name that no field has.
TEST(Tool, MakesTheSameMessageOfItsXml) {
    static const std::regex element("\n *<([^/>]+)>?");
    for_each_image([](const Type& type, const test::Image& image) {
        const std::string xml = decode(type, image.bytes, TextForm::xml, {});
        const Encoded back = encode(type, xml, {});
        EXPECT_EQ(back.message, image.bytes);
        EXPECT_TRUE(back.losses.empty());
        for (std::sregex_iterator i(xml.begin(), xml.end(), element), end; xml.size() < 4096 && i != end; ++i) {
            const auto start = static_cast<std::size_t>(i->position(1));
            std::string other = xml;
            if (const auto close = xml.find("</" + i->str(1) + ">", start); close != xml.npos)
                other.insert(close + 2, "x");
            other.insert(start, "x");
            try {
                EXPECT_FALSE(encode(type, other, {}).losses.empty()) << other;
            } catch (const Failure&) { // of a value that cannot be read
            }
        }
    });
}

// And it tells the place of a member that does not belong there and of a value that no field has.
TEST(Tool, MakesTheSameMessageOfItsJson) {
    static const std::regex member("\n *\"([^\"]+)\": ");
    for_each_image([](const Type& type, const test::Image& image) {
        const std::string json = decode(type, image.bytes, TextForm::json, {});
        EXPECT_EQ(encode_json(type, json), image.bytes) << json;
        const auto refuse = [&](const std::string& document, const std::string& place) {
            try {
                encode_json(type, document);
                ADD_FAILURE() << place << " in " << document;
            } catch (const Failure& failure) {
                EXPECT_THAT(failure.reason, testing::HasSubstr(place));
            }
        };
        refuse(json.substr(0, json.size() / 2), "syntax error");
        if (json.size() > 8192) return;
        for (std::sregex_iterator i(json.begin(), json.end(), member), end; i != end; ++i)
            refuse(std::string(json).insert(static_cast<std::size_t>(i->position(1)), "x"), "/x" + i->str(1) + ": ");
        auto tree = nlohmann::json::parse(json);
        const auto places = tree.flatten();
        for (const auto& [place, value] : places.items()) {
            const auto kept = std::exchange(tree[nlohmann::json::json_pointer(place)], 0.5);
            refuse(tree.dump(), place.empty() ? "not a" : place + ": not a");
            tree[nlohmann::json::json_pointer(place)] = kept;
        }
    });
}

/// Copies of an image with what no writer of this library writes, but others may.
TEST(Tool, KeepsInJsonWhatTheLibraryPassesOver) {
    const auto put = [](Bytes image, std::size_t at, std::string_view digits) {
        const Bytes more = *bytes_of(digits);
        image.insert(image.begin() + static_cast<std::ptrdiff_t>(at), more.begin(), more.end());
        return image;
    };
    for_each_image([&](const Type& type, const test::Image& image) {
        if (type.is_enum()) return;
        Bytes longer = put(image.bytes, image.bytes.size(), "aabbcc");
        const std::size_t jump = longer.size() - 2;
        for (std::size_t i = 0; i < 4; ++i) longer[2 + i] = static_cast<std::uint8_t>(jump >> 8 * (3 - i));
        Bytes newer = longer, other = put(longer, 2, "000102030405060708");
        newer[0] = static_cast<std::uint8_t>(newer[0] < 0x80 ? 9 : 0xF7);
        other[1] |= 0x23;
        for (const Bytes& message : {longer, other})
            EXPECT_EQ(encode_json(type, decode(type, message, TextForm::json, {})), message);
        if (image.name.find("variant -1") == std::string::npos && std::int8_t(image.bytes[0]) != type.top()) return;
        EXPECT_EQ(encode_json(type, decode(type, newer, TextForm::json, {})), newer);
    });
}

} // namespace
} // namespace epm::tool
