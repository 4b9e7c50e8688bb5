// Outgoing connections: every local address for every remote one, until an attempt succeeds.
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <string.h>

#include <vex/frame.h>
#include <vex/interface.h>
#include <vex/log.h>
#include <vex/text.h>

#include "base/eintr.h"
#include "log/report.h"
#include "net/resolve.h"
#include "net/socket.h"

namespace vex::net {
namespace {

constexpr char kName[] = "NetConnectByAddr";
constexpr unsigned kFatalNumber = 92;
constexpr unsigned kBlockDaemonPort = 10082;

/// The route a connection asked for; removed again when the connection failed and it was added
/// here.
class Route {
public:
    explicit Route(const NetConnectParams &parameters) : parameters_(parameters) {
        if (!given(parameters.route_target)) return;
        InfoA(-1, "%s: Add route: target=%s,ifip=%s, ifname=%s", kName, target(), ip(), name());
        added_ = NetAddRoute(target(), ip(), name()) == 0;
    }
    Route(const Route &) = delete;
    Route &operator=(const Route &) = delete;
    ~Route() {
        if (!added_) return;
        const int saved = errno;
        InfoA(-1, "%s: Del route  target=%s, ifip=%s, ifname=%s ", kName, target(), ip(), name());
        (void)NetDelRoute(target(), ip(), name());  // it has logged; the attempt failed anyway
        errno = saved;
    }
    void keep() { added_ = false; }

private:
    static const char *orEmpty(const char *text) { return text != nullptr ? text : ""; }
    const char *target() const { return parameters_.route_target; }
    const char *ip() const { return orEmpty(parameters_.route_if_ip); }
    const char *name() const { return orEmpty(parameters_.route_if_name); }

    const NetConnectParams &parameters_;
    bool added_ = false;
};

/// One call of NetConnectByAddr: what was tried so far, and the errno of the last attempt.
class Connector {
public:
    explicit Connector(const NetConnectParams &parameters) : parameters_(parameters) {}

    UniqueFd connect(const addrinfo &target) {
        port_ = portOf(target.ai_addr);
        if (!given(parameters_.local_interface)) return attempt(target, nullptr);
        addrinfo hints{};
        hints.ai_family = target.ai_family;
        addrinfo *found = nullptr;
        const int err = resolveDirect(parameters_.local_interface, nullptr, &hints, &found);
        if (err != 0) {
            error_ = errno;
            WarningA(error_, "%s: zq_getaddrinfo failed for local interface %s: %s", kName,
                     parameters_.local_interface, ResolverText(err).get());
            return UniqueFd();
        }
        const AddressList locals(found);
        UniqueFd socket;
        for (const addrinfo *local = found; local != nullptr && !socket; local = local->ai_next)
            socket = attempt(target, local);
        return socket;
    }

    int fail() const {
        char text[128];
        const char *const reason = strerror_r(error_, text, sizeof text);
        ErrorA(error_, "%s: Failed to connect to host: %s (%d)", kName, reason, error_);
        if (parameters_.fatal != 0)
            vexSetFatalError(kName, kFatalNumber,
                             "Failed to connect to %s on port %u using the following "
                             "interface(s): [ %s ] (%s) Ensure storage server services are "
                             "running and operational. ",
                             port_ == kBlockDaemonPort ? "blockd" : "mgrd", port_, tried_, reason);
        errno = error_;
        return -1;
    }

private:
    UniqueFd attempt(const addrinfo &target, const addrinfo *local) {
        UniqueFd socket = streamSocket(target.ai_family);
        if (!socket) {
            error_ = errno;
            InfoA(-1, "%s: socket() returned error", kName);
            return socket;
        }
        (void)NetSetSocketOptions(socket.get(), parameters_.options, parameters_.send_buffer,
                                  parameters_.receive_buffer);  // a connection untuned still works
        if (local != nullptr && !bindTo(socket.get(), *local)) return UniqueFd();
        Route route(parameters_);
        const AddressText text(target.ai_addr, "<unknown address>");
        if (connectSocket(socket.get(), target.ai_addr, target.ai_addrlen) != 0) {
            error_ = errno;
            if (TraceOn())
                __Trace("%s: Unable to connect to interface %s: %m (%i)", kName, text.get(),
                        error_);
            // what no longer fits is left out: the list is for a message
            (void)vex_strcat(tried_, sizeof tried_, text.get());
            (void)vex_strcat(tried_, sizeof tried_, " ");
            return UniqueFd();
        }
        route.keep();
        traceSuccess(socket.get(), text);
        return socket;
    }

    bool bindTo(int fd, const addrinfo &local) {
        const char *const name = parameters_.local_interface;
        if (::bind(fd, local.ai_addr, local.ai_addrlen) != 0) {
            error_ = errno;
            WarningA(error_, "%s: Could not bind to local %s: bind failed (%m)", kName, name);
            if (TraceOn()) __Trace("%s: bind to local interface %s failed", kName, name);
            return false;
        }
        InfoA(-1, "%s: bind to local interface %s successful", kName, name);
        return true;
    }

    static void traceSuccess(int fd, const AddressText &remote) {
        if (!TraceOn()) return;
        sockaddr_storage local{};
        socklen_t size = sizeof local;
        auto *const address = reinterpret_cast<sockaddr *>(&local);
        const bool known = getsockname(fd, address, &size) == 0;
        __Trace("%s: Connected to remote interface %s using local interface %s", kName,
                remote.get(), AddressText(known ? address : nullptr, "<unknown address>").get());
    }

    const NetConnectParams &parameters_;
    char tried_[2048] = "";
    int error_ = EADDRNOTAVAIL;  // for a list without any address
    unsigned port_ = 0;
};

}  // namespace

const NetConnectParams &orDefaults(const NetConnectParams *parameters) {
    static constexpr NetConnectParams kDefaults{};
    return parameters != nullptr ? *parameters : kDefaults;
}

int connectSocket(int fd, const sockaddr *address, socklen_t size) {
    if (::connect(fd, address, size) == 0) return 0;
    if (errno != EINTR) return -1;
    // the connection goes on in the kernel; a second connect would only say so
    pollfd wait{fd, POLLOUT, 0};
    if (retryOnEintr([&] { return poll(&wait, 1, -1); }) < 0) return -1;
    int err = 0;
    socklen_t err_size = sizeof err;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &err_size) != 0) return -1;
    errno = err;
    return err == 0 ? 0 : -1;
}

}  // namespace vex::net

int NetConnectByAddr(const struct addrinfo *list, const struct NetConnectParams *parameters) {
    using namespace vex::net;
    if (list == nullptr) return VEX_FAIL(EINVAL, -1, "Invalid argument, addr is NULL");
    if (relayOf(list) != nullptr) return NetConnectByAddr4Relay(list, parameters);
    Connector connector(orDefaults(parameters));
    for (const addrinfo *target = list; target != nullptr; target = target->ai_next) {
        if (target->ai_addr == nullptr) continue;
        vex::UniqueFd socket = connector.connect(*target);
        if (socket) return socket.release();
    }
    return connector.fail();
}
