// The images of the golden corpus, by type.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace epm::test {

struct Image {
    std::string name; ///< "<type>, variant 1, tracked", and in a union the arm
    std::vector<std::uint8_t> bytes;
};

inline std::vector<Image> images_of(const std::string& type) {
    std::vector<Image> all;
    std::ifstream file(EPM_SOURCE_DIR "/tests/golden/" + type + ".hex");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with('['))
            all.push_back({line.substr(1, line.size() - 2), {}});
        else if (!line.starts_with('#'))
            for (std::size_t i = 0; i + 1 < std::min(line.find(' '), line.size()); i += 2)
                all.back().bytes.push_back(static_cast<std::uint8_t>(std::stoi(line.substr(i, 2), nullptr, 16)));
    return all;
}

} // namespace epm::test
