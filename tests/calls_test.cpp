// Scenes: calls of exported operations, and what must come of each: result, status, memory, traces, and the runtime
// calls in order. Every file in calls/ is one test; calls/README.md has the language. A scene is played in every mode
// of a Domain, with every write checked and no block alive behind it.
#include "support/scene.hpp"

#include <cstring>
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

// The checks must notice what they are there for: without its hook, the writes of a setter are unannounced.
TEST_F(BundleTest, UnannouncedWritesAreFound) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create("orlan_ial_svm_acl_apply", D);
    const auto hook = std::exchange(D->write_range_fn, [](zur_domain*, void*, std::uint32_t, std::uint32_t, void*) {});
    testing::TestPartResultArray found;
    {
        const testing::ScopedFakeTestPartResultReporter listener(&found);
        operation<void(zur_domain*, std::uint32_t, Instance*, const char*, std::uint32_t, std::uint32_t*)>(
            "orlan_ial_svm_acl_apply", "acl_name", "set")(D, D.set_id(), x, "guest", 5, &D.st);
    }
    // The pointer at 16, the length at 12, the flag behind the fields; of the pointer not all bytes change.
    std::set<int> bytes;
    for (int i = 0; i < found.size(); ++i)
        bytes.insert(std::atoi(std::strstr(found.GetTestPartResult(i).message(), "of byte ") + 8));
    std::size_t of_pointer = 0;
    for (int byte = 16; byte < 24; ++byte) of_pointer += bytes.erase(byte);
    EXPECT_NE(of_pointer, 0u);
    EXPECT_EQ(bytes, (std::set<int>{12, catalogue::size<catalogue::orlan_ial_svm_acl_apply>}));
    D->write_range_fn = hook;
    destroy("orlan_ial_svm_acl_apply", D, x);
}

INSTANTIATE_TEST_SUITE_P(Files, Calls, testing::ValuesIn(scene_files()),
                         [](const auto& file) { return std::filesystem::path(file.param).stem().string(); });

} // namespace
} // namespace epm::test
