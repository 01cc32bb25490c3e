// Rows of words in columns, for output that people read.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace epm::tool {

class Table {
public:
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    /// Each column is as wide as its longest word; the last one is not padded.
    void write(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

} // namespace epm::tool
