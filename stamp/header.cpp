// The public header: opaque tags, enumerators, exported data, and a documented prototype of every export.
#include "stamp/names.hpp"
#include "stamp/output.hpp"

#include <sstream>

namespace epm::stamp {

namespace {

constexpr std::size_t line_length = 118;

/// Text folded into the lines of a comment, each behind `margin`.
std::string folded(const std::string& text, const std::string& margin, const std::string& first_margin) {
    std::istringstream words(text);
    std::string out = first_margin;
    std::size_t column = first_margin.size();
    std::string word;
    bool is_first = true;
    while (words >> word) {
        if (!is_first && column + 1 + word.size() > line_length) {
            out += "\n" + margin;
            column = margin.size();
        } else if (!is_first) {
            out += " ";
            ++column;
        }
        out += word;
        column += word.size();
        is_first = false;
    }
    return out + "\n";
}

std::string paragraph(const std::string& text) {
    return folded(text, " * ", " * ");
}

std::string words_for(const Parameter& p) {
    if (!p.doc.empty()) return p.doc;
    if (p.name == "D") return "the Domain";
    if (p.name == "S") return "store set of the Instance, handed on unchanged; ZUR_NO_SET: none";
    return "status word: nothing happens unless it is 0 at entry";
}

void document(std::ostream& out, const Operation& o) {
    out << "/**\n" << paragraph(o.brief);
    if (!o.parameters.empty()) out << " *\n";
    std::size_t widest = 0;
    for (const Parameter& p : o.parameters) widest = std::max(widest, p.name.size());
    for (const Parameter& p : o.parameters) {
        const std::string lead = " * @param " + p.name + std::string(widest - p.name.size() + 1, ' ');
        out << folded(words_for(p), " * " + std::string(lead.size() - 3, ' '), lead);
    }
    if (!o.returns.empty()) out << folded(o.returns, " *         ", " * @return ");
    out << " *\n" << paragraph((o.leaves.empty() ? "" : o.leaves + " ") + o.cost) << " */\n";
}

void declare(std::ostream& out, const Export& e) {
    document(out, e.operation);
    std::string line = e.operation.result + " " + e.name + "(";
    const std::string margin(line.size(), ' ');
    std::size_t column = line.size();
    const std::vector<Parameter>& all = e.operation.parameters;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::string p = all[i].type + " " + all[i].name + (i + 1 < all.size() ? "," : "");
        if (i > 0 && column + 1 + p.size() > line_length) {
            line += "\n" + margin;
            column = margin.size();
        } else if (i > 0) {
            line += " ";
            ++column;
        }
        line += p;
        column += p.size();
    }
    out << line << (all.empty() ? "void" : "") << ");\n\n";
}

void begin(std::ostream& out) {
    out << "/**\n"
           " * @file orlan_epm.h\n"
           " * orlan_epm: typed records and messages of the client-policy control plane. Stamped from the catalogue.\n"
           " *\n"
           " * Every operation is a plain call that runs to its end in the caller's thread. It takes the Domain first, "
           "as a\n"
           " * rule the store set second, and the address of the status word last. An operation that finds the status "
           "word\n"
           " * raised does nothing and returns 0 or null, so that a row of calls is tested once, at its end. The `_cr` "
           "forms\n"
           " * take neither: they use the Domain's cr_set_id and last_error.\n"
           " *\n"
           " * Three words tell ownership. A call *borrows* what it gives back at return; it *takes* what is no longer "
           "yours\n"
           " * afterwards; it *gives* what you must destroy, with the operation that is named. Text is not terminated "
           "unless\n"
           " * that is said; lengths and sizes are in bytes.\n"
           " *\n"
           " * A field that a record holds only from some variant on is refused with 43 by every accessor while the\n"
           " * Instance's variant is lower. A fatal fault of the type system ends the process with a trace and "
           "abort().\n"
           " */\n"
           "#ifndef ORLAN_EPM_H\n#define ORLAN_EPM_H\n\n#include <zur/foreign.h>\n\n"
           "#ifdef __cplusplus\nextern \"C\" {\n#endif\n\n"
           "#if defined(__GNUC__)\n#pragma GCC visibility push(default)\n"
           "/* One record's name is also a function's name; the struct keyword keeps them apart. */\n"
           "#pragma GCC diagnostic push\n#pragma GCC diagnostic ignored \"-Wshadow\"\n#endif\n\n"
           "/** Prints a format string and its arguments, as printf does. */\n"
           "typedef int (*zur_print_fn)(const char* format, ...);\n\n";
}

void end(std::ostream& out) {
    out << "#if defined(__GNUC__)\n#pragma GCC diagnostic pop\n#pragma GCC visibility pop\n#endif\n\n#ifdef "
           "__cplusplus\n}\n#endif\n\n#endif\n";
}

void tags(std::ostream& out) {
    for (const Record* r : catalogue::all_records) out << "/** " << r->doc << " */\nstruct " << r->name << ";\n";
    for (const Enum* e : catalogue::all_enums) out << "/** " << e->doc << " */\nstruct " << e->name << ";\n";
    out << "\n";
    for (const Enum* e : catalogue::all_enums) {
        out << "/** Values of " << e->name << ". */\nenum {\n";
        for (std::size_t i = 0; i < e->count; ++i) {
            const catalogue::Enumerator& x = e->enumerators[i];
            out << "    " << x.name << " = " << i << (i + 1 < e->count ? "," : "") << " /**< " << x.doc
                << (x.since > 0 ? " From variant " + std::to_string(x.since) + "." : "") << " */\n";
        }
        out << "};\n\n";
    }
}

void data(std::ostream& out) {
    for (const TypeExports& t : all_exports())
        out << "/** Identity of " << t.type << ". */\nextern const zur_type_info " << type_info_name(t.type) << ";\n";
    out << "\n/** The handler of orlan_epm_bundle_handler_register(); null when none is registered. */\n"
           "extern void* orlan_epm_bundle_registered_handler;\n"
           "/** The Bundle's id in trace calls; 0 until the trace facility has given one. */\n"
           "extern uint16_t g_zur_orlan_epm_trace_module_id;\n"
           "/** Stands beside it; neither read nor written. */\n"
           "extern uint16_t g_zur_orlan_epm_stub_trace_module_id;\n\n";
}

// ---- a type's group: what it is, its wire table, its operations ----

/// Where a field starts on the wire: bytes behind an anchor, which is the record's start or the end of the last field
/// whose length varies.
struct WirePlace {
    std::string anchor;
    std::size_t offset = 6; // behind variant byte, flag byte and jump word

    std::string text() const {
        if (anchor.empty()) return std::to_string(offset);
        return "end of `" + anchor + "`" + (offset > 0 ? " + " + std::to_string(offset) : "");
    }
    void pass(std::size_t bytes) { offset += bytes; }
    void pass_varying(const char* field) { *this = {field, 0}; }
};

/// Groups have names of their own, since a type's name can also be a function's.
std::string group_name(const std::string& type) {
    return "group_" + type;
}

std::string reference(const std::string& type) {
    return "@ref " + group_name(type) + " \"" + type + "\"";
}

std::string code(const std::string& text) {
    return "`" + text + "`";
}

std::string type_name(const Field& f) {
    if (f.is_own_enum()) return f.enumeration->name;
    return f.is_of_record() ? f.record->name : f.foreign->name;
}

std::string kind_name(const Field& f) {
    const std::string type = f.is_of_record() || f.is_own_enum() ? reference(type_name(f)) : code(type_name(f));
    const std::string run = std::to_string(f.capacity) + " " + type;
    switch (f.kind) {
    case Kind::value: return f.is_own_enum() ? "enumeration " + type : "value " + type;
    case Kind::length: return "length " + type;
    case Kind::object: return "object " + type;
    case Kind::text: return "text of " + code(f.companion) + " characters";
    case Kind::characters: return "characters, " + run;
    case Kind::array: return "array of " + code(f.companion) + " " + type;
    case Kind::run: return "run, " + run;
    case Kind::embedded: return "embedded " + type;
    case Kind::arm: return "arm " + type + ", where the tag is " + std::to_string(f.tag);
    case Kind::list: return "list of " + type;
    }
    return {};
}

/// Bytes on the wire where they are the same in every message, else 0. An imported object's codec is the runtime's.
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

/// What stands behind the field in tracked mode, and where it is kept.
std::string flag_rule(const Field& f, std::size_t place) {
    if (!f.is_tracked()) return "none";
    std::string flags = "1";
    if (f.kind == Kind::text) flags = "1 unless empty";
    if (f.kind == Kind::array) flags = "1 and one an element, unless empty";
    if (f.kind == Kind::run) flags = "1 and " + std::to_string(f.capacity);
    return flags + "; block + " + std::to_string(place);
}

std::string list_of(const std::array<std::uint16_t, catalogue::most_variants>& numbers, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += (i ? ", " : "") + std::to_string(numbers[i]);
    return text;
}

void wire_table(std::ostream& out, const Record& r) {
    const catalogue::Layout layout = catalogue::lay_out(r);
    out << " * @ingroup records\n *\n"
        << paragraph("Highest variant " + std::to_string(r.top()) + "; used length by variant " +
                     list_of(layout.used, r.variants()) + " of " + std::to_string(layout.size(r)) +
                     " bytes, and a state-flag block of " + std::to_string(layout.block_length(r)) +
                     " bytes. On the wire, untracked and without an ra block:")
        << " *\n"
           " * | Offset | Field | Kind | Bytes | From variant | State flags |\n"
           " * |---|---|---|---|---|---|\n"
           " * | 0 | | variant byte | 1 | | |\n"
           " * | 1 | | flag byte | 1 | | |\n"
           " * | 2 | | jump word: bytes from here to the end | 4 | | |\n";
    WirePlace place;
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        out << " * | " << place.text() << " | " << code(f.name) << " | " << kind_name(f) << " | " << length_rule(f)
            << " | " << int{f.since} << " | " << flag_rule(f, layout.flag[i]) << " |\n";
        if (f.kind == Kind::arm) continue; // one arm at most is there, so all start at the same place
        if (const std::size_t bytes = fixed_length(f))
            place.pass(bytes);
        else
            place.pass_varying(f.name);
    }
}

void wire_table(std::ostream& out, const Enum& e) {
    out << " * @ingroup enumerations\n *\n"
        << paragraph("Highest variant " + std::to_string(e.top()) +
                     ". On the wire 5 bytes, without a flag byte or a "
                     "jump word: the variant byte and the number as `u_int32`.");
}

void group(std::ostream& out, const TypeExports& t) {
    out << "/**\n * @defgroup " << group_name(t.type) << " " << t.type << "\n" << paragraph(t.doc);
    for (const Record* r : catalogue::all_records)
        if (std::string_view(r->name) == t.type) wire_table(out, *r);
    for (const Enum* e : catalogue::all_enums)
        if (std::string_view(e->name) == t.type) wire_table(out, *e);
    out << " * @{\n */\n\n";
    for (const Export& e : t.exports) declare(out, e);
    out << "/** @} */\n\n";
}

} // namespace

void write_header(const std::filesystem::path& folder) {
    std::ostringstream out;
    begin(out);
    tags(out);
    data(out);
    for (const Export& e : global_exports()) declare(out, e);
    out << "/** @defgroup records Records */\n/** @defgroup enumerations Enumerations */\n\n";
    for (const TypeExports& t : all_exports()) group(out, t);
    end(out);
    write_file(folder / "orlan_epm.h", out.str());
}

} // namespace epm::stamp
