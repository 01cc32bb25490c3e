// The public header: opaque tags, enumerators, exported data, and for each type its wire table and the documented
// prototype of every export.
#include "stamp/exports.hpp"
#include "stamp/file.hpp"
#include "stamp/names.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

#include <sstream>

namespace epm::stamp {

namespace {

constexpr const char* enumerators_text = R"(/** Values of {type}. */
enum {
{list}};

)";

constexpr const char* operation_text = R"(/**
{text}{arguments} *
{ownership}{statuses}{cost} */
{prototype};

)";

constexpr const char* group_text = R"(/**
 * @defgroup {group} {type}
{doc}{wire_table} * @{
 */

{operations}/** @} */

)";

constexpr const char* record_table = R"( * @ingroup records
 *
{numbers} *
 * | Offset | Field | Kind | Bytes | From variant | State flags |
 * |---|---|---|---|---|---|
 * | 0 | | variant byte | 1 | | |
 * | 1 | | flag byte | 1 | | |
 * | 2 | | jump word: bytes from here to the end | 4 | | |
{rows})";

constexpr const char* record_numbers =
    "Highest variant {top}; used length by variant {used} of {size} bytes, and a state-flag block of {block} bytes. On "
    "the wire, untracked and without an ra block:";

constexpr const char* enum_numbers = "Highest variant {top}. On the wire 5 bytes, without a flag byte or a jump word: "
                                     "the variant byte and the number as `u_int32`.";

constexpr std::size_t line_length = 118;

/// Folds a text into lines; all but the first start with `margin`.
std::string folded(std::string out, const std::string& margin, const std::string& text) {
    std::istringstream words(text);
    std::size_t column = out.size();
    std::string space;
    for (std::string word; words >> word; space = " ") {
        if (!space.empty() && column + 1 + word.size() > line_length) {
            out += "\n" + margin + word;
            column = margin.size() + word.size();
        } else {
            out += space + word;
            column += space.size() + word.size();
        }
    }
    return out + "\n";
}

std::string paragraph(const std::string& text) {
    return folded(" * ", " * ", text);
}

// ---- an operation ----

std::string statuses(const Declaration& o) {
    if (o.statuses.empty()) return " * Statuses: none.\n *\n";
    std::string list = " * Statuses:\n";
    for (const std::string& status : o.statuses) list += folded(" * - ", " *   ", status + ".");
    return list + " *\n";
}

/// "a, b and c"
std::string enumerated(const std::vector<std::string>& names) {
    std::string text = names.front();
    for (std::size_t i = 1; i < names.size(); ++i) text += (i + 1 < names.size() ? ", " : " and ") + names[i];
    return text;
}

std::string ownership(const Declaration& o) {
    std::vector<std::string> borrowed;
    for (const Parameter& p : o.parameters)
        if (p.type.ends_with('*') && p.name != "D" && p.name != "st" && !has_word(o.owner, p.name))
            borrowed.push_back(p.name);
    std::string text = o.owner;
    if (!borrowed.empty()) text = "borrows " + enumerated(borrowed) + (text.empty() ? "" : "; ") + text;
    return text.empty() ? text : paragraph("Ownership: " + text + ".") + " *\n";
}

std::string arguments(const Declaration& o) {
    std::string list;
    std::size_t widest = 0;
    for (const Parameter& p : o.parameters) widest = std::max(widest, p.name.size());
    for (const Parameter& p : o.parameters) {
        const std::string lead = " * @param " + p.name + std::string(widest - p.name.size() + 1, ' ');
        list += folded(lead, " * " + std::string(lead.size() - 3, ' '), p.doc);
    }
    if (!o.returns.empty()) list += folded(" * @return ", " *         ", o.returns);
    return list.empty() ? list : " *\n" + list;
}

std::string prototype(const Export& e) {
    const std::string lead = e.operation.result + " " + e.name + "(";
    std::string line = lead;
    std::size_t column = lead.size();
    const std::vector<Parameter>& all = e.operation.parameters;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::string p = all[i].type + " " + all[i].name + (i + 1 < all.size() ? "," : "");
        if (i > 0 && column + 1 + p.size() > line_length) {
            line += "\n" + std::string(lead.size(), ' ');
            column = lead.size();
        } else if (i > 0) {
            line += " ";
            ++column;
        }
        line += p;
        column += p.size();
    }
    return line + (all.empty() ? "void)" : ")");
}

std::string declaration(const Export& e) {
    const Declaration& o = e.operation;
    return filled(operation_text, {{"text", paragraph(o.text)},
                                   {"arguments", arguments(o)},
                                   {"ownership", ownership(o)},
                                   {"statuses", statuses(o)},
                                   {"cost", paragraph("Cost: " + o.cost + ".")},
                                   {"prototype", prototype(e)}});
}

std::string declarations(const std::vector<Export>& exports) {
    std::string all;
    for (const Export& e : exports) all += declaration(e);
    return all;
}

// ---- a type's wire table ----

/// Where a field starts on the wire: bytes after an anchor, which is the start of the record or the end of the last
/// field of variable length.
struct WireOffset {
    std::string anchor;
    std::size_t bytes = 6; // variant byte, flag byte and jump word

    std::string text() const {
        if (anchor.empty()) return std::to_string(bytes);
        return "end of `" + anchor + "`" + (bytes > 0 ? " + " + std::to_string(bytes) : "");
    }
};

std::string group_name(const std::string& type) {
    return "group_" + type;
}

std::string code(const std::string& text) {
    return "`" + text + "`";
}

std::string kind_and_type(const Field& f) {
    const std::string name = f.type_name();
    const bool is_own = f.is_of_record() || f.is_own_enum();
    const std::string type = is_own ? "@ref " + group_name(name) + " \"" + name + "\"" : code(name);
    const std::string run = std::to_string(f.capacity) + " " + type;
    switch (f.kind) {
    case Kind::text: return "text of " + code(f.companion) + " characters";
    case Kind::characters: return "characters, " + run;
    case Kind::array: return "array of " + code(f.companion) + " " + type;
    case Kind::run: return "run, " + run;
    case Kind::arm: return "arm " + type + ", where the tag is " + std::to_string(f.tag);
    case Kind::list: return "list of " + type;
    default: return (f.is_own_enum() ? "enumeration " : catalogue::kind_name(f.kind) + std::string(" ")) + type;
    }
}

/// Bytes on the wire if every message has the same number, else 0. The runtime decides about an imported object.
std::size_t fixed_length(const Field& f) {
    if (f.is_own_enum()) return 5;
    switch (f.kind) {
    case Kind::value: return f.foreign->length == catalogue::enum_length ? 0 : f.foreign->length;
    case Kind::length: return f.foreign->length;
    case Kind::characters:
    case Kind::run: return std::size_t{f.capacity} * f.foreign->length;
    default: return 0;
    }
}

std::string length_rule(const Field& f) {
    if (const std::size_t bytes = fixed_length(f)) return std::to_string(bytes);
    switch (f.kind) {
    case Kind::text: return code(f.companion);
    case Kind::array:
        return f.is_of_record() ? "those of its records"
                                : std::to_string(f.foreign->length) + " x " + code(f.companion);
    case Kind::list: return "4 and those of its records";
    case Kind::arm: return "a record or nothing";
    case Kind::embedded: return "a record";
    default: return "by its codec";
    }
}

/// What follows the field in tracked mode, and where it is kept.
std::string flag_rule(const Field& f, std::size_t offset) {
    if (!f.is_tracked()) return "none";
    std::string flags = "1";
    if (f.kind == Kind::text) flags = "1 unless empty";
    if (f.kind == Kind::array) flags = "1 and one an element, unless empty";
    if (f.kind == Kind::run) flags = "1 and " + std::to_string(f.capacity);
    return flags + "; block + " + std::to_string(offset);
}

std::string wire_table(const Record& r) {
    const catalogue::Layout layout = catalogue::lay_out(r);
    std::string rows;
    WireOffset offset;
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        rows += filled(" * | {offset} | `{field}` | {kind} | {bytes} | {since} | {flags} |\n",
                       {{"offset", offset.text()},
                        {"field", f.name},
                        {"kind", kind_and_type(f)},
                        {"bytes", length_rule(f)},
                        {"since", std::to_string(f.since)},
                        {"flags", flag_rule(f, layout.flag[i])}});
        if (f.kind == Kind::arm) continue; // a message has at most one arm, so all start at the same offset
        if (const std::size_t bytes = fixed_length(f))
            offset.bytes += bytes;
        else
            offset = {f.name, 0};
    }
    const std::string numbers = filled(record_numbers, {{"top", std::to_string(r.top())},
                                                        {"used", listed(layout.used, r.variants(), ", ")},
                                                        {"size", std::to_string(layout.size(r))},
                                                        {"block", std::to_string(layout.block_length(r))}});
    return filled(record_table, {{"numbers", paragraph(numbers)}, {"rows", rows}});
}

std::string wire_table(const Enum& e) {
    return " * @ingroup enumerations\n *\n" + paragraph(filled(enum_numbers, {{"top", std::to_string(e.top())}}));
}

std::string enumerators(const Enum& e) {
    std::string list;
    for (std::size_t i = 0; i < e.count; ++i) {
        const catalogue::Enumerator& x = e.enumerators[i];
        list += filled("    {name} = {number}{comma} /**< {doc}{since} */\n",
                       {{"name", x.name},
                        {"number", std::to_string(i)},
                        {"comma", i + 1 < e.count ? "," : ""},
                        {"doc", x.doc},
                        {"since", x.since > 0 ? " From variant " + std::to_string(x.since) + "." : ""}});
    }
    return filled(enumerators_text, {{"type", e.name}, {"list", list}});
}

} // namespace

void write_header(const std::filesystem::path& folder) {
    std::map<std::string, std::string> tables;
    std::string all_enumerators;
    for (const Record* r : catalogue::all_records) tables[r->name] = wire_table(*r);
    for (const Enum* e : catalogue::all_enums) {
        tables[e->name] = wire_table(*e);
        all_enumerators += enumerators(*e);
    }
    std::string tags;
    std::string type_infos;
    std::string groups;
    for (const TypeExports& t : all_exports()) {
        const Words words = {{"type", t.type}, {"type_info", type_info_name(t.type)}, {"doc", t.doc}};
        tags += filled("/** {doc} */\nstruct {type};\n", words);
        type_infos += filled("/** Identity of {type}. */\nextern const zur_type_info {type_info};\n", words);
        groups += filled(group_text, {{"group", group_name(t.type)},
                                      {"type", t.type},
                                      {"doc", paragraph(t.doc)},
                                      {"wire_table", tables[t.type]},
                                      {"operations", declarations(t.exports)}});
    }
    write_file(folder / "orlan_epm.h",
               filled(fixed_text("texts/orlan_epm.h.in"), {{"tags", tags},
                                                           {"enumerators", all_enumerators},
                                                           {"type_infos", type_infos},
                                                           {"operations", declarations(global_exports())},
                                                           {"groups", groups}}));
}

} // namespace epm::stamp
