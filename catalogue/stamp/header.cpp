// The public header: opaque tags, enumerators, exported data, and a documented prototype of every export.
#include "catalogue/stamp/names.hpp"
#include "catalogue/stamp/output.hpp"

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
    out << "/*\n"
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

void group(std::ostream& out, const TypeExports& t) {
    out << "/**\n * @defgroup " << t.type << " " << t.type << "\n" << paragraph(t.doc) << " * @{\n */\n\n";
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
    for (const TypeExports& t : all_exports()) group(out, t);
    end(out);
    write_file(folder / "orlan_epm.h", out.str());
}

} // namespace epm::stamp
