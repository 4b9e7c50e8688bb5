// Sending and receiving: exact counts, lines to a peer, and lines from one.
#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "base/eintr.h"
#include "base/errno_guard.h"
#include "log/report.h"
#include "net/socket.h"

namespace vex::net {

ssize_t sendAll(int fd, const void *buffer, size_t count) {
    const char *const from = static_cast<const char *>(buffer);
    size_t sent = 0;
    while (sent < count) {
        const ssize_t n =
            retryOnEintr([&] { return send(fd, from + sent, count - sent, MSG_NOSIGNAL); });
        if (n < 0) return -1;
        sent += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(sent);
}

namespace {

/// write(2) for pipes, which know no MSG_NOSIGNAL: SIGPIPE is held back from this thread, and one
/// that the write itself raised is taken out of the queue.
ssize_t writeQuietly(int fd, const char *text, size_t size) {
    sigset_t broken, before, pending;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &broken, &before);
    const ssize_t n = retryOnEintr([&] { return write(fd, text, size); });
    const ErrnoGuard keep;
    if (n < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        const timespec now{};
        (void)sigtimedwait(&broken, nullptr, &now);  // none is there when the process ignores it
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return n;
}

/// Takes in bytes up to a newline and never one beyond it, by looking before it takes. Pipes cannot
/// be looked into and are read byte by byte.
class LineReader {
public:
    explicit LineReader(int fd) : fd_(fd) {}

    /// Up to @p size bytes that end in the first newline, if any: the count, 0 at the end, -1.
    ssize_t take(char *to, size_t size) {
        if (socket_) {
            const ssize_t seen = retryOnEintr([&] { return recv(fd_, to, size, MSG_PEEK); });
            if (seen > 0) {
                const void *const newline = memchr(to, '\n', static_cast<size_t>(seen));
                const size_t wanted =
                    newline == nullptr
                        ? static_cast<size_t>(seen)
                        : static_cast<size_t>(static_cast<const char *>(newline) - to) + 1;
                return retryOnEintr([&] { return recv(fd_, to, wanted, 0); });
            }
            if (seen == 0 || errno != ENOTSOCK) return seen;
            socket_ = false;
        }
        return retryOnEintr([&] { return read(fd_, to, 1); });
    }

private:
    int fd_;
    bool socket_ = true;
};

}  // namespace
}  // namespace vex::net

ssize_t read_n_bytes(int fd, void *buffer, size_t count) {
    if (buffer == nullptr && count > 0) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    char *const to = static_cast<char *>(buffer);
    const int before = errno;
    size_t got = 0;
    while (got < count) {
        const ssize_t n = recv(fd, to + got, count - got, MSG_WAITALL);
        if (n < 0 && errno == EINTR) {
            errno = before;  // so that the end of the data is told as if nothing had happened
            continue;
        }
        if (n < 0) return VEX_FAIL(errno, -1, "Error happened in recv()");
        if (n == 0) {
            if (errno == 0) errno = ECONNRESET;
            break;
        }
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

ssize_t write_n_bytes(int fd, const void *buffer, size_t count) {
    if (buffer == nullptr && count > 0) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const ssize_t sent = vex::net::sendAll(fd, buffer, count);
    return sent >= 0 ? sent : VEX_FAIL(errno, -1, "Error happened in send()");
}

int NetSend(int fd, const char *format, ...) {
    if (format == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    char line[1024];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(line, sizeof line - 1, format, args);
    va_end(args);
    if (length < 0) return VEX_FAIL(errno, -1, "could not format the line");
    size_t size = std::min(static_cast<size_t>(length), sizeof line - 2);
    line[size++] = '\n';
    ssize_t n = vex::retryOnEintr([&] { return send(fd, line, size, MSG_NOSIGNAL); });
    if (n < 0 && errno == ENOTSOCK) n = vex::net::writeQuietly(fd, line, size);
    return n >= 0 ? static_cast<int>(n) : VEX_FAIL(errno, -1, "could not send on socket");
}

int NetReadReply(int fd, char *buffer, size_t size) {
    if (buffer == nullptr || size == 0) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    vex::net::LineReader reader(fd);
    char chunk[512], last = '\0';
    size_t length = 0, excess = 0;  // what is kept, and what does not fit
    bool ended = false, any = false;
    while (!ended) {
        const ssize_t n = reader.take(chunk, sizeof chunk);
        if (n < 0) return VEX_FAIL(errno, -1, "could not read from socket");
        if (n == 0) break;
        any = true;
        ended = chunk[n - 1] == '\n';
        for (ssize_t i = 0; i < n - (ended ? 1 : 0); ++i) {
            last = chunk[i];
            if (length + 1 < size)
                buffer[length++] = last;
            else
                ++excess;
        }
    }
    if (!any) return VEX_FAIL(ECONNRESET, -1, "connection closed by the peer");
    if (ended && last == '\r') --(excess > 0 ? excess : length);
    buffer[length] = '\0';
    if (excess > 0) return VEX_FAIL(ENOBUFS, -1, "line is longer than %zu bytes", size - 1);
    return static_cast<int>(length);
}
