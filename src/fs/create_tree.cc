#include <errno.h>
#include <sys/stat.h>

#include <cstring>

#include <vex/encoding.h>
#include <vex/file.h>
#include <vex/path.h>

#include "base/directories.h"
#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

constexpr size_t kPathRoom = 4096;

int fail(const char *who, bool log, int err, const char *what) {
    errno = err;
    return !log ? -1 : VEX_FAIL_AS(who, err, err, -1, "%s", what);
}

/// @p path is the caller's copy, in UTF-8 and of at most kPathRoom bytes.
int createTree(const char *who, char *path, int mode, bool log) {
    vex_path_native(path);
    if (strlen(path) + 1 >= kPathRoom)
        return fail(who, log, ENAMETOOLONG, "path too long with slash");
    if (vex::makeDirectories(path, mode == 0 ? 0755 : static_cast<mode_t>(mode)) == 0) return 0;
    return fail(who, log, errno, "could not create directory");
}

int createTree(const char *who, const char *path, int mode, bool log) {
    if (path == nullptr || *path == '\0') return fail(who, log, EINVAL, "invalid NULL path");
    char copy[kPathRoom];
    const size_t length = strlen(path);
    if (length >= sizeof copy) return fail(who, log, ENAMETOOLONG, "source path too long");
    memcpy(copy, path, length + 1);
    return createTree(who, copy, mode, log);
}

int createTree(const char *who, const wchar_t *path, int mode, bool log) {
    if (path == nullptr || *path == L'\0') return fail(who, log, EINVAL, "invalid NULL path");
    if (wcslen(path) >= kPathRoom) return fail(who, log, ENAMETOOLONG, "source path too long");
    char copy[kPathRoom];
    if (vex_wcs_to_utf8(path, copy, sizeof copy) < 0) {
        if (errno == ENOBUFS) return fail(who, log, ENAMETOOLONG, "destination path too long");
        return fail(who, log, errno, "could not create directory");
    }
    return createTree(who, copy, mode, log);
}

int createDirectory(const char *who, const char *path, int mode) {
    if (mkdir(path, static_cast<mode_t>(mode)) == 0 || errno == EEXIST) return 0;
    return fail(who, true, errno, "could not create directory");
}

}  // namespace

int CreateDirA(const char *path, int mode) {
    if (path == nullptr) return fail(__func__, true, EINVAL, "invalid NULL path");
    return createDirectory(__func__, path, mode);
}

int CreateDirW(const wchar_t *path, int mode) {
    if (path == nullptr) return fail(__func__, true, EINVAL, "invalid NULL path");
    const vex::UniqueMalloc<char> narrow(vex_wcs_to_utf8_malloced(path));
    if (!narrow) return fail(__func__, true, errno, "could not create directory");
    return createDirectory(__func__, narrow.get(), mode);
}

int CreateTreeA(const char *path, int mode) {
    return createTree(__func__, path, mode, true);
}
int CreateTreeW(const wchar_t *path, int mode) {
    return createTree(__func__, path, mode, true);
}

int CreateTreeLoggingOptionalA(const char *path, int mode, int log) {
    return createTree(__func__, path, mode, log != 0);
}
int CreateTreeLoggingOptionalW(const wchar_t *path, int mode, int log) {
    return createTree(__func__, path, mode, log != 0);
}
