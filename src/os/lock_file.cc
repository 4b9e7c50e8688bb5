// Lock files, and the locks under PID files. The locks belong to the open file, not to the process,
// so that threads exclude each other and closing an unrelated descriptor releases nothing.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>

#include <vex/process.h>

#include "base/eintr.h"
#include "base/monotonic.h"
#include "base/unique_fd.h"
#include "log/report.h"
#include "os/lock.h"

namespace vex::os {
namespace {

struct flock wholeFile(short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

}  // namespace

bool lockFile(int fd, bool wait) {
    struct flock lock = wholeFile(F_WRLCK);
    const int command = wait ? F_OFD_SETLKW : F_OFD_SETLK;
    if (retryOnEintr([&] { return ::fcntl(fd, command, &lock); }) == 0) return true;
    if (errno == EACCES) errno = EAGAIN;  // the system may say either
    return false;
}

int fileIsLocked(int fd) {
    struct flock lock = wholeFile(F_WRLCK);
    if (retryOnEintr([&] { return ::fcntl(fd, F_OFD_GETLK, &lock); }) != 0) return -1;
    return lock.l_type == F_UNLCK ? 0 : 1;
}

bool samePlace(int fd, const char *path) {
    struct stat open {
    }, there{};
    return fstat(fd, &open) == 0 && lstat(path, &there) == 0 && open.st_dev == there.st_dev &&
           open.st_ino == there.st_ino;
}

}  // namespace vex::os

namespace {

constexpr long kMillisecond = 1000000;
constexpr long kFirstPause = 5 * kMillisecond, kLongestPause = 100 * kMillisecond;

/// Tries again and again, a little less often each time, until the deadline.
bool lockUntil(int fd, long deadline) {
    long pause = kFirstPause;
    while (!vex::os::lockFile(fd, false)) {
        if (errno != EAGAIN || vex::monotonicMs() >= deadline) return false;
        const struct timespec nap = {0, pause};
        (void)nanosleep(&nap, nullptr);  // a signal only makes the next attempt earlier
        pause = std::min(2 * pause, kLongestPause);
        errno = EAGAIN;
    }
    return true;
}

}  // namespace

int VexLockFileAcquire(const char *path, int wait_seconds) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    vex::UniqueFd fd(vex::retryOnEintr(
        [&] { return ::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600); }));
    if (!fd) return VEX_FAIL(errno, -1, "could not open lock file %s: %m", path);
    const bool locked = wait_seconds < 0
                            ? vex::os::lockFile(fd.get(), true)
                            : lockUntil(fd.get(), vex::monotonicMs() + 1000L * wait_seconds);
    if (locked) return fd.release();
    if (errno == EAGAIN) return -1;
    return VEX_FAIL(errno, -1, "could not lock %s: %m", path);
}

int VexLockFileRelease(int fd) {
    // a child that shares the descriptor would keep the lock past the close
    struct flock lock {};
    lock.l_type = F_UNLCK;
    if (::fcntl(fd, F_OFD_SETLK, &lock) != 0)
        return VEX_FAIL(errno, -1, "could not release a lock: %m");
    vex::UniqueFd file(fd);
    return file.close() == 0 ? 0 : VEX_FAIL(errno, -1, "could not close a lock file: %m");
}
