// What the stamp writes, one function a file or group of files.
#pragma once

#include "stamp/operation.hpp"

#include <filesystem>
#include <string>

namespace epm::stamp {

/// One exported function: whose it is, and its whole name.
struct Export {
    std::string name;
    std::string template_arguments; ///< empty for a global operation
    Operation operation;
    const char* family;
};

/// Exports of one type, in the order of its families and fields.
struct TypeExports {
    const char* type;
    const char* doc;
    std::vector<Export> exports;
};

/// All types in type-table order.
const std::vector<TypeExports>& all_exports();
/// The operations of the Bundle itself.
const std::vector<Export>& global_exports();
/// Names of the exported data objects.
std::vector<std::string> exported_data();

/// Writes a file unless it already holds this text, so that an unchanged file is not compiled again.
void write_file(const std::filesystem::path& path, const std::string& text);

void write_header(const std::filesystem::path& folder);
void write_exports(const std::filesystem::path& folder);
void write_version_script(const std::filesystem::path& folder);
void write_export_list(const std::filesystem::path& folder);
void write_trace_catalogue(const std::filesystem::path& folder);
void write_debugger_tables(const std::filesystem::path& folder);
void write_manifest(const std::filesystem::path& folder, const std::string& build_record);

/// The first fault of the exports as a whole: two that bear one name, or an operation without a brief. Empty: none.
std::string fault_in_exports();

} // namespace epm::stamp
