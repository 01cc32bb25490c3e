// What the tool says of messages beside one another: of a message and a peer that is older, of a message and the types
// that it can be of. The library and the golden corpus say what is right.
#include "support/images.hpp"
#include "tool/guess.hpp"
#include "tool/json_message.hpp"
#include "tool/operations.hpp"
#include "tool/skew.hpp"

#include <platform/domain.h>

#include <gtest/gtest.h>

namespace epm::tool {
namespace {

using Json = nlohmann::ordered_json;

/// What a build that knows the type up to a variant makes of a message, which it writes again.
Json kept_by_reader(const Type& type, ByteView message, std::int8_t variant) {
    const Operations call(type.name);
    zur_domain* D = platform_domain_create(nullptr);
    zur_instance* x = call.create(D, ZUR_NO_SET);
    x->layout_variant = x->variant = variant;
    std::uint32_t st = 0;
    call.unmarshal(D, ZUR_NO_SET, message.data(), x, static_cast<std::int32_t>(message.size()), 0, &st);
    platform_domain_agree(D, type.name.c_str(), variant);
    Bytes again(message.size() + 8);
    again.resize(call.marshal(D, ZUR_NO_SET, again.data(), x, static_cast<std::int32_t>(again.size()), &st));
    EXPECT_EQ(st, 0);
    call.destroy(D, ZUR_NO_SET, x);
    platform_domain_destroy(D);
    return Json::parse(to_json(type, again));
}

TEST(ToolSkew, TellsWhatAReaderOfEachVariantDoesNotGet) {
    std::size_t missed = 0;
    for (const Type& type : all_types()) {
        if (type.is_enum()) continue;
        for (const test::Image& image : test::images_of(type.name)) {
            if (image.name.find("untracked") == std::string::npos) continue;
            SCOPED_TRACE(image.name);
            const Json sent = Json::parse(to_json(type, image.bytes));
            for (std::int8_t variant = 0; variant <= type.top(); ++variant) {
                Peer peer = peer_of_variant(127);
                peer[type.name] = variant;
                const Json got = kept_by_reader(type, image.bytes, variant);
                const std::vector<Miss> misses = skew(type, image.bytes, peer).misses;
                missed += misses.size();
                for (const auto& [name, value] : sent.items()) {
                    if (name.starts_with('$')) continue;
                    const auto miss = std::ranges::find(misses, name, &Miss::path);
                    EXPECT_EQ(got.contains(name), miss == misses.end()) << name;
                    EXPECT_EQ(got.contains(name) ? got[name] : miss->value, value) << name;
                }
            }
        }
    }
    EXPECT_GT(missed, 10);
}

// Enumerators that a setter refuses in a Domain of the peer's variant.
TEST(ToolSkew, TellsEnumeratorsThatCannotBeSetForThePeer) {
    const Type& type = type_named("orlan_ial_svm_epm_data");
    for (const test::Image& image : test::images_of(type.name)) {
        const Skew result = skew(type, image.bytes, peer_of_variant(0));
        const bool is_later = image.name.ends_with("dacl_dnld_comp_data");
        EXPECT_EQ(result.is_refused(), is_later) << image.name;
        EXPECT_TRUE(skew(type, image.bytes, peer_of_variant(127)).misses.empty());
    }
    const Bytes tag = {1, 0, 0, 0, 10};
    EXPECT_EQ(skew(type_named("orlan_ial_svm_epm_type_e"), tag, peer_of_variant(0)).misses.at(0).kind,
              Miss::Kind::enumerator);
}

// Types whose messages look the same share a rank; a message of no fields looks the same for all.
TEST(ToolGuess, RanksTheRightTypeFirst) {
    std::size_t images = 0, best = 0;
    for (const Type& type : all_types())
        for (const test::Image& image : test::images_of(type.name)) {
            const std::vector<Guess> all = guesses(image.bytes);
            const auto right = std::ranges::find(all, &type, &Guess::type);
            EXPECT_EQ(right->rank, 1) << image.name;
            EXPECT_TRUE(right->fault.empty());
            if (image.name.find("variant -1") != std::string::npos) continue;
            ++images;
            best += static_cast<std::size_t>(std::ranges::count(all, 1, &Guess::rank));
        }
    EXPECT_LT(best, images * 3 / 2);
    EXPECT_FALSE(guesses(Bytes{0, 0, 0}).front().fault.empty());
}

} // namespace
} // namespace epm::tool
