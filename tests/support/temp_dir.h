#ifndef VEXTEST_TEMP_DIR_H
#define VEXTEST_TEMP_DIR_H

#include <string>
#include <vector>

namespace vextest {

/// A fresh folder that is removed, with all it holds, at the end of the scope.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    /// The path of @p name inside the folder.
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    /// Names of the entries, sorted: to see that no stray file was left.
    std::vector<std::string> list() const;

private:
    std::string path_;
};

/// The bytes of a file; fails the test when it cannot be read.
std::string readFile(const std::string &path);
/// Writes a file anew; fails the test when that does not work.
void writeFile(const std::string &path, const std::string &bytes);
/// The permissions of a file.
unsigned modeOf(const std::string &path);
/// Open descriptors of the process: to see that none leaks.
int openDescriptors();

}  // namespace vextest

#endif
