// The page docs/cost.md lists what operations cost in runtime calls and allocations. Its tables are made of the scenes
// in calls/cost.txt; this test fails when they are no longer true, and with EPM_WRITE_GOLDEN=1 it writes them anew.
#include "support/scene.hpp"

#include <fstream>
#include <map>
#include <sstream>

namespace epm::test {
namespace {

using Names = std::vector<std::string>;

/// The functions in order, without traces.
Names functions(const std::string& calls) {
    Names names;
    std::istringstream in(calls);
    for (std::string line; std::getline(in, line);)
        if (const auto end = line.find('('); end != line.npos && !line.starts_with("trace("))
            names.push_back(line.substr(0, end));
    return names;
}

/// One word replaces the calls with which accessors begin; repetitions are counted.
std::string text_of(Names calls) {
    const std::pair<const char*, Names> beginnings[] = {
        {"*write*",
         {"zur_clear_last_error", "zur_get_manifested_type_info", "zurlib_adjust_variant", "zur_get_instance_variant"}},
        {"*read*", {"zur_clear_last_error", "zur_get_instance_variant"}}};
    for (const auto& [word, beginning] : beginnings)
        for (auto at = calls.begin();
             (at = std::search(at, calls.end(), beginning.begin(), beginning.end())) != calls.end(); ++at)
            at = calls.insert(calls.erase(at, at + std::ssize(beginning)), word);
    std::string text;
    for (std::size_t i = 0, n = 1; i < calls.size(); i += n, n = 1) {
        while (i + n < calls.size() && calls[i + n] == calls[i]) ++n;
        text += (i == 0 ? "" : ", ") + (calls[i][0] == '*' ? calls[i] : "`" + calls[i] + "`");
        if (n > 1) text += " × " + std::to_string(n);
    }
    return calls.empty() ? "none" : text;
}

/// What is called in another mode besides, by name.
Names further(Names calls, Names known) {
    std::ranges::sort(calls);
    std::ranges::sort(known);
    Names more;
    std::ranges::set_difference(calls, known, std::back_inserter(more));
    return more;
}

/// What a step calls in each of the modes: 0 none, 1 tracked, 2 with a store.
struct Cost {
    std::string label;
    std::map<int, Names> in;

    const Names& base() const { return in.begin()->second; }
    /// How many calls there are, or those of one function; behind the sign in tracked mode, if that is another number.
    std::string count(const char* sign, const std::string& function = "") const {
        const auto among = [&](const Names& names) {
            return std::to_string(function.empty() ? std::ssize(names) : std::ranges::count(names, function));
        };
        const std::string plain = among(base());
        const std::string tracked = in.contains(1) ? among(in.at(1)) : plain;
        return plain == tracked ? plain : plain + sign + tracked;
    }
};

std::vector<Cost> play(const Scene& scene) {
    std::vector<Cost> costs;
    for (const Mode& mode : modes_of({"", {{"modes", "cost"}}, {}, {}})) {
        Stage stage(scene, mode);
        stage.on_cost = [&](const std::string& label, const std::string& calls) {
            auto cost = std::ranges::find(costs, label, &Cost::label);
            if (cost == costs.end()) cost = costs.insert(cost, {label, {}});
            cost->in[mode.is_tracking() ? 1 : mode.has_store ? 2 : 0] = functions(calls);
        };
        stage.run();
    }
    return costs;
}

/// A table with one row for all operations that cost the same.
void write_accessors(std::ostream& page, const Scene& scene) {
    std::vector<std::pair<std::string, std::string>> rows; // text, labels
    for (const Cost& cost : play(scene)) {
        std::string text;
        for (int mode = 0; mode < 3; ++mode)
            text += (cost.in.contains(mode) ? std::to_string(cost.in.at(mode).size()) : "–") + " | ";
        text += cost.count(" / ", "obj_alloc") + " | " + text_of(cost.base());
        for (const auto& [mode, calls] : cost.in)
            if (const Names more = further(calls, cost.base()); !more.empty())
                text += (mode == 1 ? "; tracked also " : "; with a store also ") + text_of(more);
        auto row = std::ranges::find(rows, text, [](const auto& r) { return r.first; });
        if (row == rows.end()) row = rows.insert(row, {text, ""});
        row->second += (row->second.empty() ? "" : "; ") + cost.label;
    }
    page << "\n### " << scene.title << "\n\n| Operation | Calls | Tracked | Store | Allocations | Runtime calls |\n"
         << "|---|---:|---:|---:|---:|---|\n";
    for (const auto& [text, labels] : rows) page << "| " << labels << " | " << text << " |\n";
}

/// A table of operations, with a column for each record that a scene is played for.
void write_records(std::ostream& page, const std::vector<Scene>& scenes) {
    std::map<std::string, std::string> rows;
    Names order;
    page << "\n| |";
    std::string line = "\n|---|";
    for (const Scene& scene : scenes) {
        page << " `" << scene.words.at("type") << "` |";
        line += "---:|";
        for (const Cost& cost : play(scene)) {
            if (!rows.contains(cost.label)) order.push_back(cost.label);
            const std::string allocations = cost.count("/", "obj_alloc");
            rows[cost.label] += " " + cost.count("/") + (allocations == "0" ? "" : " (" + allocations + ")") + " |";
        }
    }
    page << line << "\n";
    for (const std::string& label : order) page << "| " << label << " |" << rows[label] << "\n";
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
    std::vector<Scene> records, accessors;
    std::set<std::string> places;
    for (const std::string& file : scene_files())
        for (const Scene& scene : scenes_of(file)) {
            if (std::ranges::none_of(scene.steps, [](const Step& s) { return s.text.find("@cost") != s.text.npos; }))
                continue;
            if (scene.title.starts_with("Whole"))
                records.push_back(scene);
            else if (places.insert(scene.steps[0].place).second) // one field is like another
                accessors.push_back(scene);
        }
    page << "\n## Accessors, and enumerations by themselves\n";
    for (const Scene& scene : accessors) write_accessors(page, scene);
    page << "\n## Whole records\n";
    write_records(page, records);
    if (std::getenv("EPM_WRITE_GOLDEN") != nullptr)
        std::ofstream(path) << page.str();
    else
        EXPECT_EQ(page.str(), kept.str());
}

} // namespace
} // namespace epm::test
