// The file calls for wide paths, but for directories: see wide_directory.cc.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vex/encoding.h>
#include <vex/wide.h>

#include "text/narrow_path.h"

namespace {

using vex::text::NarrowPath;

/// Makes a call on the narrow form of a path; @p failure when it has none.
template <typename Result, typename Call>
Result onPath(const wchar_t *path, Result failure, Call call) {
    const NarrowPath narrow(path);
    return narrow.good() ? call(narrow.text()) : failure;
}

template <typename Call>
int onPath(const wchar_t *path, Call call) {
    return onPath(path, -1, call);
}

template <typename Call>
int onPaths(const wchar_t *first, const wchar_t *second, Call call) {
    const NarrowPath a(first), b(second);
    return a.good() && b.good() ? call(a.text(), b.text()) : -1;
}

bool hasRoom(const wchar_t *out, size_t size) {
    if (out != nullptr && size > 0) return true;
    errno = EINVAL;
    return false;
}

}  // namespace

int wcsaccess(const wchar_t *path, int mode) {
    return onPath(path, [&](const char *narrow) { return ::access(narrow, mode); });
}

int wcsstat(const wchar_t *path, struct stat *status) {
    return onPath(path, [&](const char *narrow) { return ::stat(narrow, status); });
}

int wcslstat(const wchar_t *path, struct stat *status) {
    return onPath(path, [&](const char *narrow) { return ::lstat(narrow, status); });
}

int wcsopen(const wchar_t *path, int flags, mode_t mode) {
    return onPath(path,
                  [&](const char *narrow) { return ::open(narrow, flags | O_CLOEXEC, mode); });
}

int wcscreat(const wchar_t *path, mode_t mode) {
    return wcsopen(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

FILE *wcsfopen(const wchar_t *path, const char *mode) {
    char cloexec[16];
    if (mode == nullptr || snprintf(cloexec, sizeof cloexec, "%se", mode) >= 16)
        return errno = EINVAL, nullptr;
    return onPath(path, static_cast<FILE *>(nullptr),
                  [&](const char *narrow) { return ::fopen(narrow, cloexec); });
}

int wcstruncate(const wchar_t *path, off_t length) {
    return onPath(path, [&](const char *narrow) { return ::truncate(narrow, length); });
}

int wcschdir(const wchar_t *path) {
    return onPath(path, ::chdir);
}

int wcsmkdir(const wchar_t *path, mode_t mode) {
    return onPath(path, [&](const char *narrow) { return ::mkdir(narrow, mode); });
}

int wcsrmdir(const wchar_t *path) {
    return onPath(path, ::rmdir);
}

int wcsunlink(const wchar_t *path) {
    return onPath(path, ::unlink);
}

int wcsremove(const wchar_t *path) {
    return onPath(path, ::remove);
}

int wcsrename(const wchar_t *from, const wchar_t *to) {
    return onPaths(from, to, ::rename);
}

int wcschmod(const wchar_t *path, mode_t mode) {
    return onPath(path, [&](const char *narrow) { return ::chmod(narrow, mode); });
}

int wcschown(const wchar_t *path, uid_t owner, gid_t group) {
    return onPath(path, [&](const char *narrow) { return ::chown(narrow, owner, group); });
}

int wcslink(const wchar_t *existing, const wchar_t *path) {
    return onPaths(existing, path, ::link);
}

int wcssymlink(const wchar_t *target, const wchar_t *path) {
    return onPaths(target, path, ::symlink);
}

ssize_t wcsreadlink(const wchar_t *path, wchar_t *out, size_t size) {
    if (!hasRoom(out, size)) return -1;
    return onPath(path, ssize_t{-1}, [&](const char *narrow) -> ssize_t {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(narrow, target, sizeof target - 1);
        if (length < 0) return -1;
        target[length] = '\0';
        return vex_utf8_to_wcs(target, out, size);
    });
}

wchar_t *wcsgetcwd(wchar_t *out, size_t size) {
    char directory[PATH_MAX];
    if (!hasRoom(out, size) || ::getcwd(directory, sizeof directory) == nullptr) return nullptr;
    if (vex_utf8_to_wcs(directory, out, size) >= 0) return out;
    errno = ERANGE;
    return nullptr;
}
