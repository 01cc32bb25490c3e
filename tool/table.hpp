// Rows of words in columns, for the answers that people read.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace epm::tool {

class Table {
public:
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    /// Every column as wide as its longest word, the last one open.
    void write(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

} // namespace epm::tool
