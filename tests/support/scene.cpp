// Reading scenes, and playing them.
#include "support/scene.hpp"

#include "support/imports.hpp"
#include "support/text.hpp"

#include <platform/store.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace epm::test {

namespace {

using Words = std::vector<std::string>;

Words split(const std::string& text, const std::string& between) {
    Words parts;
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + between.size()) {
        end = text.find(between, start);
        if (end != start && start < text.size()) parts.push_back(text.substr(start, end - start));
    }
    return parts;
}

/// Words with blanks between; those in quotes stay together, and keep the first quote.
Words words_of(const std::string& text) {
    Words words;
    std::istringstream in(text);
    while (in >> std::ws && !in.eof()) {
        std::string& word = words.emplace_back();
        if (in.peek() != '"') {
            in >> word;
            continue;
        }
        word = static_cast<char>(in.get());
        for (int c; (c = in.get()) != '"' && c >= 0;) word += c == '\\' && in.get() ? '\0' : static_cast<char>(c);
    }
    return words;
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

/// `@name=value`, or `@name`
std::pair<std::string, std::string> option_of(const std::string& word) {
    static const std::set<std::string> known = {"each", "modes",  "st",  "error", "quiet", "refuse",
                                                "fail", "handle", "any", "for",   "cost"};
    EXPECT_TRUE(known.contains(word.substr(1, word.find('=') - 1))) << word;
    const auto end = word.find('=');
    return {word.substr(1, end - 1), end == word.npos ? "" : word.substr(end + 1)};
}

/// What a title may ask a scene for: every type or every field of a kind.
bool is_of(const std::string& what, const TypeNumbers& t) {
    const Record* r = record_named(t.name);
    const bool is_flat = r != nullptr && !r->any([](const Field& f) { return f.has_nested_block(); });
    return what == "type" || what == (t.is_enum ? "enum" : "record") || what == t.name || (what == "flat" && is_flat);
}
bool is_of(const std::string& what, const Record& r, const Field& f) {
    static const char* const kinds[] = {"number", "length", "object",   "text", "characters",
                                        "array",  "run",    "embedded", "arm",  "list"};
    const std::string kind = f.is_own_enum()     ? r.is_union() ? "tag" : "enumeration"
                             : f.is_enumerated() ? "imported_enumeration"
                                                 : kinds[static_cast<std::size_t>(f.kind)];
    return what == kind || (what == "tracked" && f.is_tracked());
}

using Replacements = std::map<std::string, std::string>;

void add_words(Replacements& words, const TypeNumbers& t) {
    words["type"] = t.name;
    words["size"] = std::to_string(t.size);
    words["length"] = std::to_string(t.tracked);
    words["end"] = std::to_string(t.tracked - 1);
    words["top"] = std::to_string(t.used.size() - 1);
    // Values for all fields at once, and the variables that they come back in, of eight bytes each.
    const Record* r = record_named(t.name);
    std::size_t outs = 0;
    words["ins"] = words["outs"] = words["all"] = "";
    for (std::size_t i = 0; r != nullptr && i < r->count; ++i) {
        const Field& f = r->fields[i];
        if (f.kind != Kind::value && f.kind != Kind::length) continue;
        const bool is_own_tag = r->is_union() && f.is_own_enum();
        const std::size_t value = f.kind == Kind::length || is_own_tag ? 0
                                  : f.is_own_enum()                    ? f.enumeration->count - 1
                                  : f.is_enumerated()                  ? 1
                                                                       : i + 3;
        if (f.kind == Kind::value && !is_own_tag) words["ins"] += " " + std::to_string(value);
        words["outs"] += " all+" + std::to_string(8 * outs++);
        const int width = f.is_enumerated() ? 4 : f.foreign->length;
        for (int b = 0; b < 8; ++b) words["all"] += b == 0 ? " " + std::to_string(value) : b < width ? " 0" : " 0xEE";
    }
}

void add_words(Replacements& words, const Record& r, std::size_t i, std::size_t size) {
    const catalogue::Layout l = catalogue::lay_out(r);
    const Field& f = r.fields[i];
    words["field"] = f.name;
    words["of"] = f.is_own_enum() ? f.enumeration->name : f.is_of_record() ? f.record->name : f.foreign->name;
    words["of_top"] = std::to_string(f.is_own_enum() ? f.enumeration->top() : f.is_of_record() ? f.record->top() : 0);
    words["at"] = std::to_string(l.offset[i]);
    words["at_variant"] = std::to_string(l.offset[i] + 8);
    words["at_value"] = std::to_string(l.offset[i] + catalogue::header_length);
    words["flag"] = std::to_string(size + l.flag[i]);
    words["moved_flag"] = std::to_string(4000 + l.flag[i]);
    words["whole"] = f.has_element_flags() ? "whole_" : "";
    words["enumerated"] = f.is_enumerated() ? "1" : "0";
    words["tag"] = std::to_string(f.tag);
    if (f.is_own_enum()) words["last"] = std::to_string(f.enumeration->count - 1);
}

/// The scene as it stands, or one for each type or field that its title asks for.
void add(std::vector<Scene>& scenes, const Scene& scene) {
    const auto each = scene.options.find("each");
    if (scene.title.empty()) return;
    if (each == scene.options.end()) return scenes.push_back(scene);
    const std::size_t before = scenes.size();
    for (std::string what : split(each->second, ",")) {
        if (const auto alias = scene.words.find(what); alias != scene.words.end()) what = alias->second;
        for (const TypeNumbers& t : all_types()) {
            Scene one = scene;
            add_words(one.words, t);
            one.title += ", " + t.name;
            if (is_of(what, t)) scenes.push_back(one);
            const Record* r = record_named(t.name);
            for (std::size_t i = 0; r != nullptr && i < r->count; ++i) {
                if (!is_of(what, *r, r->fields[i])) continue;
                add_words(one.words, *r, i, t.size);
                scenes.push_back(one);
                scenes.back().title += "." + one.words["field"];
            }
        }
    }
    EXPECT_NE(scenes.size(), before) << scene.title << " is for nothing";
}

/// Calls and outcomes that come together, by the word that stands for them; calls/README.md has them.
const std::map<std::string, std::string>& short_forms() {
    static const auto all = [] {
        std::map<std::string, std::string> forms;
        std::ifstream in(EPM_SOURCE_DIR "/tests/calls/README.md");
        std::string line, word;
        while (std::getline(in, line) && line != "## Short forms") continue;
        while (std::getline(in, line)) {
            if (line.size() < 12 || line[0] != ' ') continue;
            if (line[4] != ' ') word = words_of(line)[0];
            forms[word] += lines(line.substr(12));
        }
        return forms;
    }();
    return all;
}

/// In the order of Stage::counts().
constexpr std::string_view mode_letters = "tdnucsmkre";

/// A call with the modes in front, if any.
std::pair<std::string, std::string> modes_and_call(const std::string& line) {
    const auto end = line.find(": ");
    if (end == std::string::npos || line.substr(0, end).find_first_not_of(mode_letters) != std::string::npos)
        return {"", line};
    return {line.substr(0, end + 2), line.substr(end + 2)};
}

std::string in_full(const std::string& line) {
    const auto [modes, call] = modes_and_call(line);
    const Words words = words_of(call);
    const auto form = short_forms().find(words.empty() ? "" : words[0]);
    if (form == short_forms().end() || (words.size() > 1 && words[1] == "=")) return line + "\n";
    std::string calls = form->second;
    for (std::size_t n = words.size(); n-- > 1;) replace_all(calls, "$" + std::to_string(n), words[n]);
    std::string all;
    for (const std::string& one : split(calls, "\n")) all += modes + one + "\n";
    return all;
}

/// The type behind each first entry in the trace table, found by the texts of creation.
const std::map<std::uint32_t, std::string>& first_entries() {
    static const auto all = [] {
        std::map<std::uint32_t, std::string> types;
        platform_trace_reader* reader = platform_trace_open(EPM_LIBRARY_FILE, nullptr, 0);
        for (std::uint32_t i = 0; i < platform_trace_count(reader); ++i) {
            std::uint32_t length = 0;
            std::uint32_t luid = 0;
            const char* start = platform_trace_text(reader, i, &length, &luid);
            const std::string text(start, length);
            if (const std::size_t end = text.find(" create"); text.starts_with(" error in ") && end != text.npos)
                types[i] = text.substr(10, end - 10);
        }
        platform_trace_close(reader);
        return types;
    }();
    return all;
}

using Word = std::uint64_t;
using W = Word;
/// An operation that is called with words, for whatever it takes.
using Any = Word(W, W, W, W, W, W, W, W, W, W, W, W, W, W, W, W, W, W, W, W);

} // namespace

std::vector<std::string> scene_files() {
    std::vector<std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator(EPM_SOURCE_DIR "/tests/calls"))
        if (entry.path().extension() == ".txt") all.push_back(entry.path());
    std::ranges::sort(all);
    return all;
}

std::vector<Scene> scenes_of(const std::string& file) {
    std::vector<Scene> scenes;
    Scene scene;
    std::map<std::string, std::string> aliases;
    std::ifstream in(file);
    std::size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.empty() || line[0] == '#') continue;
        Words words = words_of(line);
        if (words[0] == "alias") {
            for (const std::string& word : words)
                if (const auto end = word.find('='); end != word.npos)
                    aliases[word.substr(0, end)] = word.substr(end + 1);
        } else if (words[0] == "==") {
            add(scenes, scene);
            scene = {line.substr(3, line.find(" @") - 3), {}, aliases, {}};
            for (const std::string& word : words)
                if (word[0] == '@') scene.options.insert(option_of(word));
        } else if (line[0] == ' ') {
            scene.steps.back().calls += lines(line);
        } else {
            const std::string name = std::filesystem::path(file).filename();
            for (const std::string& step : split(line, " | ")) {
                const auto calls = step.find(" :: ");
                scene.steps.push_back({name + ":" + std::to_string(number), step.substr(0, calls),
                                       calls == step.npos ? "" : lines(step.substr(calls + 4))});
            }
        }
    }
    add(scenes, scene);
    return scenes;
}

std::vector<Mode> modes_of(const Scene& scene) {
    const Mode none, untracked{ZUR_UNTRACKED_MODE}, tracked{ZUR_TRACKED_MODE}, store{.has_store = true};
    const Mode marking{.store_mode = 1, .containment = true, .has_store = true};
    const std::map<std::string, std::vector<Mode>> lists = {
        {"all", all_modes()},
        {"few", {none, untracked, tracked, {ZUR_TRACKED_MODE, 1, true, true}, {ZUR_UNTRACKED_MODE, 0, true, true}}},
        {"base", {none, untracked, tracked}},
        {"cost", {none, tracked, marking}},
        {"n", {none}},
        {"t", {tracked}},
        {"s", {store}},
        {"k", {{.store_mode = 2}}}};
    const auto option = scene.options.find("modes");
    return lists.at(option != scene.options.end() ? option->second : scene.options.contains("each") ? "few" : "all");
}

Stage::Stage(const Scene& scene, const Mode& mode) : scene_(scene), D(mode), recorder_(D) {
    heap().quarantine();
    values_["D.tracking_handle"] = reinterpret_cast<Word>(D->tracking_handle);
    values_["D.hd_mapping_root"] = reinterpret_cast<Word>(&D->hd_mapping_root);
    values_["D.cr_active"] = reinterpret_cast<Word>(&D->cr_active);
}

Stage::~Stage() {
    heap().stop_refusing();
    for (const auto& [type, x] : made_)
        if (heap().blocks().contains(x)) destroy(type, D, x);
}

void Stage::run() {
    for (const Step& step : scene_.steps) {
        SCOPED_TRACE(step.place + ", " + scene_.title + ", " + D.mode().text());
        run(step);
        if (testing::Test::HasFailure()) return;
    }
}

void Stage::run(const Step& step) {
    std::string text = step.text;
    std::string calls = step.calls;
    for (const auto& [word, value] : scene_.words) {
        replace_all(text, "{" + word + "}", value);
        replace_all(calls, "{" + word + "}", value);
    }
    if (!counts(text)) return;
    const auto arrow = text.find(" -> ");
    std::string wanted = arrow == std::string::npos ? "" : text.substr(arrow + 4);
    Words words = words_of(text.substr(0, arrow));
    std::map<std::string, std::string> options;
    std::erase_if(words, [&](const std::string& word) {
        if (word[0] == '@') options.insert(option_of(word));
        return word[0] == '@';
    });
    if (options.contains("for") && type(options["for"]) != type("type")) return;
    if (words[0] == "agree") return D.agree(type(words[1]).c_str(), std::stoi(words[2]));
    if (words.size() > 1 && words[1] == ":=") return assign(words);
    if (words.size() > 1 && words[1] == "==") return compare(words);
    if (words.size() > 1 && std::ranges::find(all_types(), type(words[0]), &TypeNumbers::name) != all_types().end())
        return declare(words);

    const auto option = [&](const char* name) { return options.contains(name) ? number(options[name]) : 0; };
    if (options.contains("refuse")) heap().refuse_nth(option("refuse"));
    Words how = options.contains("fail") ? split(options["fail"], ":") : Words{"", "0", "0", "0"};
    how.resize(4, "0");
    const auto dots = how[1].find("..");
    if (options.contains("quiet")) { // under a raised status word nothing happens, and readers give nothing
        options["st"] = "5";
        calls = "nothing";
        wanted = words.at(1).find("get") == std::string::npos || words[1] == "get_all" || words[1] == "get_mem"
                     ? "st 5"
                     : "0; st 5";
    }
    auto* const handle = D->tracking_handle;
    if (options["handle"] == "null") D->tracking_handle = nullptr;
    if (options["handle"] == "damaged") {
        handle->handle_kind = 0xDDDE;
        wanted = "dies \" Corrupted ZUR Handle\"";
    }
    const std::size_t first = std::stoul(how[1]);
    const std::size_t last = dots == how[1].npos ? first : std::stoul(how[1].substr(dots + 2));
    for (std::size_t n = first; n <= last; ++n) {
        failing_import = {how[0], n, static_cast<std::uint32_t>(std::stoul(how[2])), number(how[3])};
        recorder_.take();
        D.st = static_cast<std::uint32_t>(option("st"));
        D->last_error = static_cast<std::uint32_t>(option("error"));
        if (wanted.starts_with("dies ")) {
            die(words_of(wanted), words, n - first);
            continue;
        }
        const Word result = invoke(words);
        std::string found = recorder_.take();
        if (D.st != 0) found += "st = " + std::to_string(D.st) + "\n";
        if (D->last_error != 0 && D->last_error != D.st) found += "error = " + std::to_string(D->last_error) + "\n";
        if (options.contains("cost") && on_cost && D.st == 0) {
            const auto colon = words[0].find(':');
            std::ranges::replace(options["cost"], '_', ' ');
            on_cost((colon == words[0].npos ? words[1] : words[0].substr(colon + 1)) +
                        (options["cost"].empty() ? "" : ", " + options["cost"]),
                    found);
        }
        if (!options.contains("any")) outcome(wanted, calls, found, result);
    }
    D.st = 0;
    D->tracking_handle = handle;
    if (options["handle"] == "damaged") handle->handle_kind = ZUR_TRACKED_MODE;
    failing_import = {};
    heap().stop_refusing();
}

void Stage::declare(const Words& words) {
    const std::string t = type(words[0]);
    const auto& numbers = *std::ranges::find(all_types(), t, &TypeNumbers::name);
    types_[words[1]] = t;
    if (words.size() > 2) {
        values_[words[1]] = number(words[3]);
        return;
    }
    Instance* x = create(t, D);
    ASSERT_NE(x, nullptr);
    made_.emplace_back(t, x);
    recorder_.name(x, D.mode().is_tracking() ? numbers.tracked : numbers.size, words[1]);
    values_[words[1]] = reinterpret_cast<Word>(x);
}

std::string Stage::bytes_of(const Words& words, std::size_t first) {
    const std::string& kind = words.at(first);
    if (kind == "text") return words.at(first + 1).substr(1);
    if (kind == "zero") return std::string(number(words.at(first + 1)), '\0');
    if (kind == "copy")
        return {reinterpret_cast<const char*>(number(words.at(first + 1))), number(words.at(first + 2))};
    if (kind == "space") return std::string(number(words.at(first + 1)), '\xEE');
    const std::size_t size = kind == "ptr" ? 8 : std::stoul(kind.substr(1)) / 8;
    std::string bytes;
    for (std::size_t i = first + 1; i < words.size(); ++i) {
        const Word value = number(words[i]);
        bytes.append(reinterpret_cast<const char*>(&value), size);
    }
    return bytes;
}

void Stage::assign(const Words& words) {
    const std::string bytes = bytes_of(words, 2);
    if (!values_.contains(words[0]) && words[0].find_first_of("+.") == std::string::npos) {
        const char* place = data_.emplace_back().last(bytes.size());
        values_[words[0]] = reinterpret_cast<Word>(place);
        recorder_.name(place, bytes.size(), words[0]);
    }
    std::memcpy(reinterpret_cast<void*>(number(words[0])), bytes.data(), bytes.size());
}

void Stage::compare(const Words& words) {
    const std::string wanted = bytes_of(words, 2);
    const auto* found = reinterpret_cast<const char*>(number(words[0]));
    EXPECT_EQ(std::string(found, wanted.size()), wanted) << words[0];
}

Word Stage::invoke(const Words& words) {
    std::array<Word, 20> all{};
    auto next = all.begin();
    Operation<Any> called;
    width_ = 0;
    const auto end = words[0].find_first_of(":.");
    const std::string name = words[0].substr(0, end);
    const std::string rest = end == words[0].npos ? "" : words[0].substr(end + 1);
    const bool is_bare = end != words[0].npos && words[0][end] == ':';
    subject_ = is_bare ? type(name) : types_[name];
    if (is_bare && !name.empty()) {
        called = operation<Any>(subject_, rest);
    } else if (is_bare) {
        called = bundle_operation<Any>(rest);
        if (rest.find("orlan_epm") == rest.npos) called = {called.function(), {}}; // the runtime's
    } else {
        const std::string& what = words.at(1);
        called = rest.empty() ? operation<Any>(subject_, what) : operation<Any>(subject_, rest, what);
        *next++ = number("D");
        if (!what.ends_with("_cr")) *next++ = number("S");
        *next++ = number(name);
        const Record* r = record_named(subject_);
        const std::size_t i = r == nullptr ? 0 : r->index_of(rest);
        if (what.ends_with("flag_get") || what.ends_with("whole_get")) width_ = 1;
        if (what == "get_value" && r != nullptr && i < r->count)
            width_ = r->fields[i].is_enumerated() ? 4 : r->fields[i].foreign->length;
    }
    for (std::size_t i = is_bare ? 1 : 2; i < words.size(); ++i) *next++ = number(words[i]);
    *next = number("st");
    return std::apply(called, all);
}

void Stage::outcome(const std::string& wanted, const std::string& calls, const std::string& found, Word result) {
    std::string all;
    for (const std::string& line : split(calls, "\n"))
        if (line != "nothing") all += in_full(line);
    for (const std::string& item : split(wanted, "; ")) {
        const auto [modes, what] = modes_and_call(item);
        const std::string full = in_full(item);
        const bool is_value = full == item + "\n" && !what.starts_with("trace(");
        all += is_value ? modes + "= " + what + "\n" : full;
    }
    std::string rest;
    for (std::string& line : split(all, "\n")) {
        if (!counts(line)) continue;
        if (!line.starts_with("= ")) {
            rest += line + "\n";
            continue;
        }
        const std::string value = line.substr(2);
        if (value[0] == '$' && !bound_.contains(value) && !values_.contains(value)) {
            values_[value] = result;
            continue;
        }
        const bool is_number = value.find_first_not_of("-x0123456789abcdefABCDEF") == std::string::npos &&
                               (std::isdigit(value[0]) || value[0] == '-');
        const unsigned width = width_ != 0 ? width_ : is_number ? 4 : 8;
        const Word mask = width == 8 ? ~Word{0} : (Word{1} << 8 * width) - 1;
        EXPECT_EQ(result & mask, number(value) & mask)
            << value << " was wanted as result, found " << recorder_.name_of(reinterpret_cast<void*>(result));
    }
    std::string counted = found;
    if (calls.empty()) {
        counted.clear();
        for (const std::string& line : split(found, "\n"))
            if ((line.starts_with("trace(") && line.find("Reallocating") == std::string::npos) ||
                line.starts_with("st =") || line.starts_with("error ="))
                counted += line + "\n";
    }
    match(rest, counted, found);
}

void Stage::match(const std::string& wanted, const std::string& counted, const std::string& calls) {
    const auto fail = [&](const std::string& what) { ADD_FAILURE() << what << "\namong\n" << calls; };
    std::istringstream found(counted);
    std::string call;
    bool may_skip = false;
    for (std::string line : split(wanted, "\n")) {
        if (line == "...") {
            may_skip = true;
            continue;
        }
        const auto binding = line.find(" = $");
        const std::string bound = binding == std::string::npos ? "" : line.substr(binding + 3);
        if (!bound.empty()) line.erase(binding + 3);
        replace_names(line);
        bool is_found = false;
        while (!is_found && std::getline(found, call)) {
            is_found = bound.empty() ? call == line : call.starts_with(line);
            if (!is_found && !may_skip) break;
        }
        may_skip = false;
        if (!is_found) return fail("wanted: " + line + "\nfound: " + call);
        if (!bound.empty()) {
            bound_[bound] = call.substr(line.size());
            values_[bound] = reinterpret_cast<Word>(recorder_.find(bound_[bound]));
        }
    }
    if (!may_skip && std::getline(found, call)) fail("one call too many: " + call);
}

void Stage::die(const Words& wanted, const Words& words, std::size_t nth) {
    static platform_trace_record* const last = static_cast<platform_trace_record*>(
        mmap(nullptr, sizeof *last, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    *last = {};
    const pid_t child = fork();
    if (child == 0) {
        platform_trace_set_sink([](void*, const platform_trace_record* r) { *last = *r; }, nullptr);
        if (std::freopen("/dev/null", "w", stderr) != nullptr) invoke(words);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    EXPECT_EQ(Traces::text_of(*last), "0 " + wanted.at(1) + "\"");
    const std::string name = words[0].substr(0, words[0].find_first_of(":."));
    const std::string subject = types_.contains(name) ? types_[name] : type(name);
    const auto& [first, owner] = *std::prev(first_entries().upper_bound(last->index));
    EXPECT_TRUE(wanted.back() == "anywhere" || owner == subject) << "an entry of " << owner;
    EXPECT_TRUE(wanted.size() == 2 || wanted[2] == "anywhere" || last->index - first == std::stoul(wanted.at(2 + nth)))
        << "died at entry " << last->index - first;
}

std::string Stage::type(const std::string& word) const {
    const auto alias = scene_.words.find(word);
    return alias != scene_.words.end() ? alias->second : word;
}

Word Stage::number(const std::string& word) {
    if (word[0] == '"') {
        return reinterpret_cast<Word>(std::strcpy(data_.emplace_back().last(word.size()), word.c_str() + 1));
    }
    if (word == "null") return 0;
    if (word == "D") return reinterpret_cast<Word>(static_cast<zur_domain*>(D));
    if (word == "S") return D.set_id();
    if (word == "st") return reinterpret_cast<Word>(&D.st);
    if (word[0] == '~') {
        std::string name = word.substr(0, word.find('+'));
        replace_names(name);
        const void* copy = recorder_.find(name);
        return reinterpret_cast<Word>(copy != nullptr ? copy : type_info_of(name)) +
               (word.find('+') == word.npos ? 0 : std::stoul(word.substr(word.find('+') + 1)));
    }
    if (word[0] == '*') return *reinterpret_cast<const Word*>(number(word.substr(1)));
    if (word[0] == '&') return reinterpret_cast<Word>(type_info_of(type(word.substr(1))));
    if (std::isdigit(word[0]) || word[0] == '-') return static_cast<Word>(std::stoll(word, nullptr, 0));
    const auto plus = word.find('+');
    const std::string name = word.substr(0, plus);
    const Word offset = plus == std::string::npos ? 0 : std::stoul(word.substr(plus + 1), nullptr, 0);
    if (const auto value = values_.find(name); value != values_.end()) return value->second + offset;
    void* symbol = dlsym(RTLD_DEFAULT, name.c_str());
    EXPECT_NE(symbol, nullptr) << "nothing is named " << name;
    return reinterpret_cast<Word>(symbol) + offset;
}

bool Stage::counts(std::string& line) const {
    if (line.starts_with("once: ")) {
        static std::set<std::string> told;
        line.erase(0, 6);
        return told.insert(line).second;
    }
    const auto [modes, call] = modes_and_call(line);
    const Mode& mode = D.mode();
    const auto type = scene_.words.find("type");
    const bool is_record = type != scene_.words.end() && record_named(type->second) != nullptr;
    const bool holds[] = {mode.is_tracking(),
                          mode.tracking == ZUR_UNTRACKED_MODE,
                          mode.tracking == PLATFORM_NO_HANDLE,
                          !mode.is_tracking(),
                          mode.containment,
                          mode.has_store,
                          mode.marks(),
                          mode.store_mode != 0,
                          is_record,
                          !is_record};
    for (const char letter : modes.substr(0, modes.find(':')))
        if (!holds[mode_letters.find(letter)]) return false;
    line = call;
    return true;
}

void Stage::replace_names(std::string& line) const {
    for (std::size_t at; (at = line.find('~')) != std::string::npos;) {
        std::size_t end = at + 1;
        while (end < line.size() && (std::isalnum(line[end]) || line[end] == '_')) ++end;
        const std::string name = end == at + 1 ? subject_ : type(line.substr(at + 1, end - at - 1));
        line.replace(at, end - at, (D.mode().store_mode != 0 ? "copy of " : "") + name);
    }
    for (auto it = bound_.rbegin(); it != bound_.rend(); ++it) replace_all(line, it->first, it->second);
}

} // namespace epm::test
