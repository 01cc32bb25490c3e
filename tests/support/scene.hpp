// The player of scenes; calls/README.md has their language.
#pragma once

#include "support/bundle_test.hpp"
#include "support/text.hpp"

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace epm::test {

struct Step {
    std::string place; ///< file and line
    std::string text;
    std::string calls; ///< those that must come, one on each line; empty where only the outcome counts
};

/// A scene for one type or field: words in braces are replaced.
struct Scene {
    std::string title;
    std::map<std::string, std::string> options; ///< those behind the title
    std::map<std::string, std::string> words;
    std::vector<Step> steps;
};

std::vector<std::string> scene_files();
/// The scenes of a file, one for each type or field that the title asks for.
std::vector<Scene> scenes_of(const std::string& file);
/// The modes of a Domain in which a scene is played.
std::vector<Mode> modes_of(const Scene& scene);

using Word = std::uint64_t;
using Words = std::vector<std::string>;

/// One Domain in one mode, the Instances and buffers of a scene, and the calls.
class Stage {
public:
    Stage(const Scene& scene, const Mode& mode);
    ~Stage();
    void run();

    /// Gets the calls of a step that has the option `cost`, and what that option says.
    std::function<void(const std::string& label, const std::string& calls)> on_cost;

private:
    void run(const Step& step);
    void declare(const Words& words);
    void assign(const Words& words);
    Word invoke(const Words& words);
    void outcome(const std::string& wanted, const std::string& calls, const std::string& found, Word result);
    void match(const std::string& wanted, const Words& found, const std::string& all);
    void die(const Words& wanted, const Words& words);
    std::string in_full(const std::string& text) const;

    /// The type behind a short name.
    std::string type(const std::string& word) const;
    Word number(const std::string& word);
    std::string bytes_of(const Words& words);
    /// Takes the modes off a line; false where it does not count in this mode.
    bool counts(std::string& line) const;
    void replace_names(std::string& line) const;

    const Scene& scene_;
    TestDomain D;
    Recorder recorder_;
    std::map<std::string, std::string> types_;                       ///< of Instances, by name
    std::map<std::string, Word> values_;                             ///< addresses of Instances and buffers, results
    std::map<std::string, std::string> bound_;                       ///< `$name` as it stands in calls
    std::deque<GuardedBuffer> data_;                                 ///< bytes of the scene
    std::vector<std::tuple<std::string, Instance*, Instance>> made_; ///< with the header as it was
    std::string subject_;                                            ///< type of the Instance that the step is about
    std::string operation_;                                          ///< that the step calls
};

} // namespace epm::test
