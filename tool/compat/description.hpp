// The description of a library, as orlan_epm.json and the library file have it, and what the library file itself says.
// Either file may come from anybody.
#pragma once

#include "tool/input.hpp"

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace epm::tool::compat {

struct Field {
    std::string name, kind, type, length_field;
    std::size_t since, offset, size, elements = 0;
    std::optional<std::size_t> state_flag, nested_flags, tag;

    bool is_length() const { return kind == "length"; }
};

struct Enumerator {
    std::string name;
    std::size_t number, since;
};

struct Variant {
    std::size_t used_length, size, state_flags;
    bool operator==(const Variant&) const = default;
};

struct Type {
    std::string name, title, kind, identity, compatibility;
    std::size_t top_variant, size;
    std::optional<std::size_t> links;
    std::vector<Variant> variants;       // of a record
    std::vector<Field> fields;           // of a record
    std::vector<Enumerator> enumerators; // of an enumeration
};

struct Imported {
    std::string name, shape, framing;
    std::size_t size, alignment, wire_length, state_flags;
};

struct Function {
    std::string name, signature;
};

struct Message {
    std::size_t identifier;
    std::string key, text;
    auto operator<=>(const Message&) const = default;
};

/// What a library file needs of others.
struct Needs {
    std::set<std::string> libraries, symbols, weak_symbols;
};

struct Description {
    std::string version, soname, version_node;
    std::vector<Type> types; // in the order of the type table
    std::vector<Imported> imported;
    std::vector<Function> functions;
    std::vector<std::string> data;
    std::string trace_digest;
    std::vector<Message> messages; // by index
    std::optional<Needs> needs;    // of a library file
};

/// Longer descriptions are refused.
inline constexpr std::size_t most_description = 16u << 20;

/// Reads a library file or a description in JSON. The description of a library file is in its section or, in a file
/// without one, in orlan_epm.json in the folder of the file. Throws Damage or a Failure, also if the library file
/// exports anything else than its description says.
Description read(ByteView file, const std::string& file_name);

/// Reads a description in JSON.
Description parse(std::string_view json);

/// Takes what the library file needs, and checks the description against what the file exports and holds.
void check_against(ByteView library, Description& description);

} // namespace epm::tool::compat
