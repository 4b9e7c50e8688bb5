// Connections through a relay: SOCKS version 5 without authentication (RFC 1928), the destination
// given by name.
#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <string.h>

#include <string>

#include <vex/log.h>

#include "base/errno_guard.h"
#include "base/monotonic.h"
#include "log/report.h"
#include "net/resolve.h"
#include "net/socket.h"

namespace vex::net {
namespace {

constexpr char kName[] = "NetConnectByAddr4Relay";
constexpr int64_t kExchangeMs = 120 * 1000;
constexpr unsigned char kVersion = 5, kConnect = 1, kHostName = 3;

/// The exchange on a connected socket. Each step reads exactly what belongs to it: what follows is
/// the application's.
class Handshake {
public:
    explicit Handshake(int fd) : fd_(fd), deadline_(coarseMs() + kExchangeMs) {}

    bool run(const std::string &host, uint16_t port) {
        return chooseMethod() && request(host, port) && readAnswer();
    }

private:
    bool chooseMethod() {
        static constexpr unsigned char kNoAuthentication[] = {kVersion, 1, 0};
        if (sendAll(fd_, kNoAuthentication, sizeof kNoAuthentication) < 0)
            return VEX_FAIL_AS(kName, errno, errno, false, "method request: send failed!");
        unsigned char reply[2];
        if (!read(reply, sizeof reply))
            return VEX_FAIL_AS(kName, errno, errno, false, "method response: read failed!");
        if (reply[0] != kVersion)
            return VEX_FAIL_AS(kName, EPROTO, EPROTO, false,
                               "method response: read unexpected version value %X",
                               unsigned{reply[0]});
        if (reply[1] != 0)
            return VEX_FAIL_AS(kName, EPROTO, EPROTO, false,
                               "method response: read unexpected METHOD value %X",
                               unsigned{reply[1]});
        return true;
    }

    bool request(const std::string &host, uint16_t port) {
        std::string text = {kVersion, kConnect, 0, kHostName, static_cast<char>(host.size())};
        text += host;
        text += static_cast<char>(port >> 8);
        text += static_cast<char>(port & 0xff);
        if (sendAll(fd_, text.data(), text.size()) < 0)
            return VEX_FAIL_AS(kName, errno, errno, false, "dest request: send failed!");
        return true;
    }

    /// The version and the reserved byte of the answer go unchecked: relays are known to differ.
    bool readAnswer() {
        unsigned char header[4], length, name[255], port[2];
        if (!read(header, sizeof header))
            return VEX_FAIL_AS(kName, errno, errno, false, "dest response: read header failed!");
        if (header[1] != 0)
            return VEX_FAIL_AS(kName, ECONNREFUSED, ECONNREFUSED, false,
                               "dest response: connection is refused!");
        if (header[3] != kHostName)
            return VEX_FAIL_AS(kName, EPROTO, EPROTO, false,
                               "dest response: not the hostname type!");
        if (!read(&length, 1))
            return VEX_FAIL_AS(kName, errno, errno, false, "dest response: read length failed!");
        if (length == 0)
            return VEX_FAIL_AS(kName, EPROTO, EPROTO, false,
                               "dest response: length should be positive!");
        if (!read(name, length))
            return VEX_FAIL_AS(kName, errno, errno, false, "dest response: read hostname failed!");
        if (!read(port, sizeof port))
            return VEX_FAIL_AS(kName, errno, errno, false, "dest response: read port failed!");
        return true;
    }

    bool read(unsigned char *to, size_t count) {
        while (count > 0) {
            const int64_t left = deadline_ - coarseMs();
            pollfd ready{fd_, POLLIN, 0};
            const int state = left > 0 ? poll(&ready, 1, static_cast<int>(left)) : 0;
            if (state == 0) errno = ETIMEDOUT;
            if (state < 0 && errno == EINTR) continue;
            if (state <= 0) return false;
            const ssize_t n = recv(fd_, to, count, MSG_DONTWAIT);
            if (n == 0) errno = ECONNRESET;
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n <= 0) return false;
            to += n;
            count -= static_cast<size_t>(n);
        }
        return true;
    }

    int fd_;
    int64_t deadline_;
};

/// The port's number, 0 for a text that is none.
uint16_t portNumber(const char *text) {
    unsigned port = 0;
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c < '0' || *c > '9') return 0;
        port = port * 10 + static_cast<unsigned>(*c - '0');
        if (port > 65535) return 0;
    }
    return static_cast<uint16_t>(port);
}

/// A socket connected to the first address of the relay that accepts.
UniqueFd connectToRelay(const relayinfo &relay, const NetConnectParams &parameters) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    const int result = getaddrinfo(relay.relay_host, relay.relay_port, &hints, &found);
    if (result != 0) {
        const int err = resolverErrno(result);
        // 9 is what those who watch the log know this line by
        ErrorA(9, "%s: error on getaddrinfo with %s and %s, returns %d", kName, relay.relay_host,
               relay.relay_port, result);
        errno = err;
        return UniqueFd();
    }
    UniqueFd connected;
    for (const addrinfo *one = found; one != nullptr && !connected; one = one->ai_next) {
        UniqueFd socket = streamSocket(one->ai_family);
        if (!socket) {
            (void)VEX_FAIL_AS(kName, errno, errno, false, "socket() returned error");
            continue;
        }
        (void)NetSetSocketOptions(socket.get(), parameters.options, parameters.send_buffer,
                                  parameters.receive_buffer);  // a connection untuned still works
        const int status = connectSocket(socket.get(), one->ai_addr, one->ai_addrlen);
        if (status == 0)
            connected = std::move(socket);
        else
            (void)VEX_FAIL_AS(kName, errno, errno, false, "error on connect socket %d, returns %d",
                              socket.get(), status);
    }
    const ErrnoGuard keep;
    freeaddrinfo(found);
    return connected;
}

}  // namespace
}  // namespace vex::net

int NetConnectByAddr4Relay(const struct addrinfo *list, const struct NetConnectParams *parameters) {
    using namespace vex::net;
    const relayinfo *const relay = relayOf(list);
    if (relay == nullptr)
        return VEX_FAIL(EINVAL, -1, "Invalid argument, addr or addr->relayinfo is NULL");
    return vex::guard(__func__, -1, [&] {
        const std::string host(relay->dest_host,
                               strnlen(relay->dest_host, sizeof relay->dest_host));
        const uint16_t port = portNumber(relay->dest_port);
        if (host.empty() || host.size() > 255 || port == 0)
            return VEX_FAIL_AS(kName, EINVAL, EINVAL, -1, "Invalid destination %s port %.255s",
                               host.c_str(), relay->dest_port);
        vex::UniqueFd socket = connectToRelay(*relay, orDefaults(parameters));
        if (!socket || !Handshake(socket.get()).run(host, port)) return -1;
        if (TraceOn())
            __Trace("%s: succeed to set up connection and complete the socks5 protocol handshake!",
                    kName);
        return socket.release();
    });
}
