#include "stamp/exports.hpp"
#include "stamp/families.hpp"
#include "stamp/file.hpp"
#include "stamp/names.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

#include <set>
#include <sstream>
#include <stdexcept>

namespace epm::stamp {

namespace {

/// The template that an operation calls, unless its entry names another one.
std::string default_call(const std::string& family, const Declaration& o) {
    const std::string name = family + "::" + o.name;
    if (!name.ends_with("_cr")) return name;
    return name.substr(0, name.size() - 3) + (o.is_chained ? "" : "_chained");
}

void add(TypeExports& to, const Family& family, const char* file, const std::string& prefix,
         const std::string& template_arguments, const Subject& subject) {
    for (Declaration& o : operations_in(file, subject)) {
        if (o.call.empty()) o.call = default_call(family.name, o);
        to.exports.push_back({operation_name(prefix, o.name), "catalogue::" + template_arguments, o, family.name});
    }
}

/// The lists that hold a record, as subjects for the operations of their elements.
std::vector<Subject> lists_of(const Record& r) {
    std::vector<Subject> all;
    for (const Record* owner : catalogue::all_records)
        for (std::size_t i = 0; i < owner->count; ++i) {
            const Field& f = owner->fields[i];
            if (f.kind != Kind::list || f.record != &r) continue;
            all.push_back(subject(r));
            all.back().words.insert({{"field", f.name}, {"owner", owner->name}});
        }
    return all;
}

TypeExports exports_of(const Record& r) {
    TypeExports t{r.name, r.doc, {}};
    for (const Family& family : families) {
        add(t, family, family.name, r.name, r.name, subject(r));
        if (family.element_entries == nullptr) continue;
        for (const Subject& list : lists_of(r)) add(t, family, family.element_entries, r.name, r.name, list);
    }
    for (std::size_t i = 0; i < r.count; ++i)
        for (const Family& family : families)
            for (const char* file : family.field_entries)
                add(t, family, file, operation_name(r.name, r.fields[i].name),
                    std::string(r.name) + ", " + std::to_string(i), subject(r, r.fields[i]));
    return t;
}

TypeExports exports_of(const Enum& e) {
    TypeExports t{e.name, e.doc, {}};
    for (const Family& family : families) add(t, family, family.name, e.name, e.name, subject(e));
    return t;
}

std::string fault_in(const Declaration& o) {
    std::string texts = o.text + o.returns + o.owner + o.cost;
    for (const Parameter& p : o.parameters) texts += p.type + p.doc;
    for (const std::string& s : o.statuses) texts += s;
    if (texts.find('{') != std::string::npos) return "a word in braces has no meaning here";
    if (!o.text.ends_with('.')) return "what it does is not told in sentences";
    if (o.cost.empty()) return "the cost is not told";
    if ((o.result == "void") != o.returns.empty()) return "the documentation of the result does not fit its type";
    if (o.result.ends_with('*') && !has_word(o.owner, "result")) return "the owner of the result is not told";
    return {};
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
        for (const Declaration& o : operations_in("frame", {})) list.push_back({o.name, {}, o, "frame"});
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

void check_exports() {
    std::set<std::string> names;
    for_each_export([&](const Export& e) {
        const std::string fault = names.insert(e.name).second ? fault_in(e.operation) : "two exports have this name";
        if (!fault.empty()) throw std::runtime_error(e.name + ": " + fault);
    });
}

void write_version_script(const std::filesystem::path& folder) {
    std::string names;
    for (const std::string& name : exported_data()) names += "    " + name + ";\n";
    for_each_export([&](const Export& e) { names += "    " + e.name + ";\n"; });
    write_file(folder / "orlan_epm.map", version_node + std::string(" {\nglobal:\n") + names + "local:\n    *;\n};\n");
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
