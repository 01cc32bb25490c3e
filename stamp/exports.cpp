#include "stamp/exports.hpp"
#include "stamp/families.hpp"
#include "stamp/file.hpp"
#include "stamp/names.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

#include <set>
#include <sstream>

namespace epm::stamp {

namespace {

Export exported(std::string name, std::string template_arguments, const char* family, const Operation& o,
                const Words& words) {
    Export e{std::move(name), std::move(template_arguments), filled(o, words), family};
    if (e.operation.call.empty()) {
        const bool is_chained = o.name.ends_with("_cr");
        const std::string stem = o.name.substr(0, o.name.size() - (is_chained ? 3 : 0));
        e.operation.call = std::string(family) + "::" + stem + (is_chained ? "_chained" : "");
    }
    return e;
}

template <class Type>
void add(TypeExports& to, const Type& t, const Operations& operations, const char* family) {
    for (const Operation& o : operations)
        to.exports.push_back(
            exported(operation_name(t.name, o.name), std::string("catalogue::") + t.name, family, o, words_of(t)));
}

TypeExports exports_of(const Record& r) {
    TypeExports t{r.name, r.doc, {}};
    for (const Family& family : families()) add(t, r, family.of_record(r), family.name);
    for (std::size_t i = 0; i < r.count; ++i) {
        const Words words = words_of(r, r.fields[i]);
        const std::string arguments = std::string("catalogue::") + r.name + ", " + std::to_string(i);
        for (const Family& family : families())
            for (const Operation& o : family.of_field(r, r.fields[i]))
                t.exports.push_back(
                    exported(operation_name(r.name, r.fields[i].name, o.name), arguments, family.name, o, words));
    }
    return t;
}

TypeExports exports_of(const Enum& e) {
    TypeExports t{e.name, e.doc, {}};
    for (const Family& family : families()) add(t, e, family.of_enum(e), family.name);
    return t;
}

bool is_one_sentence(const std::string& text) {
    return text.ends_with('.') && text.find(". ") == std::string::npos;
}

std::string fault_in(const Operation& o) {
    if (!is_one_sentence(o.brief)) return "the brief is not one sentence";
    if (o.cost.empty()) return "the cost is not documented";
    if ((o.result == "void") != o.returns.empty()) return "the documentation of the result does not fit its type";
    if (o.result.ends_with('*') && !has_word(o.ownership, "result")) return "the ownership of the result is not told";
    std::string texts = o.brief + o.returns + o.ownership + o.cost;
    for (const Parameter& p : o.parameters) texts += p.type + p.doc;
    for (const Sentence& s : o.details) texts += s.text;
    for (const Status& s : o.statuses) texts += s.when;
    return texts.find('{') == std::string::npos ? "" : "a word in braces has no meaning here";
}

} // namespace

const std::vector<TypeExports>& all_exports() {
    static const std::vector<TypeExports> all = [] {
        std::vector<TypeExports> list;
        for (const Record* r : catalogue::all_records) list.push_back(exports_of(*r));
        for (const Enum* e : catalogue::all_enums) list.push_back(exports_of(*e));
        return list;
    }();
    return all;
}

const std::vector<Export>& global_exports() {
    static const std::vector<Export> all = [] {
        std::vector<Export> list;
        for (const Operation& o : frame_operations()) list.push_back(exported(o.name, {}, "frame", o, {}));
        return list;
    }();
    return all;
}

std::vector<std::string> exported_data() {
    std::vector<std::string> names;
    for (const TypeExports& t : all_exports()) names.push_back(type_info_name(t.type));
    for (const char* name : {"orlan_epm_bundle_registered_handler", "g_zur_orlan_epm_trace_module_id",
                             "g_zur_orlan_epm_stub_trace_module_id"})
        names.push_back(name);
    return names;
}

std::string fault_in_exports() {
    std::set<std::string> names;
    std::string first;
    for_each_export([&](const Export& e) {
        std::string fault = names.insert(e.name).second ? fault_in(e.operation) : "two exports have this name";
        if (first.empty() && !fault.empty()) first = e.name + ": " + fault;
    });
    return first;
}

void write_version_script(const std::filesystem::path& folder) {
    std::string names;
    for (const std::string& name : exported_data()) names += "    " + name + ";\n";
    for_each_export([&](const Export& e) { names += "    " + e.name + ";\n"; });
    write_file(folder / "orlan_epm.map", "ORLAN_EPM_1 {\nglobal:\n" + names + "local:\n    *;\n};\n");
}

void write_export_list(const std::filesystem::path& folder) {
    std::ostringstream out;
    out << "# What the library exports, and the numbers of each type that its users and stores depend on.\n";
    for (const Record* r : catalogue::all_records) {
        const catalogue::Layout l = catalogue::lay_out(*r);
        out << "type " << r->name << " record variants " << r->variants() << " used "
            << listed(l.used, r->variants(), "/") << " size " << l.size(*r) << " tracked "
            << l.size(*r) + l.block_length(*r) << "\n";
    }
    for (const Enum* e : catalogue::all_enums)
        out << "type " << e->name << " enum variants " << e->top() + 1 << " enumerators " << e->count << " size "
            << catalogue::enum_length << "\n";
    for (const std::string& name : exported_data()) out << "data " << name << "\n";
    for_each_export([&](const Export& e) { out << "function " << e.name << "\n"; });
    write_file(folder / "exports.txt", out.str());
}

} // namespace epm::stamp
