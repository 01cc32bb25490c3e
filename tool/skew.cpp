// Walks over the JSON form beside the catalogue: a field is missed where it came after the peer's variant.
#include "tool/skew.hpp"

#include "tool/failure.hpp"
#include "tool/json_message.hpp"
#include "tool/table.hpp"

#include <algorithm>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kind_names[] = {"field", "type", "enumerator", "arm"};

bool is_note(const std::string& member) {
    return member.starts_with('$');
}

class Comparison {
public:
    explicit Comparison(const Peer& peer) : peer_(peer) {}

    void type(const Type& t, const Json& value) {
        t.is_enum() ? enumeration(*t.enumeration, value, "value") : record(*t.record, value, "");
    }

    Skew result;

private:
    std::int8_t peer_of(const char* type, std::int8_t top) const {
        const auto known = peer_.find(type);
        return known != peer_.end() ? std::min(known->second, top) : std::int8_t{-1};
    }

    void miss(Miss::Kind kind, const std::string& path, std::int8_t since, std::int8_t peer, const Json& value) {
        result.misses.push_back({kind, path, since, peer, value});
        result.fields += count(value);
        result.missed += count(value);
    }

    /// Values, except what a message says of itself.
    static std::size_t count(const Json& value) {
        if (!value.is_structured()) return 1;
        std::size_t n = 0;
        for (const auto& [name, member] : value.items())
            if (value.is_array() || !is_note(name)) n += count(member);
        return n;
    }

    /// The prefix is that of the fields' paths, as in a walk.
    void record(const Record& r, const Json& value, const std::string& prefix) {
        const std::int8_t peer = peer_of(r.name, r.top());
        const std::string path = prefix.empty() ? r.name : prefix.substr(0, prefix.size() - 1);
        if (peer < 0 && count(value) != 0) return miss(Miss::Kind::type, path, 0, peer, value);
        const bool lacks_arm =
            r.any([&](const Field& f) { return f.kind == Kind::arm && f.since > peer && value.contains(f.name); });
        for (std::size_t i = 0; i < r.count; ++i) {
            const Field& f = r.fields[i];
            const auto member = value.find(f.name);
            if (member == value.end()) continue;
            if (i == 0 && lacks_arm) { // the tag, which goes with the arm
                ++result.fields;
                continue;
            }
            if (f.since > peer)
                miss(f.kind == Kind::arm ? Miss::Kind::arm : Miss::Kind::field, prefix + f.name, f.since, peer,
                     *member);
            else
                field(f, *member, prefix + f.name);
        }
    }

    void field(const Field& f, const Json& value, const std::string& path) {
        if (f.is_own_enum())
            enumeration(*f.enumeration, value, path);
        else if (f.is_of_record() && value.is_array())
            for (std::size_t i = 0; i < value.size(); ++i)
                record(*f.record, value[i], path + "[" + std::to_string(i) + "].");
        else if (f.is_of_record())
            record(*f.record, value, path + ".");
        else
            result.fields += count(value);
    }

    /// A number without a name in this build is one without a name in the other too, as far as anybody knows.
    void enumeration(const Enum& e, const Json& value, const std::string& path) {
        const Json& name = value.is_object() ? value[json_member::value] : value;
        const std::int8_t peer = peer_of(e.name, e.top());
        const auto* end = e.enumerators.begin() + e.count;
        const auto* found = std::find_if(e.enumerators.begin(), end, [&](const auto& one) { return name == one.name; });
        if (found != end && found->since > peer)
            miss(Miss::Kind::enumerator, path, found->since, peer, name);
        else
            ++result.fields;
    }

    const Peer& peer_;
};

/// The value as JSON, cut if it is long.
std::string shown(const Json& value) {
    constexpr std::size_t most = 100;
    const std::string text = value.dump(-1, ' ', true);
    return text.size() > most ? text.substr(0, most) + "..." : text;
}

std::string sentence(const Miss& miss) {
    const std::string since = "came with variant " + std::to_string(miss.since) + ", the peer has " +
                              (miss.peer < 0 ? "none" : std::to_string(miss.peer));
    switch (miss.kind) {
    case Miss::Kind::type: return "the peer does not know the type";
    case Miss::Kind::enumerator: return "the name " + since;
    case Miss::Kind::arm: return "the arm " + since + ", so the message cannot be sent";
    case Miss::Kind::field: break;
    }
    return since;
}

/// Names of the fields and enumerators of a type that a reader of one variant misses of a writer of another.
std::vector<std::string> missed(const Type& type, std::int8_t writer, std::int8_t reader) {
    std::vector<std::string> names;
    const auto take = [&](const auto& members, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            if (members[i].since > reader && members[i].since <= writer) names.emplace_back(members[i].name);
    };
    type.is_enum() ? take(type.enumeration->enumerators, type.enumeration->count)
                   : take(type.record->fields, type.record->count);
    return names;
}

} // namespace

Peer peer_of_variant(std::int8_t variant) {
    Peer peer;
    for (const Type& type : all_types()) peer[type.name] = variant;
    return peer;
}

bool Skew::is_refused() const {
    return std::ranges::count(misses, Miss::Kind::arm, &Miss::kind) != 0;
}

Skew skew(const Type& type, ByteView message, const Peer& peer) {
    Comparison comparison(peer);
    comparison.type(type, Json::parse(to_json(type, message)));
    return std::move(comparison.result);
}

int show_skew(const Type& type, ByteView message, const Peer& peer, bool is_json, std::ostream& out) {
    const Skew result = skew(type, message, peer);
    if (is_json) {
        Json misses = Json::array();
        for (const Miss& miss : result.misses)
            misses.push_back({{"path", miss.path},
                              {"kind", kind_names[static_cast<std::size_t>(miss.kind)]},
                              {"since", miss.since},
                              {"peer", miss.peer},
                              {"value", miss.value}});
        out << Json{{"type", type.name},
                    {"fields", result.fields},
                    {"missed", result.missed},
                    {"refused", result.is_refused()},
                    {"misses", std::move(misses)}}
                   .dump(2)
            << '\n';
    } else {
        for (const Miss& miss : result.misses)
            out << "- " << miss.path << ' ' << shown(miss.value) << ": " << sentence(miss) << '\n';
        out << (result.is_refused()     ? "the peer cannot be sent this message\n"
                : result.misses.empty() ? "the peer gets all of it\n"
                                        : "the peer misses " + std::to_string(result.missed) + " of " +
                                              std::to_string(result.fields) + " fields\n");
    }
    const bool has_lost = std::ranges::any_of(result.misses, [](const Miss& m) { return m.kind != Miss::Kind::arm; });
    return (has_lost ? fields_lost : 0) | (result.is_refused() ? message_refused : 0);
}

void show_all_skews(const Type& type, bool is_json, std::ostream& out) {
    Json list = Json::array();
    Table table;
    table.add({"writer", "reader", "misses"});
    for (std::int8_t writer = 0; writer <= type.top(); ++writer)
        for (std::int8_t reader = 0; reader <= type.top(); ++reader) {
            const std::vector<std::string> names = missed(type, writer, reader);
            list.push_back({{"writer", writer}, {"reader", reader}, {"misses", names}});
            std::string line;
            for (const std::string& name : names) line += (line.empty() ? "" : ", ") + name;
            table.add({std::to_string(writer), std::to_string(reader), line.empty() ? "nothing" : line});
        }
    is_json ? void(out << list.dump(2) << '\n') : table.write(out);
}

} // namespace epm::tool
