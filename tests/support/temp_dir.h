#ifndef VEXTEST_TEMP_DIR_H
#define VEXTEST_TEMP_DIR_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
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

}  // namespace vextest

#endif
