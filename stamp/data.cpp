// The description as data, for everything outside of C++: orlan_epm.json, whose form orlan_epm.schema.json holds.
// Readers of a later library meet this file of an earlier one and the other way round, so members are added and never
// change their meaning; `format` counts when one must. The library file holds it too, so that two library files can be
// compared without anything else.
#include "stamp/exports.hpp"
#include "stamp/file.hpp"
#include "stamp/outputs.hpp"
#include "stamp/trace_messages.hpp"
#include "stamp/words.hpp"

#include "catalogue/hex.hpp"

#include <nlohmann/json.hpp>

namespace epm::stamp {

namespace {

using Json = nlohmann::ordered_json;
using catalogue::Layout;

template <class Type>
Json head(const Type& t, const char* kind, std::size_t size, std::size_t tracked_size) {
    return {{"name", t.name},
            {"title", t.title},
            {"kind", kind},
            {"description", t.doc},
            {"identity", t.digests.identity},
            {"compatibility", t.digests.compatibility},
            {"top_variant", t.top()},
            {"size", size},
            {"tracked_size", tracked_size}};
}

Json enumeration(const Enum& e) {
    Json type = head(e, "enum", catalogue::enum_length, catalogue::enum_length);
    for (std::size_t i = 0; i < e.count; ++i)
        type["enumerators"].push_back({{"number", i},
                                       {"name", e.enumerators[i].name},
                                       {"since", e.enumerators[i].since},
                                       {"description", e.enumerators[i].doc}});
    return type;
}

Json field(const Record& r, const Layout& l, std::size_t i) {
    const Field& f = r.fields[i];
    Json field{{"name", f.name},   {"kind", kind_name(f.kind)}, {"type", f.type_name()},
               {"since", f.since}, {"offset", l.offset[i]},     {"size", catalogue::length_of(f)}};
    field["state_flag"] = f.is_tracked() ? Json(l.flag[i]) : Json();
    if (f.has_element_flags() || f.has_nested_block()) field["nested_flags"] = l.nested[i];
    if (f.companion != nullptr) field["length_field"] = f.companion;
    if (f.capacity != 0) field["elements"] = f.capacity;
    if (f.kind == Kind::arm) field["tag"] = f.tag;
    field["description"] = f.doc;
    return field;
}

Json record(const Record& r) {
    const Layout l = catalogue::lay_out(r);
    Json type = head(r, "record", l.size(r), l.size(r) + l.block_length(r));
    if (r.is_linked()) type["links"] = l.links;
    for (std::size_t v = 0; v < r.variants(); ++v)
        type["variants"].push_back(
            {{"variant", v}, {"used_length", l.used[v]}, {"size", l.body[v]}, {"state_flags", l.block[v]}});
    for (std::size_t i = 0; i < r.count; ++i) type["fields"].push_back(field(r, l, i));
    return type;
}

/// The types that fields have and that other libraries supply, in the order of their first use.
Json imported_types() {
    static constexpr const char* shapes[] = {"primitive", "value", "object", "placed"};
    Json all = Json::array();
    std::vector<const Foreign*> seen;
    for (const Record* r : catalogue::all_records)
        for (const Field& f : r->fields) {
            if (f.foreign == nullptr || std::ranges::count(seen, f.foreign) != 0) continue;
            const Foreign& t = *f.foreign;
            seen.push_back(&t);
            all.push_back({{"name", t.name},
                           {"shape", shapes[static_cast<std::size_t>(t.shape)]},
                           {"size", t.length},
                           {"alignment", t.alignment},
                           {"framing", catalogue::framing_name(t.framing)}});
            if (t.framing == Foreign::Framing::number) all.back()["wire_length"] = t.wire_length;
            if (t.is_placed()) all.back()["state_flags"] = t.block_length;
        }
    return all;
}

std::string signature(const Export& e) {
    std::string all;
    for (const Parameter& p : e.operation.parameters) all += (all.empty() ? "" : ", ") + p.type + " " + p.name;
    return e.operation.result + " (" + (all.empty() ? "void" : all) + ")";
}

/// An array whose elements each have a line.
std::string lines(const Json& array) {
    std::string text;
    for (const Json& element : array) text += (text.empty() ? "[\n" : ",\n") + element.dump();
    return text + "\n]";
}

} // namespace

void write_data(const std::filesystem::path& folder) {
    Json types = Json::array(), functions = Json::array(), messages = Json::array();
    for (const Record* r : catalogue::all_records) types.push_back(record(*r));
    for (const Enum* e : catalogue::all_enums) types.push_back(enumeration(*e));
    for_each_export([&](const Export& e) { functions.push_back({{"name", e.name}, {"signature", signature(e)}}); });
    const std::vector<TraceMessage> traces = trace_messages();
    for (std::size_t i = 0; i < traces.size(); ++i)
        messages.push_back(
            {{"index", i}, {"identifier", traces[i].identifier}, {"key", traces[i].key}, {"text", traces[i].text}});
    const std::pair<const char*, std::string> members[] = {
        {"$schema", Json("orlan_epm.schema.json").dump()},
        {"format", "1"},
        {"library", Json("orlan_epm").dump()},
        {"version", Json(EPM_VERSION).dump()},
        {"soname", Json("liborlan_epm.so." + std::string(EPM_VERSION, std::string(EPM_VERSION).find('.'))).dump()},
        {"version_node", Json(version_node).dump()},
        {"types", lines(types)},
        {"imported_types", lines(imported_types())},
        {"functions", lines(functions)},
        {"data", Json(exported_data()).dump()},
        {"trace_digest", Json(catalogue::to_hex(digest_of(traces))).dump()},
        {"traces", lines(messages)}};
    std::string text;
    for (const auto& [name, value] : members)
        text += (text.empty() ? "{\n\"" : ",\n\"") + std::string(name) + "\": " + value;
    text += "\n}\n";
    write_file(folder / "orlan_epm.json", text);
    write_description_section(folder, text);
    write_file(folder / "orlan_epm.schema.json", fixed_text("texts/orlan_epm.schema.json"));
}

} // namespace epm::stamp
