// What the stamp writes into its folder, one function for each file or group of files.
#pragma once

#include <filesystem>
#include <string>

namespace epm::stamp {

void write_header(const std::filesystem::path& folder);
void write_definitions(const std::filesystem::path& folder);
void write_version_script(const std::filesystem::path& folder);
void write_export_list(const std::filesystem::path& folder);
void write_trace_catalogue(const std::filesystem::path& folder);
void write_debugger_tables(const std::filesystem::path& folder);
void write_data(const std::filesystem::path& folder);
void write_schemas(const std::filesystem::path& folder);
void write_wireshark_tables(const std::filesystem::path& folder);
/// The description as data in a section of the library file.
void write_description_section(const std::filesystem::path& folder, const std::string& description);
void write_manifest(const std::filesystem::path& folder, const std::string& build_record);

} // namespace epm::stamp
