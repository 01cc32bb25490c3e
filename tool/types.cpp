// Finds types and describes them.
#include "tool/types.hpp"

#include "tool/failure.hpp"
#include "tool/nearest.hpp"
#include "tool/table.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>

extern "C" const char epm_description[], epm_description_end[];

namespace epm::tool {

namespace {

using catalogue::kind_name;
using catalogue::Layout;

std::size_t variants_of(const Type& type) {
    return static_cast<std::size_t>(type.top()) + 1;
}

std::size_t size_of(const Type& type) {
    return type.is_enum() ? catalogue::enum_length : catalogue::lay_out(*type.record).size(*type.record);
}

std::size_t tracked_size_of(const Type& type) {
    return type.is_enum() ? size_of(type) : size_of(type) + catalogue::lay_out(*type.record).block_length(*type.record);
}

std::size_t members_of(const Type& type) {
    return type.is_enum() ? type.enumeration->count : type.record->count;
}

/// Anything else to know about a field's kind.
std::string note_of(const Field& f) {
    if (f.companion != nullptr) return "length in " + std::string(f.companion);
    if (f.capacity != 0) return std::to_string(f.capacity) + " elements";
    if (f.kind == Kind::arm) return "tag " + std::to_string(f.tag);
    return "";
}

/// orlan_epm.json.
std::string_view description() {
    return {epm_description, static_cast<std::size_t>(epm_description_end - epm_description)};
}

void show_enum(const Enum& e, std::ostream& out) {
    Table table;
    table.add({"number", "since", "name", "description"});
    for (std::size_t i = 0; i < e.count; ++i)
        table.add(
            {std::to_string(i), std::to_string(e.enumerators[i].since), e.enumerators[i].name, e.enumerators[i].doc});
    table.write(out);
}

void show_record(const Record& r, std::ostream& out) {
    const Layout l = catalogue::lay_out(r);
    Table variants;
    variants.add({"variant", "used length", "size", "state flags"});
    for (std::size_t v = 0; v < r.variants(); ++v)
        variants.add(
            {std::to_string(v), std::to_string(l.used[v]), std::to_string(l.body[v]), std::to_string(l.block[v])});
    variants.write(out);
    out << '\n';
    Table table;
    table.add({"offset", "flag", "since", "kind", "type", "name", "note", "description"});
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        table.add({std::to_string(l.offset[i]), f.is_tracked() ? std::to_string(l.flag[i]) : "-",
                   std::to_string(f.since), kind_name(f.kind), f.type_name(), f.name, note_of(f), f.doc});
    }
    table.write(out);
}

bool is_held(const Record& r) {
    return std::ranges::any_of(catalogue::all_records, [&](const Record* holder) {
        return holder->any([&](const Field& f) { return f.record == &r; });
    });
}

/// The records that a record holds, each below its holder.
void show_tree(const Record& r, std::size_t depth, std::ostream& out) {
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        if (!f.is_of_record()) continue;
        const bool is_many = f.kind == Kind::list || f.kind == Kind::array;
        out << std::string(2 * depth, ' ') << f.name << (is_many ? "[]: " : ": ") << f.type_name() << '\n';
        show_tree(*f.record, depth + 1, out);
    }
}

} // namespace

const std::vector<Type>& all_types() {
    static const std::vector<Type> all = [] {
        std::vector<Type> list;
        for (const Record* r : catalogue::all_records) list.push_back({r->name, r, nullptr});
        for (const Enum* e : catalogue::all_enums) list.push_back({e->name, nullptr, e});
        return list;
    }();
    return all;
}

const Type& type_named(const std::string& name) {
    for (const Type& type : all_types())
        if (type.name == name) return type;
    std::vector<std::string> names;
    for (const Type& type : all_types()) names.push_back(type.name);
    const std::string near = suggestion(name, names);
    throw Failure{is_bad_call,
                  "no type of this name" + near + (near.empty() ? ";" : "") + " `orlan-epm types` lists them"};
}

void show_types(TypesForm form, std::ostream& out) {
    if (form == TypesForm::json) {
        out << description();
        return;
    }
    Table table;
    table.add({"name", "kind", "variants", "members", "size", "tracked", "description"});
    for (const Type& type : all_types()) {
        if (form == TypesForm::names) out << type.name << '\n';
        table.add({type.name, type.is_enum() ? "enum" : "record", std::to_string(variants_of(type)),
                   std::to_string(members_of(type)), std::to_string(size_of(type)),
                   std::to_string(tracked_size_of(type)), type.doc()});
        if (form == TypesForm::tree && !type.is_enum() && !is_held(*type.record)) {
            out << type.name << '\n';
            show_tree(*type.record, 1, out);
        }
    }
    if (form == TypesForm::table) table.write(out);
}

void show_type(const Type& type, bool is_json, std::ostream& out) {
    if (is_json) {
        const auto all = nlohmann::ordered_json::parse(description());
        for (const auto& entry : all["types"])
            if (entry["name"] == type.name) out << entry.dump(2) << '\n';
        return;
    }
    out << type.name << ": " << type.doc() << "\n\n";
    if (type.is_enum())
        show_enum(*type.enumeration, out);
    else
        show_record(*type.record, out);
}

} // namespace epm::tool
