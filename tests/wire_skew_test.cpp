// Peers at different software levels: every pair and chain of variants of the types that have several, and for every
// type a writer of a future variant, also in everything that it nests. A record is always read whole; what the reader
// does not know is passed over, with one trace for each record that held such a thing.
#include "support/bundle_test.hpp"
#include "support/wire.hpp"

#include <algorithm>

namespace epm::test {
namespace {

using Skew = BundleTest;

std::size_t count_lines(const std::string& text) {
    return static_cast<std::size_t>(std::ranges::count(text, '\n'));
}

/// An Instance as a build makes it that knows the type up to a variant only.
Instance* create_at_level(const WireType& type, TestDomain& D, int level) {
    Instance* x = type.create(D, D.set_id());
    x->layout_variant = static_cast<std::int8_t>(level);
    x->variant = std::min(x->variant, x->layout_variant);
    if (type.is_enum() || !D.mode().is_tracking()) return x;
    const auto body = catalogue::lay_out(*type.record).body[static_cast<std::size_t>(level)];
    operation<void(zur_domain*, std::uint32_t, Instance*, void*, std::uint32_t*)>(type.name, "offset_update")(
        D, D.set_id(), x, reinterpret_cast<char*>(x) + body, &D.st);
    return x;
}

/// Reads an image at a level and writes it again.
Bytes passed_on(const WireType& type, const Bytes& image, const Mode& mode, int level, std::size_t expected_traces) {
    TestDomain D(mode);
    D.agree_all(type.top);
    Instance* x = create_at_level(type, D, level);
    Traces traces;
    EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), 0, &D.st),
              image.size());
    EXPECT_EQ(D.st, 0u);
    const std::string text = traces.take();
    EXPECT_EQ(count_lines(text), expected_traces) << text;
    EXPECT_TRUE(expected_traces == 0 || text.find("offset_jump read_len ") != std::string::npos) << text;
    Bytes again = marshalled(type, D, x);
    type.destroy(D, D.set_id(), x);
    return again;
}

/// What an image is at the end of a chain: read by the newest build, with the fields that all on the way knew.
void expect_fields(const WireType& type, const Bytes& image, const Bytes& original, const Specimen& s, const Mode& mode,
                   int variant) {
    TestDomain D(mode);
    D.agree_all(type.top);
    Instance* x = type.create(D, D.set_id());
    EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), 0, &D.st),
              image.size());
    EXPECT_EQ(D.st, 0u);
    EXPECT_EQ(x->variant, variant);
    // Any number of an enumerator travels, also to a build that does not know it.
    if (type.is_enum()) {
        EXPECT_EQ(Bytes(image.end() - 4, image.end()), Bytes(original.end() - 4, original.end()));
    } else if (s.arm.empty() || type.record->fields[type.record->index_of(s.arm)].since <= variant) {
        EXPECT_TRUE(Fill(D, s.seed).check(*type.record, x));
    }
    type.destroy(D, D.set_id(), x);
}

/// Whether a record of one variant holds bytes that a reader of another level does not know. A union untracked holds
/// them only for the arm that it selects.
bool leaves_bytes(const Specimen& s, int variant, int level) {
    if (s.type->is_enum() || variant <= level) return false;
    const Record& r = *s.type->record;
    return !r.is_union() || s.is_tracked || r.fields[r.index_of(s.arm)].since > level;
}

TEST_F(Skew, EveryChainOfThreeBuilds) {
    std::size_t types = 0;
    for (const WireType& type : wire_types()) {
        if (type.top == 0) continue;
        ++types;
        const Golden golden = read_golden(type);
        for (const Specimen& s : specimens(type)) {
            if (s.variant < 0) continue;
            const Bytes& image = golden.at(s.text());
            for (int first = 0; first <= type.top; ++first)
                for (int second = 0; second <= type.top; ++second) {
                    SCOPED_TRACE(s.text() + " through " + std::to_string(first) + " and " + std::to_string(second));
                    const std::size_t skips_first = leaves_bytes(s, s.variant, first);
                    const std::size_t skips_second = leaves_bytes(s, std::min(s.variant, first), second);
                    const Bytes once = passed_on(type, image, s.mode(), first, skips_first);
                    const Bytes twice = passed_on(type, once, s.mode(), second, skips_second);
                    EXPECT_TRUE(take_apart(type, twice).is_sound);
                    expect_fields(type, twice, image, s, s.mode(), std::min({s.variant, first, second}));
                    // Where nobody knew less than the writer, nothing has changed on the way.
                    const bool is_same = first >= s.variant && second >= s.variant;
                    EXPECT_TRUE(!is_same || s.is_tracked || twice == image);
                }
        }
    }
    EXPECT_EQ(types, 8u);
}

/// The image as a build writes it that knows one variant more of these records and enumerations, which are in their
/// highest variant so far: with some bytes behind the known ones.
Bytes from_the_future(const Bytes& image, const std::vector<Parts::Frame>& frames) {
    constexpr std::uint8_t unknown[] = {0xD1, 0x5C, 0x07};
    Bytes future = image;
    for (const Parts::Frame& f : frames) {
        future[f.start] = static_cast<std::uint8_t>(f.top + 1);
        if (f.jump == 0) continue;
        std::size_t nested = 0;
        for (const Parts::Frame& other : frames)
            nested += other.jump != 0 && other.start >= f.start && other.end <= f.end;
        const std::size_t jump = f.end - f.jump + nested * sizeof unknown;
        for (std::size_t byte = 0; byte < 4; ++byte)
            future[f.jump + byte] = static_cast<std::uint8_t>(jump >> (24 - 8 * byte));
    }
    std::vector<std::size_t> ends;
    for (const Parts::Frame& f : frames)
        if (f.jump != 0) ends.push_back(f.end);
    std::ranges::sort(ends, std::greater{});
    for (const std::size_t end : ends)
        future.insert(future.begin() + static_cast<std::ptrdiff_t>(end), std::begin(unknown), std::end(unknown));
    return future;
}

TEST_F(Skew, AFutureVariantOfEverything) {
    std::size_t records = 0;
    for (const WireType& type : wire_types()) {
        const Golden golden = read_golden(type);
        for (const Specimen& s : specimens(type)) {
            if (s.variant != type.top) continue;
            SCOPED_TRACE(s.text());
            const Bytes& image = golden.at(s.text());
            std::vector<Parts::Frame> frames = take_apart(type, image).frames;
            // An arm may be agreed below its own highest variant.
            std::erase_if(frames,
                          [&](const Parts::Frame& f) { return static_cast<std::int8_t>(image[f.start]) < f.top; });
            const Bytes future = from_the_future(image, frames);
            const auto jumps = static_cast<std::size_t>(
                std::ranges::count_if(frames, [](const Parts::Frame& f) { return f.jump != 0; }));
            EXPECT_EQ(passed_on(type, future, s.mode(), type.top, jumps), image);
            records += jumps;
        }
    }
    EXPECT_GT(records, 150u);
}

// A jump word that is too small leaves the offset where the fields end; one beyond the buffer leads there, and nothing
// is read behind it.
TEST_F(Skew, JumpWordsThatLie) {
    const WireType& type = wire_type("orlan_ial_svm_preauthacl_data");
    const Bytes image = read_golden(type).at("orlan_ial_svm_preauthacl_data, variant 0, untracked");
    ASSERT_EQ(image.size(), 10u);
    for (const auto& [jump, offset] : {std::pair{0u, 10u},
                                       {4u, 10u},
                                       {8u, 10u},
                                       {9u, 11u},
                                       {0x7FFFFFF0u, 0x7FFFFFF2u},
                                       {0x80000000u, 10u},
                                       {0xFFFFFFFFu, 10u}}) {
        Bytes lying = image;
        for (std::size_t byte = 0; byte < 4; ++byte)
            lying[2 + byte] = static_cast<std::uint8_t>(jump >> (24 - 8 * byte));
        TestDomain D;
        Instance* x = type.create(D, D.set_id());
        Traces traces;
        EXPECT_EQ(type.unmarshal(D, D.set_id(), lying.data(), x, 10, 0, &D.st), offset) << jump;
        EXPECT_EQ(D.st, 0u) << jump;
        EXPECT_EQ(count_lines(traces.take()), offset == 10 ? 0u : 1u) << jump;
        EXPECT_EQ(marshalled(type, D, x), image);
        type.destroy(D, D.set_id(), x);
    }
}

} // namespace
} // namespace epm::test
