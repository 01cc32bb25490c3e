// Reading the kept list.
#include "support/types.hpp"

#include <fstream>
#include <sstream>

namespace epm::test {

namespace {

std::vector<std::size_t> numbers(const std::string& text) {
    std::vector<std::size_t> list;
    std::istringstream in(text);
    for (std::string one; std::getline(in, one, '/');) list.push_back(std::stoul(one));
    return list;
}

/// `type NAME record variants 3 used 56/68/76 size 96 tracked 107`, `type NAME enum variants 2 enumerators 9 size 16`
TypeNumbers read(std::istringstream& words) {
    TypeNumbers t;
    std::string kind;
    words >> t.name >> kind;
    t.is_enum = kind == "enum";
    std::size_t variants = 0;
    for (std::string word, value; words >> word >> value;) {
        if (word == "variants") variants = std::stoul(value);
        if (word == "used") t.used = numbers(value);
        if (word == "size") t.size = t.tracked = std::stoul(value);
        if (word == "tracked") t.tracked = std::stoul(value);
    }
    if (t.is_enum) t.used.assign(variants, 16);
    return t;
}

} // namespace

const std::vector<TypeNumbers>& all_types() {
    static const std::vector<TypeNumbers> all = [] {
        std::vector<TypeNumbers> list;
        std::ifstream file(EPM_SOURCE_DIR "/tests/expected/layouts.txt");
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string first;
            words >> first;
            if (first == "type") list.push_back(read(words));
        }
        return list;
    }();
    return all;
}

} // namespace epm::test
