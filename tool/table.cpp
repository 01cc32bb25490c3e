// Computes the widths of columns.
#include "tool/table.hpp"

#include <algorithm>

namespace epm::tool {

void Table::write(std::ostream& out) const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows_) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] - row[i].size() + 2, ' ');
        }
        line.resize(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

} // namespace epm::tool
