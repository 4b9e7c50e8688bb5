#ifndef VEXTEST_DATA_H
#define VEXTEST_DATA_H

#include <stdlib.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace vextest {

/// The seed of every random operation: fixed, or VEX_TEST_SEED; printed when a test fails.
inline unsigned long testSeed() {
    const char *const text = getenv("VEX_TEST_SEED");
    return text != nullptr ? strtoul(text, nullptr, 10) : 20040707;
}

/// @p n random bytes, the same ones every time.
inline std::string testNoise(size_t n) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    std::string noise(n, '\0');
    for (char &c : noise) c = static_cast<char>(random());
    return noise;
}

/// Dense tables of short cases: each cell ends at '|', @p columns cells make a row. Blanks belong to their cell.
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
