// Peers on loopback, for what speaks over a network.
#ifndef VEXTEST_PEER_H
#define VEXTEST_PEER_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include <vex/net.h>

namespace vextest {

/// The port of a socket's own end.
inline unsigned portOf(int socket) {
    sockaddr_in6 address{};  // the port stands at the same place in both families
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin6_port);
}

/// Serves one connection after the other by the script, in a thread.
struct Peer {
    explicit Peer(const std::function<void(int socket)> &script) {
        if (NetBindAndListen("127.0.0.1", 0, nullptr, &listener) != 0) abort();
        port = std::to_string(portOf(listener));
        thread = std::thread([this, script] {
            for (int socket; (socket = accept(listener, nullptr, nullptr)) >= 0; close(socket)) script(socket);
        });
    }
    ~Peer() {
        shutdown(listener, SHUT_RDWR);
        thread.join();
        close(listener);
    }
    int listener = -1;
    std::string port;
    std::thread thread;
};

/// A port on which nobody listens.
inline std::string freePort() {
    return Peer([](int) {}).port;
}

}  // namespace vextest

#endif
