// What the stamp must know of one exported operation: its name, its C signature, the template that does the work, and
// what its documentation says. Each family of operations has one file of entries.
#pragma once

#include "catalogue/catalogue.hpp"

#include <optional>
#include <string>
#include <vector>

namespace epm::stamp {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Foreign;
using catalogue::Kind;
using catalogue::Record;

struct Parameter {
    std::string type; ///< C type, as it stands before the name
    std::string name;
    std::string doc;          ///< empty: the usual words for D, S, st
    bool is_instance = false; ///< an opaque structure of this Bundle, handed on as an Instance
};

/// Parameters that differ in number from type to type; the template takes them as one array.
struct Pack {
    std::string element; ///< C++ type of the array's elements
    std::size_t first;   ///< index of the first packed parameter
    std::size_t count;
};

struct Operation {
    std::string name;   ///< what follows `<type>_` or `<type>_<field>_`; the whole name of a global operation
    std::string result; ///< C type
    std::vector<Parameter> parameters;
    std::string call; ///< the template, such as "wire::marshal"; a global operation's plain function
    std::string brief;
    std::string returns = {}; ///< empty for void
    std::string leaves = {};  ///< every status number that it can leave; empty: none
    std::string cost = {};
    std::string template_arguments = {}; ///< further ones, behind the type and the field
    std::optional<Pack> pack = {};
};

/// The operations of one folder, and how its exports are spread over files.
struct Family {
    const char* name;
    std::vector<const char*> includes;
    std::size_t files;
    std::vector<Operation> (*of_record)(const Record&);
    std::vector<Operation> (*of_enum)(const Enum&);
    std::vector<Operation> (*of_field)(const Record&, const Field&);
};

const std::vector<Family>& families();

Family lifecycle_family();
Family access_family();
Family wire_family();
Family text_family();

/// Operations of the Bundle itself.
std::vector<Operation> frame_operations();

// ---- the parts that entries are made of ----

/// Whether the record, or a record that lies or hangs in it, has such a field.
template <class Predicate>
bool holds(const Record& r, Predicate predicate) {
    return r.any([&](const Field& f) { return predicate(f) || (f.is_of_record() && holds(*f.record, predicate)); });
}

inline Parameter domain(std::string doc = {}) {
    return {"zur_domain*", "D", std::move(doc)};
}
inline Parameter set_id() {
    return {"uint32_t", "S", {}};
}
inline Parameter status() {
    return {"uint32_t*", "st", {}};
}
inline Parameter plain(std::string type, std::string name, std::string doc) {
    return {std::move(type), std::move(name), std::move(doc)};
}
/// A record or enumeration of this Bundle that the operation may change.
template <class Type>
Parameter instance(const Type& type, std::string name, std::string doc) {
    return {std::string("struct ") + type.name + "*", std::move(name), std::move(doc), true};
}
template <class Type>
Parameter const_instance(const Type& type, std::string name, std::string doc) {
    return {std::string("const struct ") + type.name + "*", std::move(name), std::move(doc), true};
}
template <class Type>
std::string pointer_to(const Type& type) {
    return std::string("struct ") + type.name + "*";
}

/// C type of a primitive's or enumerated field's value.
inline std::string value_type(const Field& f) {
    if (f.is_enumerated()) return "uint32_t";
    switch (f.foreign->length) {
    case 1: return std::string_view(f.foreign->name) == "char" ? "char" : "uint8_t";
    case 2: return "uint16_t";
    case 8: return "uint64_t";
    default: return "uint32_t";
    }
}

/// C type of a field's storage: a number, or the opaque structure that lies there.
inline std::string storage_type(const Field& f) {
    if (f.is_own_enum()) return pointer_to(*f.enumeration);
    if (f.is_of_record()) return pointer_to(*f.record);
    if (f.foreign->shape == Foreign::Shape::primitive) return value_type(f) + "*";
    return pointer_to(*f.foreign);
}

/// A field's storage as a parameter.
inline Parameter storage(const Field& f, std::string name, std::string doc) {
    return {storage_type(f), std::move(name), std::move(doc), f.is_own_enum() || f.is_of_record()};
}

} // namespace epm::stamp
