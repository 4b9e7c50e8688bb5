#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include <vex/log.h>
#include <vex/process.h>

#include "base/eintr.h"
#include "base/unique_fd.h"
#include "log/report.h"
#include "os/service_manager.h"

namespace {

constexpr char kStart[] = "VexDaemonStart";
constexpr unsigned char kFailed = 1;

struct DaemonState {
    int ready = -1;  // where the starter waits for the daemon's status
    int pid_file = -1;
    char pid_path[PATH_MAX] = "";
};
DaemonState state;

/// In the program that was started: waits for the daemon and ends as it says.
[[noreturn]] void endAsTheDaemonSays(vex::UniqueFd from_daemon, pid_t child) {
    unsigned char status = kFailed;  // when the daemon ends without a word
    (void)vex::retryOnEintr([&] { return ::read(from_daemon.get(), &status, 1); });
    (void)vex::retryOnEintr([&] { return ::waitpid(child, nullptr, 0); });
    _exit(status);
}

/// A program may be started without standard descriptors. Their numbers must not go to files that
/// are opened here: what is redirected later would take away the PID file and its lock.
bool occupyStandardDescriptors() {
    for (;;) {
        vex::UniqueFd null(::open("/dev/null", O_RDWR));
        if (!null) return VEX_FAIL_AS(kStart, errno, errno, false, "could not open /dev/null: %m");
        if (null.get() > STDERR_FILENO) return true;
        (void)null.release();
    }
}

/// Returns in the daemon only, whose end of the connection it keeps; false when nothing was
/// started.
bool detach() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return VEX_FAIL_AS(kStart, errno, errno, false, "could not create a socket pair: %m");
    vex::UniqueFd from_daemon(ends[0]), to_starter(ends[1]);
    (void)fflush(nullptr);  // or each process would write what is buffered
    const pid_t child = fork();
    if (child < 0) return VEX_FAIL_AS(kStart, errno, errno, false, "could not fork: %m");
    if (child > 0) {
        to_starter.reset();
        endAsTheDaemonSays(std::move(from_daemon), child);
    }
    // a session without a terminal, and a process that can never get one because it leads none
    if (setsid() < 0) _exit(kFailed);
    const pid_t daemon = fork();
    if (daemon != 0) _exit(daemon < 0 ? kFailed : 0);
    vexlog_reset_for_fork();
    state.ready = to_starter.release();
    return true;
}

bool keepAbsolute(const char *path) {
    char directory[PATH_MAX] = "";
    if (*path != '/' && getcwd(directory, sizeof directory - 1) == nullptr) return false;
    const int length = snprintf(state.pid_path, sizeof state.pid_path, "%s%s%s", directory,
                                *path != '/' ? "/" : "", path);
    if (length < static_cast<int>(sizeof state.pid_path)) return true;
    errno = ENAMETOOLONG;
    return false;
}

bool createPidFile(const char *path) {
    if (!keepAbsolute(path))
        return VEX_FAIL_AS(kStart, errno, errno, false, "could not create PID file %s: %m", path);
    state.pid_file = VexPidFileCreate(state.pid_path);
    return state.pid_file >= 0;
}

bool leaveDirectory() {
    (void)umask(027);
    if (::chdir("/") == 0) return true;
    return VEX_FAIL_AS(kStart, errno, errno, false, "could not change to directory /: %m");
}

bool leaveTerminal() {
    const vex::UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (!null || dup2(null.get(), standard) < 0)
            return VEX_FAIL_AS(kStart, errno, errno, false, "could not redirect to /dev/null: %m");
    return true;
}

int removePidFile() {
    if (state.pid_file < 0) return 0;
    return VexPidFileRemove(state.pid_path, std::exchange(state.pid_file, -1));
}

int failed() {
    const int err = errno;
    (void)removePidFile();
    (void)VexDaemonReady(kFailed);  // what matters has been reported
    errno = err;
    return -1;
}

}  // namespace

int VexDaemonStart(const char *pid_file, unsigned flags) {
    if ((flags & ~VEX_DAEMON_FOREGROUND) != 0)
        return VEX_FAIL(EINVAL, -1, "invalid flags %#x", flags);
    const bool foreground = (flags & VEX_DAEMON_FOREGROUND) != 0;
    if (!occupyStandardDescriptors() || (!foreground && !detach())) return -1;
    if ((pid_file != nullptr && !createPidFile(pid_file)) || !leaveDirectory()) return failed();
    return foreground || leaveTerminal() ? 0 : failed();
}

int VexDaemonReady(int status) {
    bool told = true;
    if (const vex::UniqueFd starter(std::exchange(state.ready, -1)); starter) {
        // a status that an exit status cannot tell must not pass for success
        const auto byte = static_cast<unsigned char>(status > 0xff || status < 0 ? 0xff : status);
        // no signal when the starter has been killed: the daemon serves all the same
        told =
            vex::retryOnEintr([&] { return ::send(starter.get(), &byte, 1, MSG_NOSIGNAL); }) == 1;
        if (!told) (void)VEX_FAIL(errno, -1, "could not tell the starter: %m");
    }
    char message[64];
    (void)snprintf(
        message, sizeof message,
        status == 0 ? "READY=1\nMAINPID=%d\n" : "STATUS=start-up failed with status %d\n",
        status == 0 ? getpid() : status);
    if (!vex::os::notifyServiceManager(message))
        return VEX_FAIL(errno, -1, "could not tell the service manager: %m");
    return told ? 0 : -1;
}

int VexDaemonStop() {
    if (!vex::os::notifyServiceManager("STOPPING=1\n"))
        (void)VEX_FAIL(errno, -1, "could not tell the service manager: %m");
    return removePidFile();
}
