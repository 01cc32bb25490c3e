// Reads a description: finds it, unpacks it, and takes its members. Unknown members are passed over.
#include "tool/compat/description.hpp"

#include "tool/failure.hpp"
#include "tool/library_file.hpp"

#include <bzlib.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <unordered_set>

namespace epm::tool::compat {

namespace {

using nlohmann::json;

constexpr const char* section_name = ".orlan_epm_description";

[[noreturn]] void refuse(const std::string& where, const std::string& reason) {
    throw Failure{is_damaged, "the description: " + (where.empty() ? "" : where + ": ") + reason};
}

bool is_word(std::string_view text) {
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz0123456789";
    return !text.empty() && text.find_first_not_of(letters) == text.npos && (text[0] < '0' || text[0] > '9');
}

/// An object of the description, which knows where it is.
class Object {
public:
    Object(const json& value, std::string where) : value_(value), where_(std::move(where)) {
        if (!value.is_object()) refuse(where_, "not an object");
    }

    bool has(const char* name) const { return value_.contains(name); }
    std::string text(const char* name) const {
        if (!member(name).is_string()) refuse(path(name), "not a string");
        return member(name);
    }
    /// A text of letters, digits and underscores.
    std::string word(const char* name) const {
        std::string text = this->text(name);
        if (!is_word(text)) refuse(path(name), "not a name");
        return text;
    }
    std::string digest(const char* name) const {
        std::string text = this->text(name);
        const auto bytes = bytes_of(text);
        if (!bytes || bytes->size() != 16) refuse(path(name), "not 32 hexadecimal digits");
        return text;
    }
    std::size_t number(const char* name) const {
        if (!member(name).is_number_unsigned() || member(name).get<std::uint64_t>() > UINT32_MAX)
            refuse(path(name), "not a number of 32 bits");
        return member(name);
    }
    std::optional<std::size_t> number_or_none(const char* name) const {
        return has(name) && !member(name).is_null() ? std::optional(number(name)) : std::nullopt;
    }
    /// Calls body(element, where) for each element of an array.
    template <class Body>
    void each(const char* name, Body body) const {
        const json& array = member(name);
        if (!array.is_array()) refuse(path(name), "not an array");
        for (std::size_t i = 0; i < array.size(); ++i) body(array[i], path(name) + "[" + std::to_string(i) + "]");
    }
    template <class Body>
    void each_object(const char* name, Body body) const {
        each(name, [&](const json& element, const std::string& where) { body(Object(element, where)); });
    }
    [[noreturn]] void refuse_this(const std::string& reason) const { refuse(where_, reason); }

private:
    const json& member(const char* name) const {
        const auto found = value_.find(name);
        if (found == value_.end()) refuse(where_, std::string("no member ") + name);
        return *found;
    }
    std::string path(const char* name) const { return (where_.empty() ? "" : where_ + ".") + name; }

    const json& value_;
    const std::string where_;
};

/// Refuses a second thing of the same name.
class Names {
public:
    void add(const Object& object, const std::string& name) {
        if (!seen_.insert(name).second) object.refuse_this("a second " + name);
    }

private:
    std::unordered_set<std::string> seen_;
};

/// The first variant of a field or enumerator, which must not be below that of the one before it.
std::size_t take_since(const Object& object, const Type& type, std::size_t before) {
    const std::size_t since = object.number("since");
    if (since < before) object.refuse_this("variants fall");
    if (since > type.top_variant) object.refuse_this("of a later variant than the type has");
    return since;
}

void take_fields(const Object& object, Type& type) {
    object.each_object("variants", [&](const Object& v) {
        if (v.number("variant") != type.variants.size()) v.refuse_this("not the next variant");
        type.variants.push_back({v.number("used_length"), v.number("size"), v.number("state_flags")});
    });
    if (type.variants.size() != type.top_variant + 1) object.refuse_this("not one entry for each variant");
    Names names;
    object.each_object("fields", [&](const Object& f) {
        Field field{.name = f.word("name"),
                    .kind = f.word("kind"),
                    .type = f.word("type"),
                    .length_field = f.has("length_field") ? f.word("length_field") : "",
                    .since = take_since(f, type, type.fields.empty() ? 0 : type.fields.back().since),
                    .offset = f.number("offset"),
                    .size = f.number("size"),
                    .elements = f.number_or_none("elements").value_or(0),
                    .state_flag = f.number_or_none("state_flag"),
                    .nested_flags = f.number_or_none("nested_flags"),
                    .tag = f.number_or_none("tag")};
        names.add(f, field.name);
        type.fields.push_back(std::move(field));
    });
    type.links = object.number_or_none("links");
}

void take_enumerators(const Object& object, Type& type) {
    Names names;
    object.each_object("enumerators", [&](const Object& e) {
        if (e.number("number") != type.enumerators.size()) e.refuse_this("not the next number");
        const std::size_t before = type.enumerators.empty() ? 0 : type.enumerators.back().since;
        type.enumerators.push_back({e.word("name"), e.number("number"), take_since(e, type, before)});
        names.add(e, type.enumerators.back().name);
    });
}

Type take_type(const Object& object) {
    Type type{.name = object.word("name"),
              .title = object.word("title"),
              .kind = object.word("kind"),
              .identity = object.digest("identity"),
              .compatibility = object.digest("compatibility"),
              .top_variant = object.number("top_variant"),
              .size = object.number("size"),
              .links = {},
              .variants = {},
              .fields = {},
              .enumerators = {}};
    if (type.top_variant > 127) object.refuse_this("the top variant is above 127");
    if (type.kind == "record")
        take_fields(object, type);
    else if (type.kind == "enum")
        take_enumerators(object, type);
    else
        object.refuse_this("neither a record nor an enum");
    return type;
}

/// Each type of a field must be described, by the library or as imported.
void check_types(const Description& all) {
    std::unordered_set<std::string> known;
    for (const Type& type : all.types) known.insert(type.name);
    for (const Imported& type : all.imported) known.insert(type.name);
    for (const Type& type : all.types)
        for (const Field& field : type.fields)
            if (!known.contains(field.type))
                refuse("", type.name + "." + field.name + " is of an unknown type, " + field.type);
}

/// As much as a damaged stream gives is not enough, so that is a failure.
std::string unpacked(const Section& section) {
    std::string text(most_description, 0);
    auto length = static_cast<unsigned>(text.size());
    const int result = BZ2_bzBuffToBuffDecompress(
        text.data(), &length, const_cast<char*>(as_text(section.bytes).data()),
        static_cast<unsigned>(std::min<std::size_t>(section.bytes.size(), most_description)), 0, 0);
    if (result == BZ_OUTBUFF_FULL) throw Damage{section.offset, "the description is too long"};
    if (result != BZ_OK) throw Damage{section.offset, "the description's stream is damaged"};
    text.resize(length);
    return text;
}

bool is_library(ByteView file) {
    return as_text(file).starts_with("\177ELF");
}

std::string description_of(ByteView library, const std::string& file_name) {
    try {
        return unpacked(section_named(library, section_name));
    } catch (const Failure& failure) {
        if (!failure.reason.starts_with("no section ")) throw;
        const auto beside = std::filesystem::path(file_name).parent_path() / "orlan_epm.json";
        std::error_code none;
        if (file_name == "-" || !std::filesystem::exists(beside, none))
            throw Failure{is_damaged, std::string("no description: it has no section ") + section_name +
                                          ", and no orlan_epm.json is beside it"};
        return std::string(as_text(read_file(beside.string(), most_description)));
    }
}

} // namespace

Description parse(std::string_view text) {
    if (text.size() > most_description) refuse("", "longer than " + std::to_string(most_description) + " bytes");
    json value;
    try {
        value = json::parse(text);
    } catch (const json::parse_error& error) {
        throw Damage{error.byte, "the description is not JSON"};
    } catch (const json::exception&) {
        refuse("", "a number in it is too large");
    }
    const Object root(value, "");
    if (!root.has("format") || !root.has("library")) refuse("", "this is not one");
    if (const std::size_t format = root.number("format"); format != 1)
        refuse("", "its format is " + std::to_string(format) + ", and only format 1 is known here");
    if (const std::string library = root.text("library"); library != "orlan_epm")
        refuse("", "it is of another library, " + escaped(library));

    Description all{.version = root.text("version"),
                    .soname = root.text("soname"),
                    .version_node = root.text("version_node"),
                    .types = {},
                    .imported = {},
                    .functions = {},
                    .data = {},
                    .trace_digest = root.digest("trace_digest"),
                    .messages = {},
                    .needs = {}};
    Names types, identities, exports;
    root.each_object("types", [&](const Object& t) {
        all.types.push_back(take_type(t));
        types.add(t, all.types.back().name);
        identities.add(t, all.types.back().identity);
    });
    root.each_object("imported_types", [&](const Object& t) {
        all.imported.push_back({t.word("name"), t.word("shape"), t.word("framing"), t.number("size"),
                                t.number("alignment"), t.number_or_none("wire_length").value_or(0),
                                t.number_or_none("state_flags").value_or(0)});
        types.add(t, all.imported.back().name);
    });
    root.each_object("functions", [&](const Object& f) {
        all.functions.push_back({f.word("name"), f.text("signature")});
        exports.add(f, all.functions.back().name);
    });
    root.each("data", [&](const json& name, const std::string& where) {
        if (!name.is_string() || !is_word(name.get<std::string>())) refuse(where, "not a name");
        all.data.push_back(name);
        exports.add(root, all.data.back());
    });
    root.each_object("traces", [&](const Object& m) {
        if (m.number("index") != all.messages.size()) m.refuse_this("not the next index");
        all.messages.push_back({m.number("identifier"), m.text("key"), m.text("text")});
    });
    check_types(all);
    return all;
}

Description read(ByteView file, const std::string& file_name) {
    if (!is_library(file)) {
        const std::string_view text = as_text(file);
        if (text.find_first_not_of(" \t\r\n") == text.npos || text[text.find_first_not_of(" \t\r\n")] != '{')
            throw Failure{is_damaged, "neither an ELF file nor a description in JSON"};
        return parse(text);
    }
    Description description = parse(description_of(file, file_name));
    check_against(file, description);
    return description;
}

} // namespace epm::tool::compat
