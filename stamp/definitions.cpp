// The extern "C" definitions that pass each export on to its template, and the TypeInfos.
#include "stamp/exports.hpp"
#include "stamp/families.hpp"
#include "stamp/file.hpp"
#include "stamp/names.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

namespace epm::stamp {

namespace {

constexpr const char* symbol = R"(template <>
struct Symbol<catalogue::{type}> {
    static constexpr const zur_type_info& type_info = ::{type_info};
};
)";

/// An Instance of one of the Bundle's own types is passed on as its header.
bool is_instance(std::string_view type) {
    if (type.starts_with("const ")) type.remove_prefix(6);
    return std::ranges::any_of(all_exports(),
                               [&](const TypeExports& t) { return type == std::string("struct ") + t.type + "*"; });
}

std::string packed(const Declaration& o) {
    if (o.pack->count == 0) return "nullptr";
    std::string list;
    for (std::size_t i = 0; i < o.pack->count; ++i) list += (i ? ", " : "") + o.parameters[o.pack->first + i].name;
    return "std::initializer_list<" + o.pack->element + ">{" + list + "}.begin()";
}

std::string arguments(const Declaration& o) {
    std::string list;
    const auto append = [&](const std::string& a) { list += (list.empty() ? "" : ", ") + a; };
    for (std::size_t i = 0; i <= o.parameters.size(); ++i) {
        if (o.pack && i == o.pack->first) {
            append(packed(o));
            i += o.pack->count;
        }
        if (i == o.parameters.size()) break;
        const Parameter& p = o.parameters[i];
        append(is_instance(p.type) ? "header(" + p.name + ")" : p.name);
        if (o.is_chained && i == 0) append("D->cr_set_id");
    }
    if (o.is_chained) append("&D->last_error");
    return list;
}

std::string call(const Export& e) {
    const Declaration& o = e.operation;
    const std::string further = o.template_arguments.empty() ? "" : ", " + o.template_arguments;
    const std::string chosen = e.template_arguments.empty() ? "" : "<epm::" + e.template_arguments + further + ">";
    const std::string text = "epm::" + o.call + chosen + "(" + arguments(o) + ")";
    if (o.result == "void") return text;
    if (o.is_chained) return text + ";\n    return D->last_error";
    return "return " +
           (o.result.ends_with("*") ? "static_cast<" + o.result + ">(static_cast<void*>(" + text + "))" : text);
}

std::string definition(const Export& e) {
    std::string list;
    for (const Parameter& p : e.operation.parameters) list += (list.empty() ? "" : ", ") + p.type + " " + p.name;
    return e.operation.result + " " + e.name + "(" + (list.empty() ? "void" : list) + ") {\n    " + call(e) + ";\n}\n";
}

void write_family(const std::filesystem::path& folder, const Family& family) {
    const auto belongs = [&](const Export& e) { return std::string_view(e.family) == family.name; };
    std::size_t total = 0;
    for (const TypeExports& t : all_exports())
        total += static_cast<std::size_t>(std::ranges::count_if(t.exports, belongs));
    std::vector<std::string> files(family.files);
    std::size_t written = 0;
    for (const TypeExports& t : all_exports()) {
        std::string& file = files[written * family.files / std::max<std::size_t>(total, 1)];
        for (const Export& e : t.exports)
            if (belongs(e)) {
                file += definition(e);
                ++written;
            }
    }
    std::string includes;
    for (const char* include : family.includes) includes += std::string("#include \"") + include + "\"\n";
    for (std::size_t i = 0; i < files.size(); ++i)
        write_file(folder / (std::string("exports_") + family.name + "_" + std::to_string(i + 1) + ".cpp"),
                   filled(fixed_text("texts/exports.cpp.in"),
                          {{"family", family.name}, {"includes", includes}, {"definitions", files[i]}}));
}

void write_symbols(const std::filesystem::path& folder) {
    std::string symbols;
    for (const TypeExports& t : all_exports())
        symbols += filled(symbol, {{"type", t.type}, {"type_info", type_info_name(t.type)}});
    write_file(folder / "symbols.hpp", filled(fixed_text("texts/symbols.hpp.in"), {{"symbols", symbols}}));
}

void write_frame(const std::filesystem::path& folder) {
    std::string type_infos;
    std::string definitions;
    std::string table;
    std::size_t i = 0;
    for (const TypeExports& t : all_exports()) {
        const std::string name = type_info_name(t.type);
        type_infos +=
            "constinit const zur_type_info " + name + " = epm::frame::make_type_info<" + std::to_string(i++) + ">();\n";
        table += "    &" + name + ",\n";
    }
    for (const Export& e : global_exports()) definitions += definition(e);
    write_file(folder / "exports_frame.cpp",
               filled(fixed_text("texts/exports_frame.cpp.in"),
                      {{"type_infos", type_infos}, {"definitions", definitions}, {"type_table", table}}));
}

} // namespace

void write_definitions(const std::filesystem::path& folder) {
    write_symbols(folder);
    write_frame(folder);
    for (const Family& family : families) write_family(folder, family);
}

} // namespace epm::stamp
