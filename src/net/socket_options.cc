// The tuning of TCP sockets.
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <vex/log.h>

#include "log/report.h"
#include "net/socket.h"

namespace {

constexpr int kKeepIdleSeconds = 210;
constexpr int kSynRetries = 4;
constexpr int kLingerSeconds = 1;

void setOption(int fd, int level, int option, const char *name, int value) {
    if (setsockopt(fd, level, option, &value, sizeof value) != 0)
        WarningA(errno, "TCP: setsockopt(%s) failed (%m)", name);
    else if (TraceOn())
        __Trace("TCP: %s set", name);
}

void traceBuffer(const char *who, int fd, int option, const char *direction) {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    if (TraceOn() && getsockopt(fd, SOL_SOCKET, option, &bytes, &size) == 0)
        __Trace("%s: TCP: using a %i byte %s buffer.", who, bytes, direction);
}

}  // namespace

int NetSetSocketOptions(int fd, uint32_t options, int send_buffer, int receive_buffer) {
    if (fd < 0) return VEX_FAIL(EBADF, -1, "invalid socket");
    if ((options & NET_OPT_NAGLE) == 0) setOption(fd, IPPROTO_TCP, TCP_NODELAY, "TCP_NODELAY", 1);
    if ((options & NET_OPT_KEEPALIVE) != 0) {
        setOption(fd, SOL_SOCKET, SO_KEEPALIVE, "SO_KEEPALIVE", 1);
        setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, "TCP_KEEPIDLE", kKeepIdleSeconds);
    }
    if (send_buffer != 0) setOption(fd, SOL_SOCKET, SO_SNDBUF, "SO_SNDBUF", send_buffer);
    if (receive_buffer != 0) setOption(fd, SOL_SOCKET, SO_RCVBUF, "SO_RCVBUF", receive_buffer);
    setOption(fd, IPPROTO_TCP, TCP_SYNCNT, "TCP_SYNCNT", kSynRetries);
    if ((options & NET_OPT_LINGER) != 0) {
        const linger value{1, kLingerSeconds};
        if (setsockopt(fd, SOL_SOCKET, SO_LINGER, &value, sizeof value) != 0)
            WarningA(errno, "%s: TCP: setsockopt(SO_LINGER) failed (%m)", __func__);
        else if (TraceOn())
            __Trace("TCP: %s set", "SO_LINGER");
    }
    traceBuffer(__func__, fd, SO_RCVBUF, "receive");
    traceBuffer(__func__, fd, SO_SNDBUF, "send");
    return 0;
}
