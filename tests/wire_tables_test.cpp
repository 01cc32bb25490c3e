// The wire tables of the public header, read as a person reads them, against what the library says of an empty record:
// the Bytes column must add up to len(), and each Offset rule must lead to where the rows before it end. Where the
// bytes of filled records lie is tested in model_test.cpp.
#include "catalogue/catalogue.hpp"

#include <platform/domain.h>
#include <zur/foreign.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace {

struct Row {
    std::string offset, field, kind, bytes;
};
using Tables = std::map<std::string, std::vector<Row>>;

Tables read_tables() {
    Tables tables;
    std::ifstream header(EPM_STAMPED_DIR "/orlan_epm.h");
    const std::regex group(R"( \* @defgroup group_\S+ (\S+))");
    const std::regex row(R"( \* \| (.*?) \| `?([^`|]*?)`? ?\| (.*?) \| (.*?) \|.*)");
    std::string type;
    for (std::string line; std::getline(header, line);) {
        std::smatch m;
        if (std::regex_match(line, m, group)) type = m[1];
        if (std::regex_match(line, m, row) && m[1] != "Offset") tables[type].push_back({m[1], m[2], m[3], m[4]});
    }
    return tables;
}

class WireTables : public testing::Test {
protected:
    ~WireTables() override { platform_domain_destroy(D); }

    template <class Signature>
    Signature* function(const std::string& name) {
        void* symbol = dlsym(library, name.c_str());
        EXPECT_NE(symbol, nullptr) << name;
        return reinterpret_cast<Signature*>(symbol);
    }
    /// What a row's field takes in an empty record: every text, array, list and message is empty.
    std::size_t empty_length(const Row& row) {
        std::smatch m;
        if (std::regex_search(row.bytes, m, std::regex("^[0-9]+$|^[0-9]+(?= and)"))) return std::stoul(m[0]);
        if (row.bytes == "a record") {
            EXPECT_TRUE(std::regex_search(row.kind, m, std::regex("\"(.*)\""))) << row.kind;
            return empty_length(tables.at(m[1]));
        }
        if (row.bytes == "by its codec") {
            EXPECT_TRUE(std::regex_search(row.kind, m, std::regex("`(.*)`"))) << row.kind;
            alignas(std::max_align_t) const unsigned char nothing[64] = {};
            return function<uint32_t(zur_domain*, uint32_t, const void*)>(m[1].str() + "_len")(D, ZUR_NO_SET, nothing);
        }
        return 0;
    }
    std::size_t empty_length(const std::vector<Row>& rows) {
        std::size_t sum = 0;
        for (const Row& row : rows) sum += empty_length(row);
        return sum;
    }

    void* const library = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
    zur_domain* const D = platform_domain_create(nullptr);
    const Tables tables = read_tables();
};

TEST_F(WireTables, AddUpToTheLengthOfAnEmptyRecord) {
    EXPECT_EQ(tables.size(), epm::catalogue::all_records.size());
    for (const auto& [type, rows] : tables) {
        void* x = function<void*(zur_domain*, uint32_t)>(type + "_create")(D, ZUR_NO_SET);
        EXPECT_EQ(empty_length(rows), function<uint32_t(zur_domain*, uint32_t, void*)>(type + "_len")(D, ZUR_NO_SET, x))
            << type;
        function<void(zur_domain*, uint32_t, void*)>(type + "_destroy")(D, ZUR_NO_SET, x);
    }
}

TEST_F(WireTables, OffsetsLeadToTheEndOfTheRowsBefore) {
    const std::regex rule("(?:end of `(.*?)`)?(?: \\+ )?([0-9]*)");
    for (const auto& [type, rows] : tables) {
        std::map<std::string, std::size_t> ends{{"", 0}};
        std::size_t end = 0;
        for (const Row& row : rows) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(row.offset, m, rule)) << row.offset;
            ASSERT_TRUE(ends.contains(m[1])) << type << " has no field " << m[1] << " before " << row.field;
            EXPECT_EQ(ends[m[1]] + (m[2].length() > 0 ? std::stoul(m[2]) : 0), end) << type << "." << row.field;
            end += empty_length(row);
            if (!row.field.empty()) ends[row.field] = end;
        }
    }
}

} // namespace
