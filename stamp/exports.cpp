// The list of exports, the extern "C" definitions that pass each on to its template, and the version script.
#include "stamp/names.hpp"
#include "stamp/output.hpp"

#include <fstream>
#include <set>
#include <sstream>

namespace epm::stamp {

namespace {

std::string in_catalogue(const char* name) {
    return std::string("catalogue::") + name;
}

template <class Type>
void add(std::vector<Export>& to, const Type& t, const std::vector<Operation>& operations, const char* family) {
    for (const Operation& o : operations)
        to.push_back({operation_name(t.name, o.name), in_catalogue(t.name), o, family});
}

void add_field(std::vector<Export>& to, const Record& r, std::size_t i, const Family& family) {
    const Field& f = r.fields[i];
    for (const Operation& o : family.of_field(r, f))
        to.push_back(
            {operation_name(r.name, f.name, o.name), in_catalogue(r.name) + ", " + std::to_string(i), o, family.name});
}

TypeExports exports_of(const Record& r) {
    TypeExports t{r.name, r.doc, {}};
    for (const Family& family : families()) add(t.exports, r, family.of_record(r), family.name);
    for (std::size_t i = 0; i < r.count; ++i)
        for (const Family& family : families()) add_field(t.exports, r, i, family);
    return t;
}

TypeExports exports_of(const Enum& e) {
    TypeExports t{e.name, e.doc, {}};
    for (const Family& family : families()) add(t.exports, e, family.of_enum(e), family.name);
    return t;
}

std::string argument(const Parameter& p) {
    return p.is_instance ? "header(" + p.name + ")" : p.name;
}

std::string packed(const Operation& o) {
    if (o.pack->count == 0) return "nullptr";
    std::string list;
    for (std::size_t i = 0; i < o.pack->count; ++i) list += (i ? ", " : "") + o.parameters[o.pack->first + i].name;
    return "std::initializer_list<" + o.pack->element + ">{" + list + "}.begin()";
}

std::string arguments(const Operation& o) {
    std::string list;
    const auto append = [&](const std::string& a) { list += (list.empty() ? "" : ", ") + a; };
    for (std::size_t i = 0; i <= o.parameters.size(); ++i) {
        if (o.pack && i == o.pack->first) {
            append(packed(o));
            i += o.pack->count;
        }
        if (i < o.parameters.size()) append(argument(o.parameters[i]));
    }
    return list;
}

std::string call(const Export& e) {
    const Operation& o = e.operation;
    std::string text = "epm::" + o.call;
    if (!e.template_arguments.empty())
        text +=
            "<epm::" + e.template_arguments + (o.template_arguments.empty() ? "" : ", " + o.template_arguments) + ">";
    text += "(" + arguments(o) + ")";
    if (o.result == "void") return text;
    const bool is_pointer = o.result.ends_with("*");
    return "return " + (is_pointer ? "static_cast<" + o.result + ">(static_cast<void*>(" + text + "))" : text);
}

std::string parameters(const Operation& o) {
    std::string list;
    for (const Parameter& p : o.parameters) list += (list.empty() ? "" : ", ") + p.type + " " + p.name;
    return list.empty() ? "void" : list;
}

void define(std::ostream& out, const Export& e) {
    out << e.operation.result << " " << e.name << "(" << parameters(e.operation) << ") {\n    " << call(e) << ";\n}\n";
}

void write_family(const std::filesystem::path& folder, const Family& family) {
    std::vector<std::ostringstream> files(family.files);
    for (std::ostringstream& file : files) {
        file << "// " << family.name << ": each export passes on to its template.\n#include \"symbols.hpp\"\n\n";
        for (const char* include : family.includes) file << "#include \"" << include << "\"\n";
        file << "\n#include <initializer_list>\n\nusing epm::header;\n\nextern \"C\" {\n\n";
    }
    std::size_t total = 0;
    const auto belongs = [&](const Export& e) { return std::string_view(e.family) == family.name; };
    for (const TypeExports& t : all_exports())
        total += static_cast<std::size_t>(std::ranges::count_if(t.exports, belongs));
    std::size_t written = 0;
    for (const TypeExports& t : all_exports()) {
        std::ostringstream& file = files[written * family.files / std::max<std::size_t>(total, 1)];
        for (const Export& e : t.exports)
            if (belongs(e)) {
                define(file, e);
                ++written;
            }
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i] << "\n} // extern \"C\"\n";
        write_file(folder / ("exports_" + std::string(family.name) + "_" + std::to_string(i + 1) + ".cpp"),
                   files[i].str());
    }
}

void write_symbols(const std::filesystem::path& folder) {
    std::ostringstream out;
    out << "// The exported TypeInfo of each type, for the templates.\n#pragma once\n\n#include "
           "\"frame/type_tables.hpp\"\n"
           "\n#include <orlan_epm.h>\n\nnamespace epm {\n\n";
    for (const TypeExports& t : all_exports())
        out << "template <>\nstruct Symbol<" << in_catalogue(t.type)
            << "> {\n    static constexpr const zur_type_info& "
            << "type_info = ::" << type_info_name(t.type) << ";\n};\n";
    out << "\n} // namespace epm\n";
    write_file(folder / "symbols.hpp", out.str());
}

void write_frame(const std::filesystem::path& folder) {
    std::ostringstream out;
    out << "// The TypeInfos, the type table, and the operations of the Bundle itself.\n#include \"symbols.hpp\"\n\n"
           "#include \"frame/registration.hpp\"\n#include \"frame/trace.hpp\"\n\nextern \"C\" {\n\n";
    std::size_t i = 0;
    for (const TypeExports& t : all_exports())
        out << "constinit const zur_type_info " << type_info_name(t.type) << " = epm::frame::make_type_info<" << i++
            << ">();\n";
    out << "\n";
    for (const Export& e : global_exports()) define(out, e);
    out << "\n} // extern \"C\"\n\nnamespace epm::frame {\n\nconstinit const zur_type_info* const type_table[] = {\n";
    for (const TypeExports& t : all_exports()) out << "    &" << type_info_name(t.type) << ",\n";
    out << "    nullptr,\n};\n\n} // namespace epm::frame\n";
    write_file(folder / "exports_frame.cpp", out.str());
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
        for (const Operation& o : frame_operations()) list.push_back({o.name, {}, o, "frame"});
        return list;
    }();
    return all;
}

std::vector<std::string> exported_data() {
    std::vector<std::string> names;
    for (const TypeExports& t : all_exports()) names.push_back(type_info_name(t.type));
    names.push_back("orlan_epm_bundle_registered_handler");
    names.push_back("g_zur_orlan_epm_trace_module_id");
    names.push_back("g_zur_orlan_epm_stub_trace_module_id");
    return names;
}

std::string fault_in_exports() {
    std::set<std::string> names;
    const auto faulty = [&](const Export& e) -> std::string {
        if (!names.insert(e.name).second) return e.name + ": two exports bear this name";
        if (e.operation.brief.empty() || e.operation.cost.empty()) return e.name + ": documentation is missing";
        if ((e.operation.result == "void") != e.operation.returns.empty())
            return e.name + ": the documentation of the result does not fit its type";
        return {};
    };
    for (const Export& e : global_exports())
        if (std::string fault = faulty(e); !fault.empty()) return fault;
    for (const TypeExports& t : all_exports())
        for (const Export& e : t.exports)
            if (std::string fault = faulty(e); !fault.empty()) return fault;
    return {};
}

void write_file(const std::filesystem::path& path, const std::string& text) {
    {
        std::ifstream old(path, std::ios::binary);
        if (old && std::string(std::istreambuf_iterator<char>(old), {}) == text) return;
    }
    std::ofstream(path, std::ios::binary) << text;
}

void write_exports(const std::filesystem::path& folder) {
    write_symbols(folder);
    write_frame(folder);
    for (const Family& family : families()) write_family(folder, family);
}

void write_version_script(const std::filesystem::path& folder) {
    std::ostringstream out;
    out << "ORLAN_EPM_1 {\nglobal:\n";
    for (const std::string& name : exported_data()) out << "    " << name << ";\n";
    for (const Export& e : global_exports()) out << "    " << e.name << ";\n";
    for (const TypeExports& t : all_exports())
        for (const Export& e : t.exports) out << "    " << e.name << ";\n";
    out << "local:\n    *;\n};\n";
    write_file(folder / "orlan_epm.map", out.str());
}

} // namespace epm::stamp
