// Images that were kept, the wire tables of the public header, and what neither the model (model_test.cpp) nor scenes
// (calls/wire.txt) say: the ids of fields, and bytes that announce far more than they hold.
#include "support/bundle_test.hpp"
#include "support/images.hpp"
#include "support/model.hpp"
#include "support/types.hpp"

#include <algorithm>
#include <fstream>
#include <orlan_epm.h>
#include <regex>

namespace epm::test {
namespace {

class Wire : public BundleTest {
protected:
    /// These tests make very many calls; the checker would look at every block at each of them.
    void SetUp() override {
        BundleTest::SetUp();
        checker.reset();
    }
    static std::string marshalled(const Operations& type, TestDomain& D, const Instance* x) {
        std::string buffer(type.len(D, D.set_id(), x) + 16u, '\0');
        const auto room = static_cast<std::int32_t>(buffer.size());
        buffer.resize(type.marshal(D, D.set_id(), buffer.data(), x, room, &D.st));
        EXPECT_EQ(D.st, 0u) << type.type;
        return buffer;
    }
};

// ---- kept images ----

/// What the model predicts for a record that is drawn by the image's name, with this arm selected.
std::string predicted(const std::string& name, const Record& r, int variant, bool is_tracked, const Field* arm) {
    Random random{std::mt19937(static_cast<unsigned>(std::hash<std::string>()(name)))};
    const Agreement agreed{.by_type = {{r.name, variant}}};
    Tree t = draw(r, agreed, random);
    for (std::size_t i = 1; arm != nullptr && i < r.count; ++i) t.cells[i].trees.resize(0);
    if (arm != nullptr) {
        t.cells[0].number = arm->tag;
        t.cells[r.index_of(arm->name)].trees = {draw(*arm->record, agreed, random)};
    }
    if (is_tracked) draw_flags(t, random);
    return written(t, agreed, is_tracked).written();
}

/// The images that there must be of a type, in the order of its file; EPM_WRITE_GOLDEN=1 adds those that are missing.
class Golden {
public:
    explicit Golden(const std::string& type) : type_(type) {
        for (const Image& image : images_of(type)) kept_[image.name] = {image.bytes.begin(), image.bytes.end()};
    }
    void want(int variant, const Record* r) {
        for (const bool is_tracked : {false, true}) {
            const std::string name =
                type_ + ", variant " + std::to_string(variant) + (is_tracked ? ", tracked" : ", untracked");
            if (r == nullptr)
                want(name, big_endian(static_cast<std::uint64_t>(variant), 1) + big_endian(0, 4));
            else if (!r->is_union() || variant < 0)
                want(name, predicted(name, *r, variant, is_tracked, nullptr));
            else
                for (const Field& f : r->fields)
                    if (f.name != nullptr && f.kind == Kind::arm && f.since <= variant)
                        want(name + ", " + f.name, predicted(name, *r, variant, is_tracked, &f));
        }
    }
    void finish() const {
        EXPECT_EQ(wanted_, kept_.size()) << type_ << " has kept images that nobody wants";
        if (is_writing_) std::ofstream(EPM_SOURCE_DIR "/tests/golden/" + type_ + ".hex") << file_;
    }
    const std::map<std::string, std::string>& images() const { return kept_; }

private:
    void want(const std::string& name, const std::string& predicted) {
        if (is_writing_) kept_.try_emplace(name, predicted);
        EXPECT_TRUE(kept_.contains(name)) << name << " is missing";
        file_ += "[" + name + "]\n" + hex(kept_[name]) + "\n";
        ++wanted_;
    }
    const bool is_writing_ = std::getenv("EPM_WRITE_GOLDEN") != nullptr;
    std::string type_, file_;
    std::map<std::string, std::string> kept_;
    std::size_t wanted_ = 0;
};

TEST_F(Wire, KeptImagesAreReadAndWrittenAsTheyAre) {
    const auto check = [](const std::string& name, const Record* r, int top) {
        const Operations type(name);
        Golden golden(name);
        for (int variant = -1; variant <= top; ++variant) golden.want(variant, r);
        golden.finish();
        for (const auto& [title, image] : golden.images()) {
            SCOPED_TRACE(title);
            const bool is_tracked = title.find(", tracked") != std::string::npos;
            TestDomain D({.tracking = is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE});
            Instance* x = type.create(D, D.set_id());
            EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), x, static_cast<int>(image.size()), 0, &D.st),
                      image.size());
            EXPECT_EQ(hex(marshalled(type, D, x)), hex(image));
            type.destroy(D, D.set_id(), x);
        }
    };
    for (const Record* r : catalogue::all_records) check(r->name, r, r->top());
    for (const Enum* e : catalogue::all_enums) check(e->name, nullptr, e->top());
}

// ---- the tables of the public header ----

// Read as a person reads them, against what the library says of an empty record: the Bytes column must add up to len(),
// and each Offset rule must lead to where the rows before it end.
class WireTables : public Wire {
protected:
    struct Row {
        std::string offset, field, kind, bytes;
    };
    WireTables() {
        std::ifstream header(EPM_STAMPED_DIR "/orlan_epm.h");
        const std::regex group(R"( \* @defgroup group_\S+ (\S+))");
        const std::regex row(R"( \* \| (.*?) \| `?([^`|]*?)`? ?\| (.*?) \| (.*?) \|.*)");
        std::string type;
        for (std::string line; std::getline(header, line);) {
            std::smatch m;
            if (std::regex_match(line, m, group)) type = m[1];
            if (std::regex_match(line, m, row) && m[1] != "Offset") tables[type].push_back({m[1], m[2], m[3], m[4]});
        }
    }
    /// What a row's field takes in an empty record: every text, array, list and message is empty.
    std::size_t empty_length(const Row& row) {
        std::smatch m;
        if (std::regex_search(row.bytes, m, std::regex("^[0-9]+$|^[0-9]+(?= and)"))) return std::stoul(m[0]);
        std::regex_search(row.kind, m, std::regex("[\"`](.*)[\"`]"));
        std::size_t sum = 0;
        if (row.bytes == "a record")
            for (const Row& nested : tables.at(m[1])) sum += empty_length(nested);
        const std::array<std::uint64_t, 8> nothing{};
        return row.bytes == "by its codec" ? bare<std::uint32_t>(D, m[1].str(), "len", nothing.data()) : sum;
    }

    TestDomain D;
    std::map<std::string, std::vector<Row>> tables;
};

TEST_F(WireTables, AddUpToTheLengthOfAnEmptyRecord) {
    const std::regex rule("(?:end of `(.*?)`)?(?: \\+ )?([0-9]*)");
    EXPECT_EQ(tables.size(), catalogue::all_records.size());
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
        Instance* x = create(type, D);
        EXPECT_EQ(end, bare<std::uint32_t>(D, type, "len", static_cast<const Instance*>(x))) << type;
        destroy(type, D, x);
    }
}

// ---- what nothing else says ----

// In a Domain that does not track and does not know where a nested array's flags are, the array does not grow.
TEST_F(Wire, AnArrayWhoseFlagsAreOutOfReach) {
    TestDomain tracking({.tracking = ZUR_TRACKED_MODE}), plain;
    const Operations type("orlan_ial_svm_bm_data");
    const Record& r = *record_named(type.type);
    const auto array_of = [&](Tree& t) -> Cell& { return t.cells[r.index_of("intf_templ_list")].trees[0].cells[1]; };
    const auto made = [&](TestDomain& D, std::size_t count) {
        Tree t = blank(r, {});
        array_of(t).trees.assign(count, blank(*record_named("rcl_client_intf_templ"), {}));
        Instance* x = type.create(D, D.set_id());
        Hands(D, {}).fill(t, x);
        return x;
    };
    Instance* x = made(tracking, 1);
    Instance* longer = made(plain, 2);
    const std::string image = marshalled(type, plain, longer);
    type.unmarshal(plain, plain.set_id(), image.data(), x, static_cast<int>(image.size()), 1, &plain.st);
    EXPECT_EQ(plain.st, 22u);
    Tree left = Hands(tracking, {}).read(r, x);
    EXPECT_EQ(array_of(left).trees.size(), 1u);
    type.destroy(tracking, tracking.set_id(), x);
    type.destroy(plain, plain.set_id(), longer);
}

// A few bytes that announce very much: the reader stops where they end, and asks for memory once at most.
TEST_F(Wire, CountsAndLengthsThatLie) {
    const std::pair<const char*, Bytes> rows[] = {
        {"orlan_ial_vlan_group_info", {0, 0, 0, 0, 0, 40, 0, 0, 0, 1}},                          // vlans
        {"rcl_client_intf_templ_list", {0, 0, 0, 0, 0, 40}},                                     // data
        {"epm_client_acl_feat_ctx", {0, 0, 0, 0, 0, 40, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1}}, // bm_feat_conf_list
        {"orlan_ial_dacl_dnld_complete", {0, 0, 0, 0, 0, 40}},                                   // acl_name
        {"linksec_eap_keys", {0, 0, 0, 0, 0, 40}},                                               // msk
    };
    for (const auto& [name, start] : rows)
        for (const std::uint8_t high : Bytes{0x00, 0x7F, 0x80, 0xFF}) {
            const Operations type(name);
            TestDomain D;
            Instance* x = type.create(D, D.set_id());
            Bytes image = start;
            image.insert(image.end(), {high, 0xFF, 0xFF, 0xFF, 0});
            heap().refuse_beyond(1 << 20);
            const std::size_t allocations = heap().allocations();
            type.unmarshal(D, D.set_id(), image.data(), x, static_cast<int>(image.size()), 0, &D.st);
            EXPECT_TRUE(D.st == 12 || D.st == 90) << name << " " << D.st;
            EXPECT_LE(heap().allocations(), allocations + 1) << name;
            heap().stop_refusing();
            type.destroy(D, D.set_id(), x);
        }
}

// Ids count the declared fields from 0, and each later variant opens with one that stands for no field.
TEST_F(Wire, WhichFieldIdsAreValid) {
    for (const Record* r : catalogue::all_records) {
        TestDomain D;
        Instance* x = create(r->name, D);
        for (int agreed = 0; agreed <= r->top(); ++agreed)
            for (int own = 0; own <= r->top(); ++own)
                for (std::uint32_t id = 0; id < 20; ++id)
                    for (const bool is_any : {false, true}) {
                        const int variant = is_any ? agreed : std::min(agreed, own);
                        const auto fields = std::ranges::count_if(
                            r->fields, [&](const Field& f) { return f.name != nullptr && f.since <= variant; });
                        D.agree_all(agreed);
                        x->variant = static_cast<std::int8_t>(own);
                        const auto is_valid =
                            operation<std::uint32_t(zur_domain*, Instance*, std::uint32_t, std::uint32_t)>(
                                *r, "is_valid_cr");
                        EXPECT_EQ(is_valid(D, x, id, is_any), id < fields + variant) << r->name << " " << id;
                    }
        x->variant = r->top();
        destroy(r->name, D, x);
    }
}

} // namespace
} // namespace epm::test
