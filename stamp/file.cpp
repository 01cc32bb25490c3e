#include "stamp/file.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace epm::stamp {

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string fixed_text(const std::string& name) {
    const std::string text = contents(std::filesystem::path(EPM_STAMP_FOLDER) / name);
    if (text.empty()) throw std::runtime_error("stamp: " + name + " is missing");
    return text;
}

void write_file(const std::filesystem::path& path, const std::string& text) {
    if (!std::filesystem::exists(path) || contents(path) != text) std::ofstream(path, std::ios::binary) << text;
}

} // namespace epm::stamp
