// The tool orlan-epm on each image of the golden corpus: what it tells of the image's bytes, wherever the image is cut,
// and its way to XML and back. How it answers on a command line is in transcripts.
#include "support/images.hpp"
#include "tool/failure.hpp"
#include "tool/message.hpp"
#include "tool/walk.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

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

/// The elements of a list are printed without their numbers.
std::string without_elements(const std::string& path) {
    static const std::regex number("\\[[0-9]+\\]\\.");
    return std::regex_replace(path, number, ".");
}

struct Told {
    std::string path, value;
};

/// The fields that the library prints. Each level of nesting has two more blanks in front, and a field of a union has
/// the tag's name in front of its own.
std::vector<Told> printed(const Type& type, const Bytes& image) {
    static const std::regex form("( *)(?:list )?(?:[^@.]*\\.)?([^@ ]*)(?: count)?@[^:]*:(.*)");
    std::istringstream text(decode(type, image, TextForm::print, {}));
    std::vector<Told> fields;
    std::vector<std::string> within;
    std::smatch parts;
    for (std::string line; std::getline(text, line);) {
        if (!std::regex_match(line, parts, form)) continue;
        if (type.is_enum()) return {{"value", parts[3]}};
        const auto depth = static_cast<std::size_t>(parts.length(1)) / 2;
        within.resize(depth);
        const std::string path = depth < 2 ? parts.str(2) : within[depth - 1] + "." + parts.str(2);
        within.push_back(path);
        if (!parts.str(3).ends_with("{")) fields.push_back({path, parts[3]});
    }
    return fields;
}

TEST(Tool, TellsTheFieldsThatTheLibraryPrints) {
    for_each_image([](const Type& type, const test::Image& image) {
        const std::vector<Told> wanted = printed(type, image.bytes);
        std::size_t end = 0, next = 0;
        const auto is_next = [&](const std::string& path) {
            return next < wanted.size() && without_elements(wanted[next].path) == without_elements(path);
        };
        // An empty text has no part.
        const auto skip_empty = [&](const std::string& path) {
            while (next < wanted.size() && wanted[next].value.empty() && !is_next(path)) ++next;
        };
        walk(type, image.bytes, [&](const Part& part) {
            EXPECT_EQ(part.offset, end);
            end += part.length;
            if (part.kind != Part::Kind::value && part.kind != Part::Kind::count) return;
            skip_empty(part.path);
            // An array of single bytes is one part.
            if (is_next(part.path + "[0]")) {
                for (std::size_t i = 0; i < part.length; ++i, ++next)
                    ASSERT_TRUE(is_next(part.path + "[" + std::to_string(i) + "]")) << part.path << i;
                return;
            }
            ASSERT_TRUE(is_next(part.path)) << part.path;
            // Texts stand in quotes, a number is in front of its enumerator, and a type is a part of its own.
            const std::string value = wanted[next++].value;
            EXPECT_TRUE(part.value.find(value) != std::string::npos || value.ends_with(":" + part.value))
                << part.path << " " << part.value << " " << value;
        });
        skip_empty("no field");
        EXPECT_EQ(end, image.bytes.size());
        EXPECT_EQ(next, wanted.size());
    });
}

TEST(Tool, TellsACutMessageUpToTheCut) {
    for_each_image([](const Type& type, const test::Image& image) {
        for (std::size_t length = 0; length < image.bytes.size(); length += length < 64 ? 1 : 13) {
            std::size_t end = 0;
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

TEST(Tool, MakesTheSameMessageOfItsXml) {
    static const std::regex notes("<\\?orlan-epm[^?]*\\?>\n");
    for_each_image([](const Type& type, const test::Image& image) {
        const std::string xml = decode(type, image.bytes, TextForm::xml, {});
        const Encoded back = encode(type, xml, {});
        EXPECT_EQ(back.message, image.bytes);
        EXPECT_TRUE(back.losses.empty());
        // Without its notes a document makes an untracked message with everything in the variant that is agreed.
        const auto agreed = static_cast<std::int8_t>(image.bytes[0]);
        const std::regex other_variant("variants[^?]*=(?!" + std::to_string(agreed) + "[\\s?])");
        if (image.name.find(", tracked") != image.name.npos || std::regex_search(xml, other_variant)) return;
        EXPECT_EQ(encode(type, std::regex_replace(xml, notes, ""), agreed).message, image.bytes);
    });
}

// Each element in turn has a name that no field has.
TEST(Tool, MissesEachElement) {
    static const std::regex element("\n *<([^/>]+)>?");
    for_each_image([](const Type& type, const test::Image& image) {
        const std::string xml = decode(type, image.bytes, TextForm::xml, {});
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

} // namespace
} // namespace epm::tool
