#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <charconv>

#include <vex/io.h>
#include <vex/process.h>

#include "base/eintr.h"
#include "base/unique_fd.h"
#include "log/report.h"
#include "os/lock.h"

namespace {

constexpr int kOpenAttempts = 10;

/// The number in an open PID file, 0 while there is none.
pid_t numberIn(int fd) {
    char text[32];
    const ssize_t length = safe_pread(fd, text, sizeof text, 0);
    pid_t pid = 0;
    if (length > 0) (void)std::from_chars(text, text + length, pid);
    return pid > 0 ? pid : 0;
}

bool lives(pid_t pid) {
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

/// The holder's number; it writes it right after it has locked the file, so that a moment is
/// enough. Until then a file that it takes over still tells the number of the dead.
pid_t numberOfHolder(int fd) {
    pid_t pid = 0;
    for (int i = 0; i < 20; ++i) {
        if (pid = numberIn(fd); pid != 0 && lives(pid)) return pid;
        const struct timespec moment = {0, 5000000};
        (void)nanosleep(&moment, nullptr);  // a signal only makes the next look earlier
    }
    return pid;
}

bool writeNumber(int fd) {
    char text[32];
    const int length = snprintf(text, sizeof text, "%d\n", getpid());
    return safe_ftruncate(fd, 0) == 0 && safe_pwrite(fd, text, length, 0) == length;
}

}  // namespace

int VexPidFileCreate(const char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        vex::UniqueFd fd(vex::retryOnEintr(
            [&] { return ::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644); }));
        if (!fd) return VEX_FAIL(errno, -1, "could not open PID file %s: %m", path);
        if (!vex::os::lockFile(fd.get(), false)) {
            if (errno != EAGAIN) return VEX_FAIL(errno, -1, "could not lock PID file %s: %m", path);
            return VEX_FAIL(EEXIST, -1, "already running with pid %d", numberOfHolder(fd.get()));
        }
        // another process may have removed it between the open and the lock
        if (!vex::os::samePlace(fd.get(), path)) continue;
        if (writeNumber(fd.get())) return fd.release();
        const int err = errno;
        (void)::unlink(path);  // what matters is reported below
        return VEX_FAIL(err, -1, "could not write PID file %s: %m", path);
    }
    return VEX_FAIL(EAGAIN, -1, "PID file %s is removed again and again", path);
}

int VexPidFileRead(const char *path, pid_t *pid) {
    if (path == nullptr || pid == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    *pid = 0;
    const vex::UniqueFd fd(vex::retryOnEintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    if (!fd && errno == ENOENT) return 0;
    const int locked = fd ? vex::os::fileIsLocked(fd.get()) : -1;
    if (locked < 0) return VEX_FAIL(errno, -1, "could not read PID file %s: %m", path);
    if (locked == 1) *pid = numberOfHolder(fd.get());
    return locked;
}

int VexPidFileRemove(const char *path, int fd) {
    const vex::UniqueFd file(fd);
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (!vex::os::samePlace(fd, path)) return 0;
    // removed before the lock goes: nobody may find the file unlocked and then lose it
    if (::unlink(path) == 0) return 0;
    return VEX_FAIL(errno, -1, "could not remove PID file %s: %m", path);
}
