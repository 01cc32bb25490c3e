// The parts of a message as lines or as JSON, written as they come: a message may be long.
#include "tool/annotate.hpp"

#include "tool/failure.hpp"
#include "tool/walk.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kind_names[] = {"variant", "flags",  "ra block",    "jump word",   "value",
                                      "count",   "prefix", "state flags", "passed over", "remark"};

/// Longer values are cut in the line form, not in JSON.
constexpr std::size_t most_shown = 64;
constexpr std::size_t most_bytes = 8;

const char* name_of(Part::Kind kind) {
    return kind_names[static_cast<std::size_t>(kind)];
}

/// A line for each part, in columns. A field is indented below the record that holds it, and named once.
class Lines {
public:
    Lines(ByteView message, bool is_coloured) : message_(message), is_coloured_(is_coloured) {}

    /// Makes the columns wide enough for a part.
    void measure(const Part& part) {
        const Row row = row_of(part);
        for (std::size_t i = 0; i < row.size(); ++i) widths_[i] = std::max(widths_[i], row[i].size());
    }
    void begin(std::ostream& out) {
        last_path_.clear();
        write(heading, false, out);
    }
    void write(const Part& part, std::ostream& out) {
        const bool is_framing = part.kind != Part::Kind::value && part.kind != Part::Kind::remark;
        write(row_of(part), is_framing, out);
    }

private:
    using Row = std::array<std::string, 6>;
    static constexpr std::size_t first_to_the_left = 2; ///< columns before it hold numbers, which end below one another

    Row row_of(const Part& part) {
        const bool says_type = part.kind == Part::Kind::value || part.kind == Part::Kind::prefix;
        const bool is_named = part.path != std::exchange(last_path_, part.path);
        std::string bytes = to_hex(message_.subspan(part.offset, std::min(part.length, most_bytes)));
        if (part.length > most_bytes) bytes += "..";
        std::string value = part.value.substr(0, most_shown);
        if (part.value.size() > most_shown) value += "...";
        return {std::to_string(part.offset),
                std::to_string(part.length),
                std::move(bytes),
                says_type ? part.type : name_of(part.kind),
                is_named ? in_tree(part.path) : "",
                std::move(value)};
    }

    /// The last name of a path, behind two blanks for each before it. The outermost record is above all of them.
    std::string in_tree(const std::string& path) {
        if (outermost_.empty()) outermost_ = path;
        if (path == outermost_) return path;
        const std::size_t depth = static_cast<std::size_t>(std::ranges::count(path, '.')) + 1;
        return std::string(2 * depth, ' ') + path.substr(path.rfind('.') + 1);
    }

    void write(const Row& row, bool is_faint, std::ostream& out) const {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string gap(widths_[i] - row[i].size(), ' ');
            line += i < first_to_the_left ? gap + row[i] : row[i] + gap;
            line += "  ";
        }
        line.resize(line.find_last_not_of(' ') + 1);
        out << (is_coloured_ && is_faint ? "\033[2m" + line + "\033[0m" : line) << '\n';
    }

    inline static const Row heading{"offset", "size", "bytes", "type", "field", "value"};
    const ByteView message_;
    const bool is_coloured_;
    std::array<std::size_t, 6> widths_{6, 4, 5, 4, 5, 5};
    std::string last_path_, outermost_;
};

/// Walks twice, since a message may have more parts than memory should hold.
void write_lines(const Type& type, ByteView message, bool is_coloured, std::ostream& out) {
    Lines lines(message, is_coloured);
    try {
        walk(type, message, [&](const Part& part) { lines.measure(part); });
    } catch (const Damage&) { // the second walk tells it, behind the lines
    }
    lines.begin(out);
    walk(type, message, [&](const Part& part) { lines.write(part, out); });
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

void annotate(const Type& type, ByteView message, AnnotationForm form, std::ostream& out) {
    if (form == AnnotationForm::json) return write_json(type, message, out);
    write_lines(type, message, form == AnnotationForm::coloured_lines, out);
}

} // namespace epm::tool
