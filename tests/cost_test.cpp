// The page docs/cost.md lists what operations cost in runtime calls and allocations. Its tables are made of the scenes
// in calls/; this test fails when they are no longer true, and with EPM_WRITE_GOLDEN=1 it writes them anew. The same
// program with a declaration of plain operations, cost_plain, has one column to tell and no page.
#include "support/scene.hpp"

#include <fstream>
#include <iostream>
#include <sstream>

namespace epm::test {
namespace {

using Costs = std::map<std::string, std::string>;

/// What the program with the declaration tells, by scene and operation.
Costs costs_where_plain() {
    Costs costs;
    EXPECT_EQ(std::system(EPM_PROGRAM_DIR "/cost_plain_test >" EPM_PROGRAM_DIR "/cost_plain.txt"), 0);
    std::ifstream told(EPM_PROGRAM_DIR "/cost_plain.txt");
    for (std::string line; std::getline(told, line);)
        costs[line.substr(0, line.rfind('\t'))] = line.substr(line.rfind('\t') + 1);
    return costs;
}

/// One line for each operation of a scene; a mode in which it fails stays empty.
void write_table(std::ostream& page, const Scene& scene) {
    std::map<std::string, std::array<std::string, 4>> rows;
    const std::array<Mode, 3> modes = {Mode{}, {ZUR_TRACKED_MODE}, {PLATFORM_NO_HANDLE, 1, true, true}};
    for (std::size_t mode = 0; mode < modes.size(); ++mode) {
        Stage stage(scene, modes[mode]);
        stage.on_cost = [&](const std::string& label, const std::string& calls) {
            int count = 0, allocations = 0;
            std::istringstream in(calls);
            for (std::string line; std::getline(in, line);) {
                count += line.find('(') != line.npos && !line.starts_with("trace(");
                allocations += line.starts_with("obj_alloc(");
            }
            rows[label][mode] =
                std::to_string(count) + (allocations != 0 ? " (" + std::to_string(allocations) + ")" : "");
        };
        stage.run();
    }
    static const auto plain = declares_plain ? Costs() : costs_where_plain();
    page << "\n## " << scene.title
         << "\n\n| Operation | Calls | Tracked | Store | Plain |\n|---|---:|---:|---:|---:|\n";
    for (auto& [label, costs] : rows) {
        const std::string what = scene.title + ", " + label;
        if (declares_plain) std::cout << what << "\t" << costs[0] << "\n";
        if (plain.contains(what)) costs[3] = plain.at(what);
        page << "| " << label;
        for (const std::string& cost : costs) page << " | " << cost;
        page << " |\n";
    }
}

using CostPage = BundleTest;

TEST_F(CostPage, IsWhatThePageTells) {
    checker.reset();
    const std::string path = EPM_SOURCE_DIR "/docs/cost.md";
    std::stringstream kept;
    kept << std::ifstream(path).rdbuf();
    const std::string marker = "<!-- The test cost writes what follows. -->\n";
    std::ostringstream page;
    page << kept.str().substr(0, kept.str().find(marker)) << marker;
    std::set<std::string> places;
    for (const std::string& file : scene_files())
        for (const Scene& scene : scenes_of(file)) {
            const bool has_cost =
                std::ranges::any_of(scene.steps, [](const Step& s) { return s.text.find("@cost") != s.text.npos; });
            const bool is_first = places.insert(scene.steps[0].place).second; // one field is like another
            if (has_cost && (is_first || file.ends_with("/cost.txt"))) write_table(page, scene);
        }
    if (declares_plain) return;
    if (std::getenv("EPM_WRITE_GOLDEN") != nullptr)
        std::ofstream(path) << page.str();
    else
        EXPECT_EQ(page.str(), kept.str());
}

} // namespace
} // namespace epm::test
