// The golden corpus: one kept image of every type, variant, mode and arm. Each build must write exactly these bytes and
// read them back whole, at every room that a buffer can have and whatever the heap held before. EPM_WRITE_GOLDEN=1
// writes the corpus anew; what then changes is a change of the format.
#include "support/wire.hpp"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace epm::test {
namespace {

using Corpus = CorpusTest;

TEST_F(Corpus, IsWrittenOnRequest) {
    const bool is_to_be_written = std::getenv("EPM_WRITE_GOLDEN") != nullptr;
    std::size_t count = 0;
    for (const WireType& type : wire_types()) {
        std::vector<std::pair<std::string, Bytes>> images;
        for (const Specimen& s : specimens(type)) {
            TestDomain D(s.mode());
            Instance* x = make(s, D);
            images.emplace_back(s.text(), marshalled(type, D, x));
            type.destroy(D, D.set_id(), x);
        }
        if (is_to_be_written) write_golden(type, images);
        EXPECT_EQ(read_golden(type), Golden(images.begin(), images.end())) << type.name;
        count += images.size();
    }
    // 43 records and 7 enumerations of one variant, a record of three, and the rest of two; the unions have 17 arms
    // each.
    EXPECT_EQ(count, 43 * 4 + 7 * 4 + 8 + 3 * 6 + 2 * (2 + 2 * 17) + 2 * 6);
}

// In every mode, with a store's own TypeInfos, and whatever the heap held before: the same bytes, and a record that is
// the same by all measures.
TEST_F(Corpus, IsWrittenAndReadInEveryMode) {
    for_each_image([](const Specimen& s, const Bytes& image) {
        SCOPED_TRACE(s.text());
        const WireType& type = *s.type;
        const Parts parts = take_apart(type, image);
        EXPECT_TRUE(parts.is_sound);
        EXPECT_EQ(static_cast<std::int8_t>(image[0]), s.variant);
        for (const Mode& mode : all_modes()) {
            if (mode.is_tracking() != s.is_tracked) continue;
            heap().fill_with(mode.containment ? 0xFF : mode.has_store ? 0x00 : 0xA5);
            TestDomain D(mode);
            Instance* x = make(s, D);
            EXPECT_EQ(marshalled(type, D, x), image) << mode.text();
            const auto length = static_cast<std::int32_t>(image.size());
            if (type.is_enum())
                EXPECT_EQ(type.len(D, D.set_id(), x), 5u);
            else
                EXPECT_EQ(type.len(D, D.set_id(), x), image.size() + parts.overcount) << mode.text();
            Instance* copy = type.create(D, D.set_id());
            EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), copy, length, 0, &D.st), image.size());
            EXPECT_EQ(D.st, 0u) << mode.text();
            EXPECT_EQ(copy->variant, s.variant);
            EXPECT_EQ(type.compare(x, copy), 0) << mode.text();
            EXPECT_EQ(type.hash(x, 77), type.hash(copy, 77));
            EXPECT_EQ(marshalled(type, D, copy), image) << mode.text();
            const bool has_fields = !type.is_enum() && s.variant >= 0;
            EXPECT_TRUE(!has_fields || Fill(D, s.seed).check(*type.record, copy));
            type.destroy(D, D.set_id(), copy);
            type.destroy(D, D.set_id(), x);
        }
    });
}

// A writer with less room than it needs stays inside, except for the one flag byte of tracked mode, and reports an
// error unless only a trailing flag is missing. Its output is the same with runs of primitives and without. The corpus
// keeps the digests of all rooms together beside the images.
TEST_F(Corpus, IsCutToEveryRoom) {
    const char* const file_name = EPM_SOURCE_DIR "/tests/golden/rooms.txt";
    std::map<std::string, std::string> digests;
    for_each_image([&](const Specimen& s, const Bytes& image) {
        TestDomain D(s.mode());
        Instance* x = make(s, D);
        std::uint64_t digest = 14695981039346656037u;
        const auto mix = [&](std::uint32_t n) { digest = (digest ^ n) * 1099511628211u; };
        const std::size_t end_slack = s.is_tracked ? 1 : 0;
        for (std::size_t room = 0; room <= image.size() + 1; ++room) {
            // Exactly as long as it may be, for a sanitizer to see.
            const auto buffer = std::make_unique<std::uint8_t[]>(room + end_slack);
            std::memset(buffer.get(), 0xEE, room + end_slack);
            std::uint32_t st = 0;
            const std::uint32_t used =
                s.type->marshal(D, D.set_id(), buffer.get(), x, static_cast<std::int32_t>(room), &st);
            EXPECT_LE(used, room) << s.text();
            EXPECT_TRUE(st == 0 || st == 90) << s.text() << " at " << room << ": " << st;
            if (st == 0 && room > 0) {
                // Flags behind the last byte are the only thing that may be left out in silence.
                EXPECT_GE(used + (s.is_tracked ? image.size() : 0), image.size()) << s.text() << " at " << room;
            }
            if (room > image.size()) {
                EXPECT_EQ(st, 0u);
                EXPECT_EQ(Bytes(buffer.get(), buffer.get() + used), image) << s.text();
            }
            mix(st);
            mix(used);
            for (std::size_t i = 0; i < room + end_slack; ++i) mix(buffer[i]);
        }
        digests[s.text()] = std::to_string(digest);
        s.type->destroy(D, D.set_id(), x);
    });
    if (std::getenv("EPM_WRITE_GOLDEN") != nullptr) {
        std::ofstream file(file_name);
        file << "# Digests of status, result and buffer over all rooms that a writer may get.\n";
        for (const auto& [text, digest] : digests) file << digest << " " << text << "\n";
    }
    std::map<std::string, std::string> kept;
    std::ifstream file(file_name);
    for (std::string line; std::getline(file, line);)
        if (line[0] != '#') kept[line.substr(line.find(' ') + 1)] = line.substr(0, line.find(' '));
    EXPECT_EQ(digests, kept);
}

} // namespace
} // namespace epm::test
