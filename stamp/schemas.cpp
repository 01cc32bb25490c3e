// A JSON Schema for each type: the form in which the tool writes messages as JSON and reads them. They refer to one
// another by the names of their files. How imported values are written is the same in each, and stands in
// texts/forms.schema.json.
#include "stamp/file.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

#include <nlohmann/json.hpp>

#include <set>

namespace epm::stamp {

namespace {

using Json = nlohmann::ordered_json;
using Framing = Foreign::Framing;

const std::string forms = "forms.schema.json";

std::string file_of(const char* type) {
    return std::string(type) + ".schema.json";
}

Json form(const char* name) {
    return {{"$ref", forms + "#/$defs/" + name}};
}

/// The greatest number in that many bytes.
std::uint64_t most_in(std::size_t length) {
    return ~std::uint64_t{0} >> (64 - 8 * length);
}

Json whole_number(std::size_t length) {
    return {{"type", "integer"}, {"minimum", 0}, {"maximum", most_in(length)}};
}

Json imported(const Foreign& type) {
    switch (type.framing) {
    case Framing::character: return form("character");
    case Framing::enumerated: return form("enumerated");
    case Framing::mac: return form("mac");
    case Framing::address: return form("address");
    case Framing::text: return form("text");
    case Framing::bytes: return form("hex");
    case Framing::typed: return form("typed");
    case Framing::number: break;
    }
    if (&type == &catalogue::zur_boolean) return form("boolean");
    return type.wire_length > 4 ? form("wide_number") : whole_number(type.wire_length);
}

/// A value of a field, or an element of one that has several.
Json one_of(const Field& f) {
    if (f.of == catalogue::Of::foreign) return imported(*f.foreign);
    return {{"$ref", file_of(f.type_name())}};
}

/// A character of JSON is one byte of a text or more.
Json text(std::uint64_t most) {
    Json schema = form("text");
    schema["maxLength"] = most;
    schema["properties"]["$hex"]["maxLength"] = 2 * most;
    return schema;
}

Json content(const Record& r, const Field& f) {
    const std::uint64_t most =
        f.companion != nullptr ? most_in(r.fields[r.index_of(f.companion)].foreign->length) : f.capacity;
    switch (f.kind) {
    case Kind::length: return whole_number(f.foreign->length);
    case Kind::text:
    case Kind::characters: return text(most);
    case Kind::array: return {{"type", "array"}, {"items", one_of(f)}, {"maxItems", most}};
    case Kind::run:
        return {{"type", {"array", "string"}}, {"items", one_of(f)}, {"maxItems", most}, {"maxLength", most}};
    case Kind::list: return {{"type", "array"}, {"items", one_of(f)}};
    default: return one_of(f);
    }
}

std::string sentence(const Field& f) {
    return f.doc + (f.since != 0 ? " From variant " + std::to_string(f.since) + " on." : std::string()) +
           (f.kind == Kind::length ? " Can be left out." : "");
}

/// One arm with a tag that selects it, or no arm.
Json arms(const Record& r) {
    const Field& tag = r.fields[0];
    Json choices = Json::array(), any = Json::array();
    for (std::size_t i = 1; i < r.count; ++i) {
        const Field& f = r.fields[i];
        const Json selects{{"enum", {tag.enumeration->enumerators[f.tag].name, f.tag}}};
        const Json with_variant{{"type", "object"}, {"properties", {{"value", selects}}}};
        choices.push_back({{"required", {f.name}}, {"properties", {{tag.name, {{"anyOf", {selects, with_variant}}}}}}});
        any.push_back({{"required", {f.name}}});
    }
    choices.push_back({{"not", {{"anyOf", any}}}});
    return choices;
}

template <class Type>
Json head(const Type& type) {
    return {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
            {"$id", file_of(type.name)},
            {"title", type.title},
            {"description", type.doc}};
}

Json schema_of(const Record& r) {
    Json schema = head(r);
    Json fields{{"$variant", form("variant")}, {"$flags", form("flags")}, {"$ra", form("ra_block")}};
    Json flags = Json::object();
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        fields[f.name] = content(r, f);
        fields[f.name]["description"] = sentence(f);
        if (f.is_tracked()) flags[f.name] = form("state_flags");
    }
    fields["$state"] = {{"type", "object"},
                        {"description", "The record is state-tracked; flags of 0 can be left out."},
                        {"properties", flags},
                        {"additionalProperties", false}};
    fields["$rest"] = form("rest");
    schema["type"] = "object";
    schema["properties"] = fields;
    if (r.is_union()) schema["oneOf"] = arms(r);
    schema["additionalProperties"] = false;
    return schema;
}

Json schema_of(const Enum& e) {
    Json schema = head(e);
    Json names = Json::array();
    for (std::size_t i = 0; i < e.count; ++i) names.push_back(e.enumerators[i].name);
    schema["$defs"]["value"]["anyOf"] = {{{"enum", names}}, whole_number(4)};
    const Json value{{"$ref", "#/$defs/value"}};
    const Json with_variant{{"type", "object"},
                            {"properties", {{"$variant", form("variant")}, {"value", value}}},
                            {"additionalProperties", false}};
    schema["anyOf"] = {value, with_variant};
    return schema;
}

} // namespace

void write_schemas(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    std::set<std::string> names{forms};
    write_file(folder / forms, fixed_text("texts/" + forms));
    const auto write = [&](const auto& type) {
        names.insert(file_of(type.name));
        write_file(folder / file_of(type.name), schema_of(type).dump(2) + "\n");
    };
    for (const Record* r : catalogue::all_records) write(*r);
    for (const Enum* e : catalogue::all_enums) write(*e);
    // The whole folder is installed, so it must not keep what an earlier catalogue had.
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (!names.contains(entry.path().filename().string())) std::filesystem::remove(entry.path());
}

} // namespace epm::stamp
