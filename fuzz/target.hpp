// What the fuzz targets share: how they tell that something does not hold, and seeds.
#pragma once

#include "tests/support/images.hpp"
#include "tool/types.hpp"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

namespace epm::fuzz {

inline void demand(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what.c_str());
    std::abort();
}

using Seeds = std::function<void(const std::string&)>;

/// What a target starts from.
void write_seeds(const Seeds& write);

} // namespace epm::fuzz

/// Has the seeds written into a folder beside the program and adds that folder to the program's arguments. An input
/// that is replayed is a file and needs no seeds.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    static std::vector<char*> more(*arguments, *arguments + *count);
    static std::string folder = std::string(more[0]) + ".seeds";
    for (std::size_t i = 1; i < more.size(); ++i)
        if (more[i][0] != '-' && std::filesystem::is_regular_file(more[i])) return 0;
    std::filesystem::create_directories(folder);
    std::size_t n = 0;
    epm::fuzz::write_seeds([&](const std::string& seed) {
        std::ofstream(std::filesystem::path(folder) / std::to_string(n++), std::ios::binary) << seed;
    });
    more.insert(more.end(), {folder.data(), nullptr});
    *count = static_cast<int>(more.size() - 1);
    *arguments = more.data();
    return 0;
}
