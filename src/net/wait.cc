// Waiting until a descriptor is readable.
#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include <vex/log.h>
#include <vex/net.h>

#include "log/report.h"

namespace {

constexpr int kFirstWaitMs = 60000;
constexpr int kLastWaitMs = 240000;

/// The error of a descriptor in the error state; EIO where it is no socket or tells none.
int errorOf(int fd) {
    int err = 0;
    socklen_t size = sizeof err;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &size) != 0 || err == 0) return EIO;
    return err;
}

/// One wait: 1, 0 when the time is over, -1 after reporting. Data wins over a hang-up: what the
/// peer sent before it left is still there.
int waitOnce(const char *who, int fd, int timeout_ms) {
    if (fd < 0) return VEX_FAIL_AS(who, EBADF, EBADF, -1, "invalid pipe");  // poll would skip it
    pollfd one{fd, POLLIN, 0};
    const int ready = poll(&one, 1, timeout_ms);
    if (ready < 0 && errno == EINTR) {
        if (TraceOn()) __Trace("%s: poll failed because of interrupt", who);
        return -1;
    }
    if (ready < 0) return VEX_FAIL_AS(who, errno, errno, -1, "poll failed");
    if (ready == 0) return 0;
    if ((one.revents & POLLIN) != 0) return 1;
    const int err = (one.revents & POLLNVAL) != 0  ? EBADF
                    : (one.revents & POLLERR) != 0 ? errorOf(fd)
                                                   : EPIPE;
    return VEX_FAIL_AS(who, err, err, -1, "invalid pipe");
}

}  // namespace

int NetSelect(int fd, int timeout_ms) {
    if (timeout_ms != 0) return waitOnce(__func__, fd, timeout_ms);
    for (int wait = kFirstWaitMs; wait <= kLastWaitMs; wait *= 2) {
        const int result = waitOnce(__func__, fd, wait);
        if (result != 0) return result;
        if (wait < kLastWaitMs)
            InfoA(-1,
                  "%s: socket %i poll() timed out after %i, increasing timeout to %i, retrying.",
                  __func__, fd, wait, wait * 2);
    }
    InfoA(-1, "%s: socket %i poll() timed out, out of retries, poll() infinite.", __func__, fd);
    return waitOnce(__func__, fd, -1);
}

int NetCheckForInput(int fd) {
    int result;
    do {
        result = waitOnce(__func__, fd, 0);
    } while (result < 0 && errno == EINTR);
    return result;
}

int NetStart() {
    return 0;
}

int NetStop() {
    return 0;
}
