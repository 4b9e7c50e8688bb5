// Folders, files and data for tests.
#ifndef VEXTEST_DATA_H
#define VEXTEST_DATA_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vextest {

/// A fresh folder that is removed, with all it holds, at the end of the scope.
class TempDir {
public:
    TempDir() { EXPECT_NE(nullptr, mkdtemp(path_.data())) << path_; }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    /// The path of @p name inside the folder.
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    /// Names of the entries, sorted: to see that no stray file was left.
    std::vector<std::string> list() const {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(path_)) names.insert(entry.path().filename());
        return {names.begin(), names.end()};
    }
    /// Removes its files.
    void empty() const {
        for (const auto &name : list()) std::filesystem::remove(*this / name);
    }

private:
    std::string path_ = (std::filesystem::temp_directory_path() / "vextest-XXXXXX").string();
};

/// The bytes of a file; fails the test when it cannot be read.
inline std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Writes a file anew; fails the test when that does not work.
inline void writeFile(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.close();
    EXPECT_TRUE(out.good()) << path;
}

/// The permissions of a file.
inline unsigned modeOf(const std::string &path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
}

/// Open descriptors of the process: to see that none leaks.
inline int openDescriptors() {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

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
