// Scenes: calls of exported operations, and what must come of each: result, status, memory, traces, and the runtime
// calls in order. Every file in calls/ is one test; calls/README.md has the language. A scene is played in every mode
// of a Domain, with every write checked and no block alive behind it.
#include "support/scene.hpp"

#include <filesystem>
#include <fstream>

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

INSTANTIATE_TEST_SUITE_P(Files, Calls, testing::ValuesIn(scene_files()),
                         [](const auto& file) { return std::filesystem::path(file.param).stem().string(); });

} // namespace
} // namespace epm::test
