// Scenes: calls of exported operations, and what must come of each: result, status, memory, traces, and the runtime
// calls in order. Every file in calls/ is one test; calls/README.md has the language. A scene is played in every mode
// of a Domain, with every write checked and no block alive behind it.
#include "support/scene.hpp"

#include <filesystem>

namespace epm::test {
namespace {

class Calls : public BundleTest, public testing::WithParamInterface<std::string> {};

TEST_P(Calls, AreAsInTheFile) {
    for (const Scene& scene : scenes_of(GetParam()))
        for (const Mode& mode : modes_of(scene)) {
            checker.emplace(); // without the blocks of the last scene
            Stage(scene, mode).run();
            ASSERT_EQ(heap().blocks().size(), 0u)
                << "blocks that nobody has released: " << scene.title << ", " << mode.text();
            if (HasFailure()) return;
            heap().reset();
        }
}

// The checks must notice what they are there for: without its hook, the write of a setter is unannounced.
TEST_F(BundleTest, UnannouncedWritesAreFound) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create("orlan_ial_svm_acl_apply", D);
    const auto hook = std::exchange(D->write_range_fn, [](zur_domain*, void*, std::uint32_t, std::uint32_t, void*) {});
    EXPECT_NONFATAL_FAILURE(
        call(D, std::string("orlan_ial_svm_acl_apply"), std::string("acl_name"), "state_flag_set", x, 7u),
        "unannounced write of byte 48 of");
    D->write_range_fn = hook;
    destroy("orlan_ial_svm_acl_apply", D, x);
}

INSTANTIATE_TEST_SUITE_P(Files, Calls, testing::ValuesIn(scene_files()),
                         [](const auto& file) { return std::filesystem::path(file.param).stem().string(); });

} // namespace
} // namespace epm::test
