// The manifest's section is a sequence of records, all little-endian:
//
//   4  length of the payload, its NUL included       4  kind: 2 manifest, 1 build record
//   n  payload: lines and a NUL                       0 to 3  zero bytes, to a multiple of 4
//
// A line of the manifest after the title: identity ":" compatibility, kind, highest variant ":" length, a letter.
#include "tool/manifest.hpp"

#include "tool/failure.hpp"
#include "tool/library_file.hpp"
#include "tool/table.hpp"
#include "tool/types.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t build_record = 1, manifest_record = 2;
constexpr std::size_t line_length = 79;

/// What has been read before a fault.
struct Manifest {
    std::string title;
    Json types = Json::array();
    Json build = Json::array();
    bool has_types = false;
};

/// A manifest does not name the types; this library's own are recognised by their identity.
std::string name_of(std::string_view identity) {
    for (const Type& type : all_types())
        if (type.digests().identity == identity) return type.name;
    return "";
}

bool all_of(std::string_view text, std::string_view set) {
    return text.find_first_not_of(set) == text.npos;
}

/// The line's members. Throws Damage if the line does not have the form.
Json read_line(std::string_view line, std::size_t offset) {
    constexpr std::string_view hex = catalogue::hex_digits, decimal = hex.substr(0, 10);
    const bool is_sound = line.size() == line_length && all_of(line.substr(0, 32), hex) && line[32] == ':' &&
                          all_of(line.substr(33, 32), hex) && all_of(line.substr(69, 3), decimal) && line[72] == ':' &&
                          all_of(line.substr(73, 5), decimal) &&
                          (line.substr(65, 4) == "type" || line.substr(65, 4) == "enum") &&
                          all_of(line.substr(78), "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    if (!is_sound) throw Damage{offset, "not a line of a manifest"};
    const std::string identity(line.substr(0, 32));
    return {{"name", name_of(identity)},
            {"kind", line.substr(65, 4)},
            {"top_variant", std::stoi(std::string(line.substr(69, 3)))},
            {"used_length", std::stoi(std::string(line.substr(73, 5)))},
            {"letter", line.substr(78)},
            {"identity", identity},
            {"compatibility", line.substr(33, 32)}};
}

void read_payload(Manifest& manifest, std::uint32_t kind, std::string_view text, std::size_t offset) {
    manifest.has_types = manifest.has_types || kind == manifest_record;
    for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
        end = text.find('\n', at);
        if (end == text.npos) throw Damage{offset + at, "a line that is not closed"};
        const std::string_view line = text.substr(at, end - at);
        if (kind == build_record)
            manifest.build.push_back(escaped(line));
        else if (kind == manifest_record && at == 0)
            manifest.title = escaped(line);
        else if (kind == manifest_record)
            manifest.types.push_back(read_line(line, offset + at));
    }
}

void read_records(Manifest& manifest, const Section& section) {
    const ByteView bytes = section.bytes;
    for (std::size_t at = 0; at < bytes.size();) {
        const auto damage = [&](std::size_t where, const char* reason) {
            return Damage{section.offset + where, reason};
        };
        if (bytes.size() - at < 8) throw damage(at, "a record's header is cut");
        const std::uint32_t length = little_endian(bytes, at, 4);
        if (length > bytes.size() - at - 8) throw damage(at, "a record is longer than its section");
        const std::size_t start = at + 8, end = start + length;
        if (length == 0 || bytes[end - 1] != 0) throw damage(at, "a record does not end with a NUL");
        read_payload(manifest, little_endian(bytes, at + 4, 4), as_text(bytes.subspan(start, length - 1)),
                     section.offset + start);
        for (at = end; at % 4 != 0; ++at)
            if (at >= bytes.size() || bytes[at] != 0) throw damage(end, "no padding behind a record");
    }
    if (!manifest.has_types) throw Damage{section.offset, "no manifest in its section"};
}

void write_text(const Manifest& manifest, std::ostream& out) {
    if (!manifest.title.empty()) out << manifest.title << "\n\n";
    Table table;
    table.add({"kind", "top", "used", "identity", "compatibility", "name"});
    for (const Json& type : manifest.types)
        table.add({type["kind"], to_string(type["top_variant"]), to_string(type["used_length"]), type["identity"],
                   type["compatibility"], type["name"].get<std::string>().empty() ? "?" : type["name"]});
    if (!manifest.types.empty()) table.write(out);
    if (!manifest.build.empty()) out << '\n';
    for (const Json& line : manifest.build) out << line.get<std::string>() << '\n';
}

} // namespace

void show_manifest(ByteView library, bool is_json, std::ostream& out) {
    Manifest manifest;
    const auto write = [&](const Json& fault) {
        if (!is_json) return write_text(manifest, out);
        const Json json{
            {"title", manifest.title}, {"types", manifest.types}, {"build", manifest.build}, {"fault", fault}};
        out << json.dump(2) << '\n';
    };
    try {
        read_records(manifest, section_named(library, ".corbe"));
    } catch (const Damage& damage) {
        write({{"offset", damage.offset}, {"reason", damage.reason}});
        throw;
    } catch (const Failure& failure) {
        write({{"reason", failure.reason}});
        throw;
    }
    write(nullptr);
}

} // namespace epm::tool
