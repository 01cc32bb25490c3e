// The sections of the library file that tools read, from a stripped copy of the file: the trace catalogue and the type
// compatibility manifest. Numbers and texts are written here as users of those sections know them.
#include "support/elf_file.hpp"
#include "support/types.hpp"

#include <bzlib.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

namespace epm::test {
namespace {

std::uint32_t number(const std::string& bytes, std::size_t at, std::size_t width) {
    std::uint32_t n = 0;
    for (std::size_t i = 0; i < width; ++i)
        n |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes.at(at + i))) << 8 * i;
    return n;
}

std::string hexadecimal(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

class Sections : public testing::Test {
protected:
    static ElfFile& file() {
        static ElfFile stripped = [] {
            const std::string copy = std::string(EPM_PROGRAM_DIR) + "/stripped_liborlan_epm.so";
            const std::string command = std::string("strip -o ") + copy + " " + EPM_LIBRARY_FILE;
            EXPECT_EQ(std::system(command.c_str()), 0);
            return ElfFile(copy);
        }();
        return stripped;
    }

    static std::string luids_name() {
        const auto names = file().sections_named(".quelog_luids_");
        EXPECT_EQ(names.size(), 1u);
        return names.empty() ? "" : names[0];
    }

    /// The messages of the trace catalogue, in order.
    static const std::vector<std::string>& messages() {
        static const std::vector<std::string> all = [] {
            const std::string luids = file().section(luids_name()).bytes;
            std::string stream = file().section(".quelog_format_strings").bytes;
            std::string texts(200000, 0);
            auto length = static_cast<unsigned>(texts.size());
            EXPECT_EQ(BZ2_bzBuffToBuffDecompress(texts.data(), &length, stream.data(),
                                                 static_cast<unsigned>(stream.size()), 0, 0),
                      BZ_OK);
            texts.resize(length);
            EXPECT_EQ(texts.size(), 112517u);
            std::vector<std::string> list;
            std::size_t at = 0;
            for (std::size_t i = 20; i + 6 <= luids.size(); i += 6) {
                const std::size_t size = number(luids, i + 4, 2);
                list.push_back(texts.substr(at, size));
                at += size;
            }
            EXPECT_EQ(at, texts.size());
            return list;
        }();
        return all;
    }
};

// ---- the trace catalogue ----

TEST_F(Sections, OnlyTheIdentifiersOfTracesAreLoaded) {
    const auto& luids = file().section(luids_name());
    EXPECT_TRUE(luids.is_loaded());
    EXPECT_FALSE(luids.is_writable());
    EXPECT_FALSE(file().section(".quelog_format_strings").is_loaded());
    EXPECT_FALSE(file().section(".quelog_decoder").is_loaded());
    EXPECT_FALSE(file().section(".corbe").is_loaded());
    for (const auto& [name, section] : file().sections())
        for (const std::string& text : {messages()[0].substr(1, 20), std::string("Corrupted ZUR Handle")})
            EXPECT_EQ(section.bytes.find(text), std::string::npos) << name << " holds the text of a trace";
}

TEST_F(Sections, CatalogueIsNamedByItsDigest) {
    const std::string luids = file().section(luids_name()).bytes;
    EXPECT_EQ(number(luids, 0, 4), 1u);
    EXPECT_EQ(".quelog_luids_" + hexadecimal(luids.substr(4, 16)), luids_name());
    EXPECT_EQ(luids.size(), 20u + 6 * 3026);
    EXPECT_EQ(hexadecimal(file().section(".quelog_decoder").bytes), "010304010103040404040404040504010204");
    EXPECT_EQ(hexadecimal(file().section(".quelog_format_strings").bytes.substr(0, 3)), "425a68");
    std::set<std::uint32_t> distinct;
    for (std::size_t i = 20; i < luids.size(); i += 6) distinct.insert(number(luids, i, 4));
    EXPECT_GT(distinct.size(), 2900u); // an identifier distinguishes a message from nearly all others
}

TEST_F(Sections, EachTextIsCataloguedAsOftenAsItShall) {
    std::map<std::string, int> expected; // with <type> for a type's name
    std::ifstream list(EPM_SOURCE_DIR "/tests/expected/traces.txt");
    for (std::string line; std::getline(list, line);) expected[line.substr(4)] = std::stoi(line);
    EXPECT_EQ(expected.size(), 30u);
    std::map<std::string, int> found;
    for (std::string text : messages()) {
        // The type's name replaces it, as one word.
        static const std::regex named("^ (?:error in |Reallocating resource for )?([a-z0-9_]+)(?: destroy:| create|$)");
        std::smatch match;
        if (std::regex_search(text, match, named) &&
            std::ranges::any_of(all_types(), [&](const TypeNumbers& t) { return t.name == match[1].str(); }))
            text.replace(static_cast<std::size_t>(match.position(1)), static_cast<std::size_t>(match.length(1)),
                         "<type>");
        ++found[text];
    }
    EXPECT_EQ(found, expected);
}

TEST_F(Sections, EntriesStandTypeByType) {
    ASSERT_EQ(messages().size(), 3026u);
    std::vector<std::string> order; // types as their creation is told of
    for (const std::string& text : messages()) {
        static const std::regex created("^ error in ([a-z0-9_]+) create:? %s$");
        std::smatch match;
        if (std::regex_match(text, match, created)) order.push_back(match[1]);
    }
    std::vector<std::string> expected;
    for (const bool is_enum : {true, false})
        for (const TypeNumbers& t : all_types())
            if (t.is_enum == is_enum) expected.push_back(t.name);
    EXPECT_EQ(order, expected);

    const std::string coa[] = {" error in coa_request_type create %s",
                               " varinfo is NULL",
                               " variant %u requested only %u variants present",
                               " zur_stats_inc failed %s",
                               " Invalid object handle passed to set embedded flag",
                               " Error already present in call to get object oid count",
                               " Invalid object passed in to get object oid count",
                               " Error present in call to get table references from object",
                               " Cannot get table references. Invalid object passed on",
                               " varinfo is NULL",
                               " variant %u requested only %u variants present",
                               " zur_stats_inc failed %s",
                               " tinfo is null or corrupted"};
    for (std::size_t i = 0; i < std::size(coa); ++i) EXPECT_EQ(messages()[8 * 13 + i], coa[i]) << i;
    EXPECT_EQ(messages()[9 * 13], " error in orlan_ial_svm_acl_data create: %s");
    EXPECT_EQ(messages().back(), " type variant cached info is NULL during usage dump");
}

// ---- the manifest ----

/// The payloads of the section's records by kind, found by their lengths.
std::vector<std::pair<std::uint32_t, std::string>> records_of(const std::string& section) {
    std::vector<std::pair<std::uint32_t, std::string>> all;
    for (std::size_t at = 0; at < section.size();) {
        const std::uint32_t length = number(section, at, 4);
        all.emplace_back(number(section, at + 4, 4), section.substr(at + 8, length));
        const std::size_t end = at + 8 + length;
        at = (end + 3) / 4 * 4;
        for (std::size_t i = end; i < at; ++i) EXPECT_EQ(section.at(i), 0);
        EXPECT_LE(at, section.size());
    }
    return all;
}

std::vector<std::string> lines_of(const std::string& payload) {
    EXPECT_EQ(payload.back(), 0);
    std::vector<std::string> lines;
    std::istringstream in(payload.substr(0, payload.size() - 1));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    EXPECT_EQ(payload.substr(payload.size() - 2), std::string("\n\0", 2)); // each line is closed
    return lines;
}

TEST_F(Sections, ManifestHasOneLineForEachType) {
    const auto records = records_of(file().section(".corbe").bytes);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].first, 2u);
    EXPECT_EQ(records[1].first, 1u);
    EXPECT_EQ(records[0].second.size(), 4660u);
    const std::vector<std::string> found = lines_of(records[0].second);
    ASSERT_EQ(found.size(), 59u);
    EXPECT_EQ(found[0], "# orlan_epm.tallyo");

    std::map<std::string, const TypeNumbers*> by_name; // ascending in the bytes of the names
    for (const TypeNumbers& t : all_types()) by_name[t.name] = &t;
    std::size_t i = 1;
    std::set<std::string> digests;
    for (const auto& [name, t] : by_name) {
        SCOPED_TRACE(name);
        const std::string& line = found[i++];
        char numbers[32];
        std::snprintf(numbers, sizeof numbers, "%s%03zu:%05zuN", t->is_enum ? "enum" : "type", t->used.size() - 1,
                      (t->used.back() + 7) / 8 * 8);
        ASSERT_EQ(line.size(), 79u);
        EXPECT_EQ(line.substr(0, 32), type_info_of(name)->hex_digest);
        EXPECT_TRUE(std::regex_match(line.substr(32, 33), std::regex(":[0-9a-f]{32}")));
        EXPECT_EQ(line.substr(65), numbers);
        digests.insert(line.substr(0, 32));
        digests.insert(line.substr(33, 32));
    }
    EXPECT_EQ(digests.size(), 2u * 58);
    const auto lists = [&](const char* line) { return std::ranges::count(found, line) == 1; };
    EXPECT_TRUE(lists("62438151968d80c2a0cb2cdbfd820a43:6836ab909de05b4d123e1566150e5dd6type002:00080N"));
}

TEST_F(Sections, BuildRecordNamesTheBuild) {
    const auto records = records_of(file().section(".corbe").bytes);
    ASSERT_EQ(records.size(), 2u);
    const std::vector<std::string> found = lines_of(records[1].second);
    const char* const expected[] = {
        "orlan_epm",
        "pkg_id: 0{40}",
        "built by: .+",
        "on host: .+",
        "pid: [0-9]+",
        "at: (Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{9} [0-9]{4}",
        "comment: .+"};
    ASSERT_EQ(found.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i)
        EXPECT_TRUE(std::regex_match(found[i], std::regex(expected[i]))) << found[i];
}

} // namespace
} // namespace epm::test
