// Steps on sockets that several files of the family take.
#ifndef VEX_NET_SOCKET_H
#define VEX_NET_SOCKET_H

#include <sys/socket.h>
#include <sys/types.h>

#include <vex/net.h>

#include "base/unique_fd.h"

namespace vex::net {

/// A stream socket, close-on-exec from its first instant; empty with errno.
inline UniqueFd streamSocket(int family) {
    return UniqueFd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

/// connect(2), blocking; when a signal interrupts it, waits for its outcome instead of asking
/// twice.
int connectSocket(int fd, const sockaddr *address, socklen_t size);

/// Sends everything, without SIGPIPE; the count, or -1 with errno. Silent.
ssize_t sendAll(int fd, const void *buffer, size_t count);

/// Whether a text stands where one may be left out.
inline bool given(const char *text) {
    return text != nullptr && *text != '\0';
}

/// The defaults where the caller gave none.
const NetConnectParams &orDefaults(const NetConnectParams *parameters);

}  // namespace vex::net

#endif
