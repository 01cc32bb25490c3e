// Files as the stamp reads and writes them.
#pragma once

#include <filesystem>
#include <string>

namespace epm::stamp {

/// The file's bytes; empty when it cannot be read.
std::string contents(const std::filesystem::path& path);

/// A text of this folder. Words in braces mark what varies.
std::string fixed_text(const std::string& name);

/// Writes a file unless it already has this text, so that an unchanged file is not compiled again.
void write_file(const std::filesystem::path& path, const std::string& text);

} // namespace epm::stamp
