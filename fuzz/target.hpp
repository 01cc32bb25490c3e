// What the fuzz targets share: all types with the operations that a receiver uses; memory that is counted, filled with
// a byte other than zero, and limited for each input; seeds.
#pragma once

#include "tests/support/images.hpp"
#include "tool/operations.hpp"
#include "tool/types.hpp"

#include <platform/domain.h>
#include <platform/xml.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <unordered_set>

namespace epm::fuzz {

inline void demand(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what.c_str());
    std::abort();
}

// ---- memory ----

inline std::unordered_set<void*> blocks;
inline std::size_t budget = 0; ///< bytes that are left to an input

/// A Domain that uses this memory.
inline zur_domain* make_domain(std::uint32_t tracking, std::uint32_t store_mode = 0) {
    platform_domain_options options{};
    options.tracking = tracking;
    options.store_mode = store_mode;
    options.obj_alloc_fn = [](void*, std::uint32_t, std::size_t size) -> void* {
        if (size > budget) return nullptr;
        budget -= size;
        return *blocks.insert(std::memset(std::malloc(size), 0xA5, size)).first;
    };
    options.obj_free_fn = [](void*, std::uint32_t, void* block) {
        demand(blocks.erase(block) == 1, "only what is there is released");
        std::free(block);
    };
    return platform_domain_create(&options);
}

// ---- types ----

struct TypeCalls : tool::Operations {
    std::string name;
    bool is_enum;

    explicit TypeCalls(const tool::Type& type) : Operations(type.name), name(type.name), is_enum(type.is_enum()) {}
};

inline const std::vector<TypeCalls>& types() {
    static const std::vector<TypeCalls> all(tool::all_types().begin(), tool::all_types().end());
    return all;
}

// ---- seeds ----

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
