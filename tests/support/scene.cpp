// Reading scenes, and playing them.
#include "support/scene.hpp"

#include "support/imports.hpp"

#include <platform/store.h>

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace epm::test {

namespace {

Words split(const std::string& text, const std::string& between) {
    Words parts;
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + between.size()) {
        end = text.find(between, start);
        if (end != start && start < text.size()) parts.push_back(text.substr(start, end - start));
    }
    return parts;
}

/// The calls on a line, which have semicolons between, one on each line.
std::string lines(const std::string& text) {
    std::string result;
    for (const std::string& call : split(text, "; "))
        result += call.substr(std::min(call.find_first_not_of(' '), call.size())) + "\n";
    return result;
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
}

void add_words(Replacements& words, const Record& r, std::size_t i, std::size_t size) {
    const catalogue::Layout l = catalogue::lay_out(r);
    const Field& f = r.fields[i];
    words["field"] = f.name;
    words["of"] = f.is_own_enum() ? f.enumeration->name : f.is_of_record() ? f.record->name : f.foreign->name;
    words["of_top"] = std::to_string(f.is_own_enum() ? f.enumeration->top() : f.is_of_record() ? f.record->top() : 0);
    words["at"] = std::to_string(l.offset[i]);
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
    const Mode untracked{ZUR_UNTRACKED_MODE}, tracked{ZUR_TRACKED_MODE};
    const std::map<std::string, std::vector<Mode>> lists = {
        {"all", all_modes()},
        {"few", {{}, untracked, tracked, {ZUR_TRACKED_MODE, 1, true, true}, {ZUR_UNTRACKED_MODE, 0, true, true}}},
        {"base", tracking_modes()},
        {"n", {{}}},
        {"t", {tracked}},
        {"s", {{.has_store = true}}},
        {"k", {{.store_mode = 2}}}};
    // Where the runtime declares its operations plain, it cannot let one of them fail.
    if (declares_plain && scene.options.contains("plain")) return {};
    const auto option = scene.options.find("modes");
    return lists.at(option != scene.options.end() ? option->second : scene.options.contains("each") ? "few" : "all");
}

Stage::Stage(const Scene& scene, const Mode& mode) : scene_(scene), D(mode), recorder_(D) {
    heap().quarantine();
    values_["D.hd_mapping_root"] = reinterpret_cast<Word>(&D->hd_mapping_root);
    values_["D.cr_active"] = reinterpret_cast<Word>(&D->cr_active);
}

Stage::~Stage() {
    heap().stop_refusing();
    for (const auto& [type, x, header] : made_) {
        if (!heap().blocks().contains(x)) continue;
        *x = header; // whatever the scene has made of it
        destroy(type, D, x);
    }
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
    if (words.size() > 1 && words[1] == "==") {
        const std::string bytes = bytes_of(words);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(number(words[0])), bytes.size()), bytes) << text;
        return;
    }
    if (words.size() > 1 && std::ranges::find(all_types(), type(words[0]), &TypeNumbers::name) != all_types().end())
        return declare(words);

    heap().refuse_nth(number(options["refuse"]));
    Words how = split(options["fail"], ":");
    how.resize(4);
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
    failing_import = {how[0], number(how[1]), static_cast<std::uint32_t>(number(how[2])), number(how[3])};
    recorder_.take();
    D.st = static_cast<std::uint32_t>(number(options["st"]));
    D->last_error = static_cast<std::uint32_t>(number(options["error"]));
    if (wanted.starts_with("dies ")) {
        die(words_of(wanted), words);
    } else {
        const Word result = invoke(words);
        std::string found = recorder_.take();
        if (D.st != 0) found += "st " + std::to_string(D.st) + "\n";
        if (D->last_error != 0 && D->last_error != D.st) found += "error " + std::to_string(D->last_error) + "\n";
        if (options.contains("cost") && on_cost && D.st == 0) {
            std::ranges::replace(options["cost"], '_', ' ');
            on_cost(operation_ + (options["cost"].empty() ? "" : ", " + options["cost"]), found);
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
    made_.emplace_back(t, x, *x);
    recorder_.name(x, D.mode().is_tracking() ? numbers.tracked : numbers.size, words[1]);
    values_[words[1]] = reinterpret_cast<Word>(x);
}

// What stands behind `name :=` or `name ==`.
std::string Stage::bytes_of(const Words& words) {
    const std::string& kind = words.at(2);
    if (kind == "text") return words.at(3).substr(1);
    if (kind == "copy") return {reinterpret_cast<const char*>(number(words.at(3))), number(words.at(4))};
    if (kind == "zero" || kind == "space") return std::string(number(words.at(3)), kind == "zero" ? '\0' : '\xEE');
    std::string bytes;
    for (std::size_t i = 3; i < words.size(); ++i) {
        const Word value = number(words[i]);
        bytes.append(reinterpret_cast<const char*>(&value), kind == "ptr" ? 8 : std::stoul(kind.substr(1)) / 8);
    }
    return bytes;
}

void Stage::assign(const Words& words) {
    const std::string bytes = bytes_of(words);
    if (!values_.contains(words[0]) && words[0].find_first_of("+.") == std::string::npos) {
        const char* place = data_.emplace_back().last(bytes.size());
        values_[words[0]] = reinterpret_cast<Word>(place);
        recorder_.name(place, bytes.size(), words[0]);
    }
    std::memcpy(reinterpret_cast<void*>(number(words[0])), bytes.data(), bytes.size());
}

Word Stage::invoke(const Words& words) {
    std::array<Word, 20> all{};
    auto next = all.begin();
    Operation<Any> called;
    const auto end = words[0].find_first_of(":.");
    const std::string name = words[0].substr(0, end);
    const std::string rest = end == words[0].npos ? "" : words[0].substr(end + 1);
    const bool is_bare = end != words[0].npos && words[0][end] == ':';
    subject_ = is_bare ? type(name) : types_[name];
    operation_ = is_bare ? rest : words.at(1);
    if (is_bare && !name.empty()) {
        called = operation<Any>(subject_, rest);
    } else if (is_bare) {
        called = bundle_operation<Any>(rest);
        if (rest.find("orlan_epm") == rest.npos) called = {called.function(), {}}; // the runtime's
    } else {
        called = rest.empty() ? operation<Any>(subject_, operation_) : operation<Any>(subject_, rest, operation_);
        *next++ = number("D");
        if (!operation_.ends_with("_cr")) *next++ = number("S");
        *next++ = number(name);
    }
    for (std::size_t i = is_bare ? 1 : 2; i < words.size(); ++i) *next++ = number(words[i]);
    *next = number("st");
    return std::apply(called, all);
}

// Lines that do not count are dropped, short forms are replaced.
std::string Stage::in_full(const std::string& text) const {
    std::string all;
    for (std::string line : split(text, "\n")) {
        if (!counts(line) || line == "nothing") continue;
        const Words words = words_of(line);
        const auto form = short_forms().find(words[0]);
        std::string calls = form == short_forms().end() ? "" : form->second;
        for (std::size_t n = words.size(); n-- > 1;) replace_all(calls, "$" + std::to_string(n), words[n]);
        all += calls.empty() ? line + "\n" : in_full(calls);
    }
    return all;
}

void Stage::outcome(const std::string& wanted, const std::string& calls, const std::string& found, Word result) {
    std::string all = in_full(calls);
    for (std::string item : split(wanted, "; ")) {
        if (!counts(item)) continue;
        all += item.find(' ') != item.npos ? in_full(item) : "= " + item + "\n";
    }
    std::string rest;
    for (const std::string& line : split(all, "\n")) {
        if (!line.starts_with("= ")) {
            rest += line + "\n";
            continue;
        }
        const std::string value = line.substr(2);
        if (value[0] == '$' && !values_.contains(value)) {
            values_[value] = result;
            continue;
        }
        // Of a short result the upper bytes are left over from something else.
        const bool is_short = operation_ == "get_value" || operation_.starts_with("state_flag_");
        const Word mask = is_short ? 0xFF : std::isdigit(value[0]) || value[0] == '-' ? 0xFFFFFFFF : ~Word{0};
        EXPECT_EQ(result & mask, number(value) & mask)
            << value << " was wanted as result, found " << recorder_.name_of(reinterpret_cast<void*>(result));
    }
    Words lines = split(found, "\n");
    std::erase_if(lines, [&](const std::string& line) {
        const bool counts = line.starts_with("trace(") || line.starts_with("st ") || line.starts_with("error ");
        return calls.empty() && (!counts || line.find("Reallocating") != line.npos);
    });
    match(rest, lines, found);
}

void Stage::match(const std::string& wanted, const Words& found, const std::string& all) {
    auto call = found.begin();
    bool may_skip = false;
    for (std::string line : split(wanted, "\n")) {
        if (line == "...") {
            may_skip = true;
            continue;
        }
        const auto binding = line.find(" = $");
        const std::string bound = binding == std::string::npos ? "" : line.substr(binding + 3);
        if (declares_plain && bound.empty()) continue; // it may be done without a call
        if (!bound.empty()) line.erase(binding + 3);
        replace_names(line);
        const auto is_wanted = [&](const std::string& c) { return bound.empty() ? c == line : c.starts_with(line); };
        const auto next = std::find_if(call, found.end(), is_wanted);
        if (declares_plain && next == found.end()) continue; // it may have been made in line
        if (std::exchange(may_skip, false) || declares_plain) call = next;
        ASSERT_TRUE(call != found.end() && is_wanted(*call)) << line << "\nwas wanted among\n" << all;
        if (!bound.empty()) {
            bound_[bound] = call->substr(line.size());
            values_[bound] = reinterpret_cast<Word>(recorder_.find(bound_[bound]));
        }
        ++call;
    }
    EXPECT_TRUE(may_skip || declares_plain || call == found.end()) << "one call too many: " << *call << "\namong\n"
                                                                   << all;
}

void Stage::die(const Words& wanted, const Words& words) {
    for (std::size_t n = 2; n == 2 || n < wanted.size(); ++n, ++failing_import.call) {
        const auto tell = [](void*, const platform_trace_record* r) {
            std::cerr << Traces::text_of(*r) << ", entry " << r->index << "\n";
        };
        const std::string entry = n < wanted.size() ? ", entry " + wanted[n] + "\n" : "";
        EXPECT_EXIT((platform_trace_set_sink(tell, nullptr), invoke(words)), testing::KilledBySignal(SIGABRT),
                    testing::HasSubstr("0 " + wanted.at(1) + "\"" + entry));
    }
}

std::string Stage::type(const std::string& word) const {
    const auto alias = scene_.words.find(word);
    return alias != scene_.words.end() ? alias->second : word;
}

Word Stage::number(const std::string& word) {
    if (word.empty() || word == "null") return 0;
    if (word[0] == '"')
        return reinterpret_cast<Word>(std::strcpy(data_.emplace_back().last(word.size()), word.c_str() + 1));
    if (word == "D") return reinterpret_cast<Word>(static_cast<zur_domain*>(D));
    if (word == "S") return D.set_id();
    if (word == "st") return reinterpret_cast<Word>(&D.st);
    if (word[0] == '~') {
        std::string name = word;
        replace_names(name);
        const void* copy = recorder_.find(name);
        return reinterpret_cast<Word>(copy != nullptr ? copy : type_info_of(name));
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
    const auto end = line.find(": ");
    if (end == line.npos || line.find_first_not_of("tdnucsmkre") != end) return true;
    const Mode& mode = D.mode();
    const auto type = scene_.words.find("type");
    const bool is_record = type != scene_.words.end() && record_named(type->second) != nullptr;
    const std::map<char, bool> holds = {{'t', mode.is_tracking()},
                                        {'d', mode.tracking == ZUR_UNTRACKED_MODE},
                                        {'n', mode.tracking == PLATFORM_NO_HANDLE},
                                        {'u', !mode.is_tracking()},
                                        {'c', mode.containment},
                                        {'s', mode.has_store},
                                        {'m', mode.marks()},
                                        {'k', mode.store_mode != 0},
                                        {'r', is_record},
                                        {'e', !is_record}};
    const std::string letters = line.substr(0, end);
    line.erase(0, end + 2);
    return std::ranges::all_of(letters, [&](char letter) { return holds.at(letter); });
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
