#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vex/encoding.h>
#include <vex/file.h>

#include "base/errno_guard.h"
#include "base/unique_fd.h"
#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

struct DirectoryCloser {
    void operator()(DIR *directory) const {
        vex::ErrnoGuard guard;
        (void)closedir(directory);  // read only
    }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

/// Opens a directory entry itself, never what a link there points to.
Directory openDirectory(int parent, const char *name) {
    vex::UniqueFd fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) return nullptr;
    Directory directory(fdopendir(fd.get()));
    if (directory) (void)fd.release();  // the stream closes it
    return directory;
}

/// Removes a tree from its leaves up. Every step is relative to an open directory, so that nobody
/// can lead it elsewhere by renaming one or by putting a link in its place.
class TreeRemover {
public:
    TreeRemover(const char *who, std::string root) : who_(who), root_(std::move(root)) {}

    int run() {
        if (!descend(AT_FDCWD, root_)) return -1;
        while (!levels_.empty()) step();
        if (first_error_ == 0) return 0;
        errno = first_error_;
        return -1;
    }

private:
    struct Level {
        Directory directory;
        std::string name;
    };

    int parent() const {
        return levels_.size() < 2 ? AT_FDCWD : dirfd(levels_[levels_.size() - 2].directory.get());
    }

    /// The path as the caller would write it, for messages.
    std::string pathOf(const char *name) const {
        std::string path;
        for (const auto &level : levels_) path += level.name + "/";
        return path + name;
    }

    void failed(const char *name) {
        const int err = errno;
        if (first_error_ == 0) first_error_ = err;
        (void)VEX_FAIL_AS(who_, err, err, -1, "Could not delete %s (%m)", pathOf(name).c_str());
    }

    bool descend(int at, const std::string &name) {
        Directory directory = openDirectory(at, name.c_str());
        if (!directory) {
            if (first_error_ == 0) first_error_ = errno;
            return VEX_FAIL_AS(who_, errno, errno, false, "unable to open directory: %s",
                               pathOf(name.c_str()).c_str());
        }
        levels_.push_back({std::move(directory), name});
        return true;
    }

    /// Takes one entry of the innermost directory, or the directory itself when it has no more.
    void step() {
        DIR *const directory = levels_.back().directory.get();
        errno = 0;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this stream
        const dirent *const entry = readdir(directory);
        if (entry == nullptr) {
            if (errno != 0) failed("");
            return ascend();
        }
        const std::string name = entry->d_name;
        if (name == "." || name == "..") return;
        // a directory refuses this, and so does one on file systems that do not tell the type
        if (entry->d_type != DT_DIR && unlinkat(dirfd(directory), name.c_str(), 0) == 0) return;
        if (entry->d_type != DT_DIR && errno != EISDIR) return failed(name.c_str());
        (void)descend(dirfd(directory), name);  // reported; this directory will not be empty
    }

    void ascend() {
        const int at = parent();
        const std::string name = std::move(levels_.back().name);
        levels_.pop_back();
        if (unlinkat(at, name.c_str(), AT_REMOVEDIR) != 0) failed(name.c_str());
    }

    const char *who_;
    std::string root_;
    std::vector<Level> levels_;
    int first_error_ = 0;
};

int deleteTree(const char *who, const char *path) {
    std::string root(path);
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();  // behind a link it would name the target
    struct stat status {};
    if (lstat(root.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return TreeRemover(who, root).run();
    if (unlink(root.c_str()) == 0) return 0;
    return VEX_FAIL_AS(who, errno, errno, -1, "Could not delete %s (%m)", path);
}

int guardedDeleteTree(const char *who, const char *path) {
    return vex::guard(who, -1, [&] { return deleteTree(who, path); });
}

}  // namespace

int DeleteTreeA(const char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return guardedDeleteTree(__func__, path);
}

int DeleteTreeW(const wchar_t *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const vex::UniqueMalloc<char> narrow(vex_wcs_to_utf8_malloced(path));
    if (!narrow) return VEX_FAIL(errno, -1, "could not convert path");
    return guardedDeleteTree(__func__, narrow.get());
}
