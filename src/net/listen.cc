// Listening sockets.
#include <errno.h>
#include <netinet/in.h>
#include <stdio.h>

#include <vex/log.h>

#include "log/report.h"
#include "net/resolve.h"
#include "net/socket.h"

namespace vex::net {
namespace {

constexpr char kName[] = "NetBindAndListen";
constexpr int kBacklog = 1024;

const char *familyName(int family) {
    return family == AF_INET6 ? "IPv6" : family == AF_INET ? "IPv4" : "IPv4 or IPv6";
}

UniqueFd failed(const addrinfo &address, const char *step) {
    WarningA(errno, "%s: %s: could not %s to this interface using %s (%m), will try next", kName,
             AddressText(address.ai_addr).get(), step, familyName(address.ai_family));
    return UniqueFd();
}

/// A listening socket on one address; empty with errno after a warning.
UniqueFd listenOn(const addrinfo &address) {
    UniqueFd socket = streamSocket(address.ai_family);
    if (!socket) return failed(address, "create socket");
    const int on = 1, off = 0;
    // without them a restart may have to wait for old connections; bind tells what matters
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (address.ai_family == AF_INET6)
        (void)setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    if (bind(socket.get(), address.ai_addr, address.ai_addrlen) != 0)
        return failed(address, "bind");
    if (listen(socket.get(), kBacklog) != 0) return failed(address, "listen");
    if (address.ai_family == AF_INET6 && TraceOn())
        __Trace(
            "%s: Handling all connections (including IPv4, if enabled) through the IPv6 "
            "socket using IP tunneling",
            kName);
    return socket;
}

const char *printable(const char *host) {
    if (host == nullptr) return "<localhost>";
    return *host != '\0' ? host : "<unknown>";
}

}  // namespace
}  // namespace vex::net

int NetBindAndListen(const char *host, unsigned port, const struct addrinfo *hints, int *fd_out) {
    using namespace vex::net;
    if (fd_out == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (port > 65535) return VEX_FAIL(EINVAL, -1, "invalid port %u", port);
    addrinfo own{};
    if (hints != nullptr) own = *hints;
    own.ai_flags |= AI_PASSIVE;
    char service[8];
    (void)snprintf(service, sizeof service, "%u", port);  // five digits at most
    addrinfo *found = nullptr;
    const int err = resolveDirect(host, service, &own, &found);
    if (err != 0)
        return VEX_FAIL(errno, -1, "zq_getaddrinfo failed for host %s: %s",
                        host != nullptr ? host : "NULL", ResolverText(err).get());
    const AddressList list(found);
    int last_error = 0;  // of a usable address, once there was one
    for (const addrinfo *one = found; one != nullptr; one = one->ai_next) {
        if (one->ai_family != AF_INET && one->ai_family != AF_INET6) continue;
        vex::UniqueFd socket = listenOn(*one);
        if (socket) {
            if (TraceOn())
                __Trace("%s: bound myself to %s:%u using %s", kName, printable(host), port,
                        familyName(one->ai_family));
            *fd_out = socket.release();
            return 0;
        }
        last_error = errno;
    }
    if (last_error == 0)
        return VEX_FAIL(EADDRNOTAVAIL, -1, "Did not find any valid %s addresses to bind to",
                        familyName(own.ai_family));
    return VEX_FAIL(last_error, -1,
                    "Failed to bind and listen to a socket, exhausted all possible interfaces");
}
