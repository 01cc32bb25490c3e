// Runs orlan-epm-store.
#include "tool/store.hpp"

#include "tool/failure.hpp"

#include <unistd.h>

#include <filesystem>

namespace epm::tool {

void run_store_program(const std::vector<std::string>& arguments) {
    std::error_code error;
    const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string program = own.parent_path() / "orlan-epm-store";
    std::vector<char*> words = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    execv(program.c_str(), words.data());
    throw Failure{has_no_file, "orlan-epm-store is not installed beside orlan-epm"};
}

} // namespace epm::tool
