// The findings as text, as JSON, and for a test report.
#include "tool/compat/compat.hpp"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

namespace epm::tool::compat {

namespace {

constexpr std::size_t most_details = 4; // in text

std::string place(const Finding& f) {
    return f.type.empty() ? "library" : f.field.empty() ? f.type : f.type + "." + f.field;
}

const char* severity(const Finding& f) {
    return f.is_accepted ? "accepted" : f.rule->breaks ? "breaks" : "note";
}

std::string counted(std::size_t n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

struct Counts {
    std::size_t breaks = 0, accepted = 0, notes = 0;

    Counts(const Findings& findings, Level level) {
        for (const Finding& f : findings)
            if (f.rule->level() == level) ++(f.counts() ? breaks : f.is_accepted ? accepted : notes);
    }
    bool is_empty() const { return breaks + accepted + notes == 0; }
    const char* verdict() const { return breaks != 0 ? "breaks" : "fine"; }
};

std::string in_full(const Finding& f) {
    std::string text = f.sentence;
    for (const std::string& detail : f.details) text += "\n  " + escaped(detail);
    return text;
}

} // namespace

void write_text(const Comparison& c, std::ostream& out) {
    out << "old: " << escaped(c.old.version) << ", " << escaped(c.old_name) << "\nnew: " << escaped(c.now.version)
        << ", " << escaped(c.new_name) << '\n';
    for (std::size_t n = 0; n < level_count; ++n) {
        const auto level = static_cast<Level>(n);
        const Counts counts(c.findings, level);
        std::string summary;
        for (const auto& [number, word] : {std::pair(counts.breaks, "finding"), std::pair(counts.notes, "note")})
            if (number != 0) summary += ", " + counted(number, word);
        if (counts.accepted != 0) summary += ", " + std::to_string(counts.accepted) + " accepted";
        const bool has_more = n == 0 || !Counts(c.findings, static_cast<Level>(n - 1)).is_empty() || !counts.is_empty();
        out << (has_more ? "\n" : "") << level_names[n] << ": " << counts.verdict() << summary << '\n';
        for (const Finding& f : c.findings) {
            if (f.rule->level() != level) continue;
            out << "  " << severity(f) << "  " << f.rule->id << "  " << place(f) << "\n      " << f.sentence << '\n';
            for (std::size_t i = 0; i < std::min(f.details.size(), most_details); ++i)
                out << "        " << escaped(f.details[i]) << '\n';
            if (f.details.size() > most_details) out << "        and " << f.details.size() - most_details << " more\n";
        }
    }
}

void write_json(const Comparison& c, std::ostream& out) {
    using Json = nlohmann::ordered_json;
    const auto side = [](const std::string& name, const Description& d) {
        return Json{{"file", escaped(name)}, {"version", d.version}, {"soname", d.soname}};
    };
    Json json{{"old", side(c.old_name, c.old)}, {"new", side(c.new_name, c.now)}};
    for (std::size_t n = 0; n < level_count; ++n)
        json["verdicts"][level_names[n]] = Counts(c.findings, static_cast<Level>(n)).verdict();
    json["findings"] = Json::array();
    for (const Finding& f : c.findings)
        json["findings"].push_back({{"level", level_names[static_cast<std::size_t>(f.rule->level())]},
                                    {"severity", f.rule->breaks ? "breaks" : "note"},
                                    {"accepted", f.is_accepted},
                                    {"rule", f.rule->id},
                                    {"type", f.type.empty() ? Json() : Json(f.type)},
                                    {"field", f.field.empty() ? Json() : Json(f.field)},
                                    {"sentence", f.sentence},
                                    {"details", f.details}});
    json["unused"] = Json::array();
    for (const Unused& u : c.unused) json["unused"].push_back({{"line", u.line}, {"text", escaped(u.text)}});
    out << json.dump(2) << '\n';
}

std::string junit(const Comparison& c) {
    std::set<std::string> types{""};
    for (const Description* d : {&c.old, &c.now}) {
        for (const Type& type : d->types) types.insert(type.name);
        for (const Imported& type : d->imported) types.insert(type.name);
    }
    pugi::xml_document document;
    pugi::xml_node root = document.append_child("testsuites");
    root.append_attribute("name") = "orlan-epm compat";
    for (std::size_t n = 0; n < level_count; ++n) {
        std::map<std::string, std::vector<const Finding*>> by_type;
        for (const Finding& f : c.findings)
            if (f.rule->level() == static_cast<Level>(n)) by_type[f.type].push_back(&f);
        const auto fails = [&](const std::string& type) {
            return std::ranges::any_of(by_type[type], [](const Finding* f) { return f->counts(); });
        };
        pugi::xml_node suite = root.append_child("testsuite");
        suite.append_attribute("name") = level_names[n];
        suite.append_attribute("tests") = types.size();
        suite.append_attribute("failures") = static_cast<std::size_t>(std::ranges::count_if(types, fails));
        for (const std::string& type : types) {
            pugi::xml_node test = suite.append_child("testcase");
            test.append_attribute("classname") = (std::string("compat.") + level_names[n]).c_str();
            test.append_attribute("name") = type.empty() ? "library" : type.c_str();
            // A test case has one failure, whatever the number of its findings.
            std::string message, failure, notes;
            for (const Finding* f : by_type[type]) {
                std::string line = std::string(f->rule->id) + " " + place(*f);
                (f->counts() ? failure : notes) += line + ": " + in_full(*f) + "\n";
                if (f->counts()) message += (message.empty() ? "" : ", ") + line;
            }
            if (!failure.empty()) {
                pugi::xml_node node = test.append_child("failure");
                node.append_attribute("message") = message.c_str();
                node.append_child(pugi::node_pcdata).set_value(failure.c_str());
            }
            if (!notes.empty())
                test.append_child("system-out").append_child(pugi::node_pcdata).set_value(notes.c_str());
        }
    }
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
}

} // namespace epm::tool::compat
