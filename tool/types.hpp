// The types of the Bundle as the tool knows them, all from the catalogue's tables: finds them by name, finds the
// operations that the library exports for them, and describes them.
#pragma once

#include "catalogue/catalogue.hpp"

#include <zur/types.h>

#include <ostream>
#include <string>
#include <vector>

struct zur_xml_document;

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

/// The operations of a type that the tool calls. They are found in the library by name.
struct Operations {
    zur_instance* (*create)(zur_domain*, std::uint32_t);
    void (*destroy)(zur_domain*, std::uint32_t, zur_instance*);
    std::uint32_t (*length)(zur_domain*, std::uint32_t, const zur_instance*);
    std::uint32_t (*marshal)(zur_domain*, std::uint32_t, void*, const zur_instance*, std::int32_t, std::uint32_t*);
    std::uint32_t (*unmarshal)(zur_domain*, std::uint32_t, const void*, zur_instance*, std::int32_t, std::uint32_t,
                               std::uint32_t*);
    std::uint32_t (*print)(zur_domain*, std::uint32_t, char*, std::uint32_t, const char*, const zur_instance*,
                           std::uint32_t, std::uint32_t*);
    std::uint32_t (*to_xml)(zur_domain*, std::uint32_t, const char*, char*, const zur_instance*, std::uint32_t,
                            std::uint32_t, std::uint32_t*);
    void (*from_xml)(zur_domain*, std::uint32_t, const char*, zur_xml_document*, zur_instance*, std::uint32_t*, char*,
                     std::uint32_t);

    explicit Operations(const Type& type);
};

/// The name of a field's type, or of its elements' type.
std::string type_of(const Field& f);

enum class TypesForm { table, json, names };

void show_types(TypesForm form, std::ostream& out);
void show_type(const Type& type, bool is_json, std::ostream& out);

} // namespace epm::tool
