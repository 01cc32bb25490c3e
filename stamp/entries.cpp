#include "stamp/entries.hpp"
#include "access/bulk_fields.hpp"
#include "stamp/file.hpp"

#include <zur/types.h>

#include <sstream>
#include <stdexcept>

namespace epm::stamp {

namespace {

/// A line of an entry. Its tag is empty for what the operation does.
struct Line {
    std::string tag;
    std::string text;
    std::string condition;
};

struct Entry {
    Line head;
    std::vector<Line> lines;
};

Line split(std::string text) {
    Line line;
    if (const std::size_t open = text.rfind(" ["); text.ends_with(']') && open != std::string::npos) {
        line.condition = text.substr(open + 2, text.size() - open - 3);
        text.erase(open);
    }
    if (text.starts_with('@')) {
        const std::size_t end = text.find(' ');
        line.tag = text.substr(1, end - 1);
        text.erase(0, end + 1);
    }
    line.text = text;
    return line;
}

std::vector<Entry> parsed(const std::string& text) {
    std::vector<std::vector<std::string>> blocks;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::size_t margin = line.find_first_not_of(' ');
        if (margin == std::string::npos || line[0] == '#') continue;
        if (blocks.empty() && margin != 0) throw std::runtime_error("a line in front of the first entry: " + line);
        line.erase(0, margin);
        if (margin == 0)
            blocks.push_back({line});
        else if (margin == 4)
            blocks.back().push_back(line);
        else
            blocks.back().back() += " " + line;
    }
    std::vector<Entry> entries;
    for (const std::vector<std::string>& block : blocks) {
        entries.push_back({split(block.front()), {}});
        for (std::size_t i = 1; i < block.size(); ++i) entries.back().lines.push_back(split(block[i]));
    }
    return entries;
}

// ---- conditions ----

/// Whether the record, or a record inside it or owned by it, has a field of one of the kinds.
bool contains(const Record& r, std::initializer_list<Kind> kinds) {
    return r.any([&](const Field& f) {
        return std::ranges::count(kinds, f.kind) != 0 || (f.is_of_record() && contains(*f.record, kinds));
    });
}

/// What a condition may say of a record, or with "any" also of the records inside it. It is never true for an
/// enumeration.
const std::map<std::string, bool (*)(const Record&), std::less<>> record_conditions = {
    {"record", [](const Record&) { return true; }},
    {"variants", [](const Record& r) { return r.variants() > 1; }},
    {"union", [](const Record& r) { return r.is_union(); }},
    {"ends-in-text", [](const Record& r) { return r.fields[r.count - 1].kind == Kind::text; }},
    {"embedding", [](const Record& r) { return r.any([](const Field& f) { return f.kind == Kind::embedded; }); }},
    {"any-arm", [](const Record& r) { return contains(r, {Kind::arm}); }},
    {"any-array", [](const Record& r) { return contains(r, {Kind::array}); }},
    {"any-object", [](const Record& r) { return contains(r, {Kind::object}); }},
    {"any-owning",
     [](const Record& r) {
         return contains(r, {Kind::text, Kind::array, Kind::arm, Kind::list});
     }},
    {"any-setter",
     [](const Record& r) {
         return contains(r, {Kind::text, Kind::array, Kind::list});
     }},
};

/// What a condition may say of a field besides its kind.
const std::map<std::string, bool (*)(const Field&), std::less<>> field_conditions = {
    {"foreign", [](const Field& f) { return f.of == catalogue::Of::foreign; }},
    {"own-enum", [](const Field& f) { return f.is_own_enum(); }},
};

bool is_true(std::string_view word, const Subject& s) {
    if (word == "enum") return s.enumeration != nullptr;
    if (const auto known = record_conditions.find(word); known != record_conditions.end())
        return s.record != nullptr && known->second(*s.record);
    if (const auto known = field_conditions.find(word); known != field_conditions.end())
        return s.field != nullptr && known->second(*s.field);
    for (std::uint8_t kind = 0; kind <= static_cast<std::uint8_t>(Kind::list); ++kind)
        if (word == catalogue::kind_name(Kind{kind})) return s.field != nullptr && s.field->kind == Kind{kind};
    throw std::runtime_error("unknown condition " + std::string(word));
}

/// A condition is a list of alternatives; in each, all words must hold.
bool applies(const std::string& condition, const Subject& s) {
    bool is_met = true;
    std::istringstream words(condition);
    for (std::string word; words >> word;) {
        if (word == "|") {
            if (is_met) return true;
            is_met = true;
            continue;
        }
        const bool is_negated = word.starts_with('!');
        if (is_negated) word.erase(0, 1);
        is_met = is_met && is_true(word, s) != is_negated;
    }
    return is_met;
}

// ---- operations ----

const std::map<std::string, Parameter, std::less<>> usual_parameters = {
    {"D", {"zur_domain*", "D", "the Domain"}},
    {"S", {"uint32_t", "S", "store set of the Instance, passed on as it is; ZUR_NO_SET: none"}},
    {"x", {"struct {type}*", "x", "the record"}},
    {"const x", {"const struct {type}*", "x", "the record; not changed"}},
    {"st", {"uint32_t*", "st", "status word; nothing happens unless it is 0 on entry"}},
};

void add_parameter(Declaration& o, const std::string& declaration, const std::string& doc, const Subject& s) {
    Parameter p;
    if (const auto usual = usual_parameters.find(declaration); usual != usual_parameters.end()) {
        p = usual->second;
        p.type = filled(p.type, s.words);
    } else {
        const std::size_t end = declaration.rfind(' ');
        if (end == std::string::npos) throw std::runtime_error("parameter without a type: " + declaration);
        p = {declaration.substr(0, end), declaration.substr(end + 1), {}};
    }
    if (!doc.empty()) p.doc = doc;
    o.parameters.push_back(p);
}

void add_parameters(Declaration& o, const std::string& text, const Subject& s) {
    if (const std::size_t colon = text.find(": "); colon != std::string::npos)
        return add_parameter(o, text.substr(0, colon), text.substr(colon + 2), s);
    std::istringstream names(text);
    for (std::string name; std::getline(names >> std::ws, name, ',');) add_parameter(o, name, {}, s);
}

/// One parameter for each field that is read or written at once.
void add_fields(Declaration& o, bool is_read, const Record& r) {
    const std::size_t first = o.parameters.size();
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        if (is_read && access::is_read_at_once(f))
            o.parameters.push_back(
                {value_type(f) + "*", f.name, std::string("receives the value; not null. ") + f.doc});
        if (!is_read && access::is_written_at_once(r, f)) o.parameters.push_back({value_type(f), f.name, f.doc});
    }
    o.pack = Pack{is_read ? "void*" : "epm::access::Number", first, o.parameters.size() - first};
}

std::string status(const std::string& text) {
    constexpr std::pair<const char*, zur_error> numbers[] = {
        {"ZUR_ABSENT", ZUR_ABSENT},
        {"ZUR_NO_MEMORY", ZUR_NO_MEMORY},
        {"ZUR_BAD_ARGUMENT", ZUR_BAD_ARGUMENT},
        {"ZUR_BUFFER_TOO_SMALL", ZUR_BUFFER_TOO_SMALL},
        {"ZUR_NOT_IN_VARIANT", ZUR_NOT_IN_VARIANT},
        {"ZUR_WRONG_LENGTH", ZUR_WRONG_LENGTH},
    };
    const std::size_t colon = text.find(": ");
    if (colon == std::string::npos) throw std::runtime_error("status without a cause: " + text);
    const std::string name = text.substr(0, colon);
    if (name == "any") return "Any status that " + text.substr(colon + 2);
    for (const auto& [known, number] : numbers)
        if (name == known) return name + " (" + std::to_string(number) + ")" + text.substr(colon);
    throw std::runtime_error("unknown status " + name);
}

/// The form for chains of calls: no store set, no status word, and last_error as the result.
Declaration chained(Declaration o, const std::string& brief) {
    o.name += "_cr";
    o.result = "uint32_t";
    o.parameters.front().doc = "the Domain; its cr_set_id names the store set, its last_error is the status word";
    o.parameters.erase(o.parameters.begin() + 1);
    o.parameters.pop_back();
    o.is_chained = true;
    o.text = brief + o.text.substr(o.text.find('.') + 1);
    o.returns = "last_error: 0 when all is well";
    return o;
}

std::vector<Declaration> operations_of(const Entry& e, const Subject& s) {
    const std::map<std::string, std::string Declaration::*, std::less<>> texts = {
        {"", &Declaration::text},     {"call", &Declaration::call},   {"with", &Declaration::template_arguments},
        {"cost", &Declaration::cost}, {"owner", &Declaration::owner}, {"return", &Declaration::returns},
    };
    Declaration o;
    const std::string head = filled(e.head.text, s.words);
    const std::size_t arrow = head.find(" -> ");
    o.name = head.substr(0, arrow);
    if (arrow != std::string::npos) o.result = head.substr(arrow + 4);
    std::string brief_of_chained;
    for (const Line& line : e.lines) {
        if (!applies(line.condition, s)) continue;
        const std::string text = filled(line.text, s.words);
        if (const auto plain = texts.find(line.tag); plain != texts.end())
            o.*plain->second += (line.tag.empty() && !o.text.empty() ? " " : "") + text;
        else if (line.tag == "param")
            add_parameters(o, text, s);
        else if (line.tag == "fields")
            add_fields(o, text == "read", *s.record);
        else if (line.tag == "leaves")
            o.statuses.push_back(status(text));
        else if (line.tag == "chained")
            brief_of_chained = text;
        else
            throw std::runtime_error("unknown tag " + line.tag);
    }
    return brief_of_chained.empty() ? std::vector{o} : std::vector{o, chained(o, brief_of_chained)};
}

} // namespace

std::vector<Declaration> operations_in(const std::string& file, const Subject& subject) {
    static std::map<std::string, std::vector<Entry>> files;
    const auto [known, is_new] = files.try_emplace(file);
    if (is_new) known->second = parsed(fixed_text("operations/" + file + ".txt"));
    std::vector<Declaration> all;
    for (const Entry& e : known->second) try {
            if (!applies(e.head.condition, subject)) continue;
            for (Declaration& o : operations_of(e, subject)) all.push_back(std::move(o));
        } catch (const std::exception& fault) {
            throw std::runtime_error(file + ".txt, " + e.head.text + ": " + fault.what());
        }
    return all;
}

} // namespace epm::stamp
