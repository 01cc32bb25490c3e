// The parts of a message as lines or as JSON, written as they come: a message may be long.
#include "tool/annotate.hpp"

#include "tool/failure.hpp"
#include "tool/walk.hpp"

#include <nlohmann/json.hpp>

#include <iomanip>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kind_names[] = {"variant", "flags",  "ra block",    "jump word",   "value",
                                      "count",   "prefix", "state flags", "passed over", "remark"};

/// Longer values are cut in the line form, not in JSON.
constexpr std::size_t most_shown = 64;

const char* name_of(Part::Kind kind) {
    return kind_names[static_cast<std::size_t>(kind)];
}

void write_line(const Part& part, std::ostream& out) {
    const bool says_type = part.kind == Part::Kind::value || part.kind == Part::Kind::prefix;
    const bool is_long = part.value.size() > most_shown;
    out << std::setw(6) << part.offset << std::setw(6) << part.length << "  " << std::left << std::setw(25)
        << (says_type ? part.type : name_of(part.kind)) << std::right << "  " << part.path << ": "
        << part.value.substr(0, most_shown) << (is_long ? "...\n" : "\n");
}

Json json_of(const Part& part) {
    return {{"offset", part.offset},      {"length", part.length}, {"path", part.path},
            {"kind", name_of(part.kind)}, {"type", part.type},     {"value", part.value}};
}

void write_json(const Type& type, ByteView message, std::ostream& out) {
    out << "{\"type\": " << Json(type.name) << ", \"length\": " << message.size() << ", \"parts\": [";
    const char* separator = "\n  ";
    const auto end = [&](const Json& fault) { out << "\n], \"fault\": " << fault << "}\n"; };
    try {
        walk(type, message, [&](const Part& part) {
            out << separator << json_of(part);
            separator = ",\n  ";
        });
    } catch (const Damage& damage) {
        end({{"offset", damage.offset}, {"reason", damage.reason}});
        throw;
    }
    end(nullptr);
}

} // namespace

void annotate(const Type& type, ByteView message, bool is_json, std::ostream& out) {
    if (is_json) return write_json(type, message, out);
    out << "offset  size  kind                       field\n";
    walk(type, message, [&](const Part& part) { write_line(part, out); });
}

} // namespace epm::tool
