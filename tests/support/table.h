#ifndef VEXTEST_TABLE_H
#define VEXTEST_TABLE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vextest {

/// Dense tables of short cases: each cell ends at '|', @p columns cells make a row. Blanks belong
/// to their cell.
inline std::vector<std::vector<std::string>> table(size_t columns, std::string_view text) {
    std::vector<std::vector<std::string>> rows;
    for (size_t cell = 0; !text.empty(); ++cell) {
        if (cell % columns == 0) rows.emplace_back();
        const size_t bar = text.find('|');
        rows.back().emplace_back(text.substr(0, bar));
        text.remove_prefix(bar + 1);
    }
    return rows;
}

}  // namespace vextest

#endif
