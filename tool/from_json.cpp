// Writes a message from the values of a JSON document, guided by the catalogue. The document may come from anybody.
#include "tool/json_message.hpp"

#include "tool/failure.hpp"
#include "tool/nearest.hpp"
#include "tool/walk.hpp"

#include <nlohmann/json.hpp>

#include <zur/types.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <unordered_set>
#include <utility>

namespace epm::tool {

namespace {

using Framing = Foreign::Framing;
using Json = nlohmann::json;
namespace member = json_member;

constexpr std::size_t most_levels = 32; // a message has at most twelve
constexpr std::size_t most_values = 1u << 20;
constexpr std::size_t most_shown = 64;

std::string shown(std::string_view text) {
    return std::string(text.substr(0, most_shown)) + (text.size() > most_shown ? "..." : "");
}

/// The JSON pointer of a member.
std::string below(const std::string& at, std::string_view name) {
    std::string pointer = at + "/";
    for (const char c : shown(name)) (c == '~' ? pointer += "~0" : c == '/' ? pointer += "~1" : pointer += c);
    return pointer;
}

std::string below(const std::string& at, std::size_t index) {
    return at + "/" + std::to_string(index);
}

[[noreturn]] void refuse(const std::string& at, const std::string& reason) {
    throw Failure{is_damaged, at + (at.empty() ? "" : ": ") + reason};
}

/// Goes through a document before its values are kept, which takes memory by their number: refuses too many of them,
/// and members that are there twice, of which a tree shows one.
class Check : public nlohmann::json_sax<Json> {
public:
    bool null() override { return value(); }
    bool boolean(bool) override { return value(); }
    bool number_integer(number_integer_t) override { return value(); }
    bool number_unsigned(number_unsigned_t) override { return value(); }
    bool number_float(number_float_t, const string_t&) override { return value(); }
    bool string(string_t&) override { return value(); }
    bool binary(binary_t&) override { return value(); }
    bool start_object(std::size_t) override { return open(false); }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(true); }
    bool end_array() override { return close(); }

    bool key(string_t& name) override {
        levels_.back().name = name;
        if (!levels_.back().names.insert(name).second) refuse(place(), "a second member of this name");
        return true;
    }

    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& fault) override {
        std::string words = fault.what();
        words.erase(0, words.find("] ") + 2);
        if (constexpr std::string_view start = "parse error at "; words.starts_with(start))
            words.erase(0, start.size());
        refuse("", words.substr(0, std::min(words.find("; last read: "), 3 * most_shown)));
    }

private:
    /// An object or array that is open.
    struct Level {
        bool is_array;
        std::size_t values = 0;
        std::string name; ///< the last one
        std::unordered_set<std::string> names;
    };

    bool value() {
        if (!levels_.empty()) ++levels_.back().values;
        if (++values_ > most_values) refuse(place(), "more than " + std::to_string(most_values) + " values");
        return true;
    }

    bool open(bool is_array) {
        value();
        if (levels_.size() == most_levels) refuse(place(), "more than " + std::to_string(most_levels) + " levels");
        levels_.push_back({.is_array = is_array, .name = {}, .names = {}});
        return true;
    }

    bool close() {
        levels_.pop_back();
        return true;
    }

    std::string place() const {
        std::string at;
        for (const Level& level : levels_) at = level.is_array ? below(at, level.values - 1) : below(at, level.name);
        return at;
    }

    std::vector<Level> levels_;
    std::size_t values_ = 0;
};

Json parsed(std::string_view document) {
    if (document.find('\0') != document.npos) refuse("", "a NUL in the document"); // the parser ends there
    Check check;
    Json::sax_parse(document, &check);
    return Json::parse(document);
}

/// What a member holds; null if it is absent, which is read as zero or empty.
using Value = const Json*;

Value find(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() ? &*found : nullptr;
}

std::string range(std::int64_t least, std::uint64_t most) {
    return "not a whole number from " + std::to_string(least) + " to " + std::to_string(most);
}

std::uint64_t number_from(Value v, const std::string& at, std::size_t length) {
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max() >> (64 - 8 * length);
    std::uint64_t number = 0;
    if (v == nullptr) return 0;
    if (v->is_number_unsigned()) {
        number = v->get<std::uint64_t>();
        if (number <= most) return number;
    } else if (v->is_string() && length == 8) {
        const auto& digits = v->get_ref<const std::string&>();
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error == std::errc() && end == digits.data() + digits.size()) return number;
    }
    refuse(at, range(0, most));
}

std::int8_t signed_byte_from(Value v, const std::string& at) {
    if (v == nullptr) return 0;
    if (v->is_number_integer() && (!v->is_number_unsigned() || v->get<std::uint64_t>() <= 127))
        if (const auto number = v->get<std::int64_t>(); number >= -128 && number <= 127)
            return static_cast<std::int8_t>(number);
    refuse(at, range(-128, 127));
}

Bytes hex_from(Value v, const std::string& at) {
    if (v == nullptr) return {};
    std::optional<Bytes> bytes;
    if (v->is_string()) bytes = bytes_of(v->get_ref<const std::string&>());
    if (!bytes) refuse(at, "not a string of pairs of hexadecimal digits");
    return *bytes;
}

/// Refuses what is not an object of these members.
void require_members(const Json& object, const std::string& at, std::initializer_list<const char*> names) {
    std::string expected;
    for (const char* name : names) expected += (expected.empty() ? "" : ", ") + std::string(name);
    if (!object.is_object()) refuse(at, "not an object of " + expected);
    for (const auto& [name, value] : object.items())
        if (std::ranges::count(names, name) == 0) refuse(below(at, name), "no member here, only " + expected);
}

Bytes text_from(Value v, const std::string& at) {
    if (v == nullptr) return {};
    if (v->is_string()) {
        const auto& text = v->get_ref<const std::string&>();
        return {text.begin(), text.end()};
    }
    if (!v->is_object()) refuse(at, "not a string");
    require_members(*v, at, {member::hex});
    return hex_from(find(*v, member::hex), below(at, member::hex));
}

const Json::array_t& elements_from(Value v, const std::string& at, std::size_t most) {
    static const Json none = Json::array();
    if (v == nullptr) v = &none;
    if (!v->is_array()) refuse(at, "not an array");
    const auto& elements = v->get_ref<const Json::array_t&>();
    if (elements.size() > most) refuse(at, "more than " + std::to_string(most) + " elements");
    return elements;
}

Bytes mac_from(Value v, const std::string& at) {
    if (v == nullptr) return Bytes(6);
    if (v->is_string()) {
        const auto& text = v->get_ref<const std::string&>();
        std::string digits;
        for (std::size_t i = 0; i < text.size() && (i % 3 != 2 || text[i] == ':'); ++i)
            if (i % 3 != 2) digits += text[i];
        const std::optional<Bytes> bytes = bytes_of(digits);
        if (bytes && bytes->size() == 6 && text.size() == 17) return *bytes;
    }
    refuse(at, "not an Ethernet address such as \"02:00:00:00:00:01\"");
}

/// The family, and the address behind it.
Bytes address_from(Value v, const std::string& at) {
    if (v == nullptr || v->is_null()) return {0};
    Bytes bytes(1 + sizeof(in6_addr));
    if (v->is_string()) {
        const auto& text = v->get_ref<const std::string&>();
        const bool is_whole = text.find('\0') == text.npos;
        for (const auto& [family, length] : {std::pair{AF_INET, 4}, {AF_INET6, 16}}) {
            if (!is_whole || inet_pton(family, text.c_str(), &bytes[1]) != 1) continue;
            bytes[0] = length == 4 ? 4 : 6;
            bytes.resize(1 + static_cast<std::size_t>(length));
            return bytes;
        }
    }
    refuse(at, "not an address such as \"10.0.0.1\" or \"2001:db8::1\", nor null");
}

class MessageWriter {
public:
    Bytes whole(const Type& type, const Json& document) {
        if (type.is_enum())
            enumeration(*type.enumeration, &document, "");
        else
            record(*type.record, &document, "");
        return std::move(message_);
    }

private:
    void put(const Bytes& bytes) { message_.insert(message_.end(), bytes.begin(), bytes.end()); }

    void put(std::uint64_t number, std::size_t length) {
        while (length-- != 0) message_.push_back(static_cast<std::uint8_t>(number >> 8 * length));
    }

    /// The variant of an enumerated value. Moves to the value.
    static std::int8_t take_variant(Value& v, std::string& at, std::int8_t usual) {
        if (v == nullptr || !v->is_object()) return usual;
        require_members(*v, at, {member::variant, member::value});
        const Value variant = find(*v, member::variant);
        if (variant != nullptr) usual = signed_byte_from(variant, below(at, member::variant));
        v = find(*v, member::value);
        at = below(at, member::value);
        return usual;
    }

    /// Returns the number; that is `absent` where there is no value.
    std::uint32_t enumeration(const Enum& e, Value v, std::string at, std::uint32_t absent = 0) {
        put(static_cast<std::uint8_t>(take_variant(v, at, e.top())), 1);
        const std::uint32_t value = v == nullptr     ? absent
                                    : v->is_string() ? enumerator_named(e, v->get_ref<const std::string&>(), at)
                                                     : static_cast<std::uint32_t>(number_from(v, at, 4));
        put(value, 4);
        return value;
    }

    static std::uint32_t enumerator_named(const Enum& e, const std::string& name, const std::string& at) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < e.count; ++i) {
            names.push_back(e.enumerators[i].name);
            if (name == names.back()) return static_cast<std::uint32_t>(i);
        }
        refuse(at, shown(name) + ", no enumerator of " + e.name + suggestion(name, names));
    }

    void record(const Record& r, Value v, const std::string& at) {
        static const Json nothing = Json::object();
        const Json& from = v != nullptr ? *v : nothing;
        if (!from.is_object()) refuse(at, std::string("not an object of ") + r.name + "'s fields");
        const Value told_variant = find(from, member::variant), state = find(from, member::state);
        const std::int8_t variant =
            told_variant != nullptr ? signed_byte_from(told_variant, below(at, member::variant)) : r.top();
        require_fields(r, from, at, variant, false);
        if (state != nullptr) {
            if (!state->is_object()) refuse(below(at, member::state), "not an object of state flags");
            require_fields(r, *state, below(at, member::state), variant, true);
        }
        put(static_cast<std::uint8_t>(variant), 1);
        flags(from, at);
        const std::size_t jump_word = message_.size();
        put(0, 4);
        fields(r, from, at, variant);
        put(hex_from(find(from, member::rest), below(at, member::rest)));
        if (message_.size() > most_message)
            refuse(at, "the message becomes longer than " + std::to_string(most_message) + " bytes");
        for (std::size_t i = 0, jump = message_.size() - jump_word; i < 4; ++i)
            message_[jump_word + i] = static_cast<std::uint8_t>(jump >> 8 * (3 - i));
    }

    /// Refuses members that are not of a record in this variant, or not of its state flags.
    static void require_fields(const Record& r, const Json& from, const std::string& at, std::int8_t variant,
                               bool is_state) {
        static constexpr std::array more{member::variant, member::flags, member::ra_block, member::state, member::rest};
        for (const auto& [name, value] : from.items()) {
            if (!is_state && std::ranges::count(more, name) != 0) continue;
            const Field* f = r.fields.begin() + r.index_of(name);
            if (f == r.fields.begin() + r.count || (is_state && !f->is_tracked())) {
                std::vector<std::string> names;
                for (std::size_t i = 0; i < r.count; ++i) names.push_back(r.fields[i].name);
                if (!is_state) names.insert(names.end(), more.begin(), more.end());
                refuse(below(at, name), std::string(is_state ? "no field with a state flag in " : "no field of ") +
                                            r.name + suggestion(name, names));
            }
            if (f->since > variant)
                refuse(below(at, name), "comes with variant " + std::to_string(f->since) +
                                            ", and the record is of variant " + std::to_string(variant));
        }
    }

    /// The flag byte, and the ra block behind it.
    void flags(const Json& from, const std::string& at) {
        const Value told = find(from, member::flags), ra = find(from, member::ra_block);
        const Bytes ra_block = hex_from(ra, below(at, member::ra_block));
        if (ra != nullptr && ra_block.size() != ra_block_length)
            refuse(below(at, member::ra_block), "not of " + std::to_string(ra_block_length) + " bytes");
        std::uint64_t shown_by_others = ra != nullptr ? std::uint64_t{ZUR_RA_DATA} : 0;
        if (find(from, member::state) != nullptr) shown_by_others |= ZUR_TRACKED;
        const std::uint64_t byte = told != nullptr ? number_from(told, below(at, member::flags), 1) : shown_by_others;
        if ((byte & (ZUR_TRACKED | ZUR_RA_DATA)) != shown_by_others)
            refuse(below(at, member::flags), "8 is set with $state and only then, 32 with $ra");
        put(byte, 1);
        put(ra_block);
    }

    void fields(const Record& r, const Json& from, const std::string& at, std::int8_t variant) {
        const Value state = find(from, member::state);
        std::uint32_t tag = 0;
        for (std::size_t i = 0; i < r.count; ++i) {
            const Field& f = r.fields[i];
            if (f.since > variant) continue;
            const Value v = find(from, f.name);
            const std::string own = below(at, f.name);
            if (f.kind == Kind::length) {
                length(r, f, from, at);
                continue;
            }
            std::size_t present = 1;
            if (f.is_own_enum())
                tag = enumeration(*f.enumeration, v, own, arm_in(r, from));
            else if (f.kind != Kind::arm)
                present = content(f, v, own);
            else if (tag == f.tag)
                record(*f.record, v, own);
            else if (v != nullptr)
                refuse(own, std::string("not the arm that ") + r.fields[0].name + " selects");
            if (state != nullptr)
                state_flags(f, find(*state, f.name), below(below(at, member::state), f.name), present);
        }
    }

    /// The tag of the first arm that is there.
    static std::uint32_t arm_in(const Record& r, const Json& from) {
        for (std::size_t i = 0; i < r.count; ++i)
            if (r.fields[i].kind == Kind::arm && from.contains(r.fields[i].name)) return r.fields[i].tag;
        return 0;
    }

    void length(const Record& r, const Field& f, const Json& from, const std::string& at) {
        const auto is_counted = [&](const Field& g) {
            return g.companion != nullptr && std::string_view(g.companion) == f.name;
        };
        const Field& counted = *std::ranges::find_if(r.fields, is_counted);
        const Value v = find(from, counted.name), told = find(from, f.name);
        const std::string own = below(at, counted.name);
        const std::size_t most = std::numeric_limits<std::uint32_t>::max() >> (32 - 8 * f.foreign->length);
        const std::size_t count =
            counted.kind == Kind::text ? text_from(v, own).size() : elements_from(v, own, most).size();
        if (count > most) refuse(own, "longer than " + std::to_string(most) + " bytes");
        if (told != nullptr && number_from(told, below(at, f.name), f.foreign->length) != count)
            refuse(below(at, f.name), std::string("not the length of ") + counted.name + ", " + std::to_string(count) +
                                          "; it can be left out");
        put(count, f.foreign->length);
    }

    /// Returns the number of its elements or characters.
    std::size_t content(const Field& f, Value v, const std::string& at) {
        const std::size_t start = message_.size();
        switch (f.kind) {
        case Kind::text: put(text_from(v, at)); return message_.size() - start;
        case Kind::run:
            if (v == nullptr || !v->is_string()) {
                elements(f, elements_from(v, at, f.capacity), at);
                message_.resize(start + f.capacity);
                return f.capacity;
            }
            [[fallthrough]];
        case Kind::characters: {
            const Bytes text = text_from(v, at);
            if (text.size() > f.capacity) refuse(at, "longer than " + std::to_string(f.capacity) + " bytes");
            put(text);
            message_.resize(start + f.capacity);
            return f.capacity;
        }
        case Kind::list: put(elements_from(v, at, most_values).size(), 4); [[fallthrough]];
        case Kind::array: return elements(f, elements_from(v, at, most_values), at);
        default: element(f, v, at); return 1;
        }
    }

    std::size_t elements(const Field& f, const Json::array_t& all, const std::string& at) {
        for (std::size_t i = 0; i < all.size(); ++i) element(f, &all[i], below(at, i));
        return all.size();
    }

    void element(const Field& f, Value v, const std::string& at) {
        if (f.is_of_record())
            record(*f.record, v, at);
        else
            imported(*f.foreign, v, at);
    }

    void state_flags(const Field& f, Value v, const std::string& at, std::size_t present) {
        const bool has_none = (f.kind == Kind::text || f.kind == Kind::array) && present == 0;
        const std::size_t count = has_none ? 0 : f.has_element_flags() ? 1 + present : 1;
        Bytes all = hex_from(v, at);
        if (all.size() > count && count == 0) refuse(at, "no state flag, because the field is empty");
        if (all.size() > count)
            refuse(at, "more than " + std::to_string(count) + (count == 1 ? " state flag" : " state flags"));
        all.resize(count);
        put(all);
    }

    /// Numbers and everything else that another library supplies.
    void imported(const Foreign& type, Value v, std::string at) {
        switch (type.framing) {
        case Framing::number:
            put(&type == &catalogue::zur_boolean && v != nullptr && v->is_boolean()
                    ? static_cast<std::uint64_t>(v->get<bool>())
                    : number_from(v, at, type.wire_length),
                type.wire_length);
            break;
        case Framing::character: put(static_cast<std::uint8_t>(signed_byte_from(v, at)), 1); break;
        case Framing::enumerated:
            put(static_cast<std::uint8_t>(take_variant(v, at, 0)), 1);
            put(number_from(v, at, 4), 4);
            break;
        case Framing::mac: put(mac_from(v, at)); break;
        case Framing::address: put(address_from(v, at)); break;
        case Framing::text: counted(text_from(v, at)); break;
        case Framing::bytes: counted(hex_from(v, at)); break;
        case Framing::typed:
            if (v != nullptr) require_members(*v, at, {member::type, member::value});
            put(number_from(v != nullptr ? find(*v, member::type) : v, below(at, member::type), 4), 4);
            counted(hex_from(v != nullptr ? find(*v, member::value) : v, below(at, member::value)));
            break;
        }
    }

    void counted(const Bytes& bytes) {
        put(bytes.size(), 4);
        put(bytes);
    }

    Bytes message_;
};

} // namespace

Bytes from_json(const Type& type, std::string_view document) {
    return MessageWriter().whole(type, parsed(document));
}

} // namespace epm::tool
