#include "fs/reader.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/eintr.h"
#include "log/report.h"

namespace vex::fs {
namespace {

/// The descriptor, or an empty one after reporting the reason.
UniqueFd openFile(const char *who, const char *path) {
    UniqueFd fd(retryOnEintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    struct stat status {};
    if (!fd && errno == ENOENT)
        return VEX_FAIL_WARN_AS(who, ENOENT, ENOENT, UniqueFd(), "could not open file %s", path);
    if (!fd || fstat(fd.get(), &status) != 0)
        return VEX_FAIL_AS(who, errno, errno, UniqueFd(), "could not open file %s", path);
    if (S_ISDIR(status.st_mode))
        return VEX_FAIL_AS(who, EISDIR, EISDIR, UniqueFd(),
                           "directory passed as parameter where file was expected");
    return fd;
}

}  // namespace

UniqueFd openReader(const char *who, const char *path) {
    UniqueFd fd = openFile(who, path);
    if (!fd)
        return VEX_FAIL_AS(who, errno, errno, UniqueFd(), "could not open reader source %s", path);
    (void)posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);  // a wish; slower without
    return fd;
}

}  // namespace vex::fs
