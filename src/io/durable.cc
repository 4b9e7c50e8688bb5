#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <vex/io.h>

#include "base/eintr.h"
#include "base/unique_fd.h"
#include "log/report.h"

namespace {

bool missing(const char *path) {
    return path == nullptr || *path == '\0';
}

/// -1 after the line for a NULL argument, which @p quiet suppresses like the others.
int nullArgument(const char *who, int quiet) {
    errno = EINVAL;
    return quiet != 0 ? -1 : VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
}

const char *describeMissing(const char *path) {
    return path == nullptr ? "NULL pointer" : "<empty>";
}

}  // namespace

int dirfsync(const char *path, int quiet) {
    if (path == nullptr) return nullArgument(__func__, quiet);

    vex::UniqueFd dir(
        vex::retryOnEintr([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!dir)
        return quiet != 0 ? -1 : VEX_FAIL(errno, -1, "Could not open directory '%s': %m", path);
    if (safe_fsync(dir.get()) != 0)
        return quiet != 0 ? -1 : VEX_FAIL(errno, -1, "Could not fsync directory '%s': %m", path);
    if (dir.close() != 0)
        return quiet != 0
                   ? -1
                   : VEX_FAIL(errno, -1,
                              "Close after fsync of directory '%s' returned an error: %m", path);
    return 0;
}

int rename_dirfsync(const char *from, const char *to, const char *dir, int quiet) {
    if (from == nullptr || to == nullptr || dir == nullptr) return nullArgument(__func__, quiet);
    if (::rename(from, to) != 0)
        return quiet != 0 ? -1 : VEX_FAIL(errno, -1, "Could not rename '%s' to '%s': %m", from, to);
    return dirfsync(dir, quiet);
}

int unlink_dirfsync(const char *path, const char *dir, int quiet) {
    if (path == nullptr || dir == nullptr) return nullArgument(__func__, quiet);
    if (::unlink(path) != 0)
        return quiet != 0 ? -1 : VEX_FAIL(errno, -1, "Could not unlink '%s': %m", path);
    return dirfsync(dir, quiet);
}

int safe_rename(const char *from, const char *to) {
    if (missing(from))
        return VEX_FAIL(EINVAL, -1, "invalid argument for src_path %s", describeMissing(from));
    if (missing(to))
        return VEX_FAIL(EINVAL, -1, "invalid argument for dst_path %s", describeMissing(to));
    return ::rename(from, to);
}
