// The types of the Bundle as the tool knows them, all from the catalogue's tables: finds them by name and describes
// them.
#pragma once

#include "catalogue/catalogue.hpp"

#include <ostream>
#include <string>
#include <vector>

namespace epm::tool {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Kind;
using catalogue::Record;

struct Type {
    std::string name;
    const Record* record = nullptr; ///< null for an enumeration
    const Enum* enumeration = nullptr;

    bool is_enum() const { return enumeration != nullptr; }
    std::int8_t top() const { return is_enum() ? enumeration->top() : record->top(); }
    const char* doc() const { return is_enum() ? enumeration->doc : record->doc; }
    const catalogue::Digests& digests() const { return is_enum() ? enumeration->digests : record->digests; }
};

/// All 58, in the order of the type table.
const std::vector<Type>& all_types();
/// Throws a Failure for an unknown name.
const Type& type_named(const std::string& name);

enum class TypesForm { table, json, names, tree };

void show_types(TypesForm form, std::ostream& out);
void show_type(const Type& type, bool is_json, std::ostream& out);

} // namespace epm::tool
