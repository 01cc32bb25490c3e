// Everything that the library exports, in the order of every list: types in type-table order, their families, their
// fields.
#pragma once

#include "stamp/declaration.hpp"

namespace epm::stamp {

/// The version node of all exports.
inline constexpr char version_node[] = "ORLAN_EPM_1";

/// One exported function.
struct Export {
    std::string name;
    std::string template_arguments; ///< empty for a global operation
    Declaration operation;
    const char* family;
};

/// Exports of one type.
struct TypeExports {
    const char* type;
    const char* doc;
    std::vector<Export> exports;
};

const std::vector<TypeExports>& all_exports();
/// The operations of the Bundle itself.
const std::vector<Export>& global_exports();
/// Names of the exported data objects.
std::vector<std::string> exported_data();

/// Calls visit(e) for every exported function.
template <class F>
void for_each_export(F&& visit) {
    for (const Export& e : global_exports()) visit(e);
    for (const TypeExports& t : all_exports())
        for (const Export& e : t.exports) visit(e);
}

/// Throws when two exports have the same name, or when an export's documentation is incomplete.
void check_exports();

} // namespace epm::stamp
