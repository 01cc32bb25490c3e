// What the fuzz targets share: all types with the operations that a receiver uses; memory that is counted, filled with
// a byte other than zero, and limited for each input; seeds from the tests' golden corpus.
#pragma once

#include "catalogue/catalogue.hpp"
#include "tool/operations.hpp"

#include <platform/domain.h>
#include <platform/xml.h>
#include <zur/types.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

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

    TypeCalls(const char* type, bool is_an_enum) : Operations(type), name(type), is_enum(is_an_enum) {}
};

inline const std::vector<TypeCalls>& types() {
    static const std::vector<TypeCalls> all = [] {
        std::vector<TypeCalls> list;
        for (const catalogue::Record* r : catalogue::all_records) list.emplace_back(r->name, false);
        for (const catalogue::Enum* e : catalogue::all_enums) list.emplace_back(e->name, true);
        return list;
    }();
    return all;
}

// ---- seeds ----

/// The images of the golden corpus: number of the type in the order of the type table, whether tracked, bytes.
inline void for_each_image(const std::function<void(std::size_t, bool, const std::string&)>& body) {
    for (std::size_t t = 0; t < types().size(); ++t) {
        std::ifstream file(EPM_GOLDEN_DIR "/" + types()[t].name + ".hex");
        std::string image;
        bool is_tracked = false;
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '#') continue;
            if (line[0] == '[') {
                if (!image.empty()) body(t, is_tracked, std::exchange(image, {}));
                is_tracked = line.find(", tracked") != std::string::npos;
                continue;
            }
            for (std::size_t i = 0; i + 1 < line.find(' '); i += 2)
                image += static_cast<char>(std::stoi(line.substr(i, 2), nullptr, 16));
        }
        if (!image.empty()) body(t, is_tracked, image);
    }
}

using Seeds = std::function<void(const std::string&)>;

/// Has the seeds written into a folder beside the program and adds that folder to the program's arguments. An input
/// that is replayed is a file and needs no seeds.
inline int with_seeds(int* count, char*** arguments, const char* option,
                      const std::function<void(const Seeds&)>& write) {
    static std::vector<char*> more(*arguments, *arguments + *count);
    static std::string folder = std::string(more[0]) + ".seeds", last_option = option;
    for (std::size_t i = 1; i < more.size(); ++i)
        if (more[i][0] != '-' && std::filesystem::is_regular_file(more[i])) return 0;
    std::filesystem::create_directories(folder);
    std::size_t n = 0;
    write([&](const std::string& seed) {
        std::ofstream(std::filesystem::path(folder) / std::to_string(n++), std::ios::binary) << seed;
    });
    if (!last_option.empty()) more.push_back(last_option.data());
    more.push_back(folder.data());
    *count = static_cast<int>(more.size());
    more.push_back(nullptr);
    *arguments = more.data();
    return 0;
}

} // namespace epm::fuzz
