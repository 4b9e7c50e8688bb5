// Peers on loopback, for what speaks over a network.
#ifndef VEXTEST_PEER_H
#define VEXTEST_PEER_H

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include <vex/net.h>

#include "base/unique_fd.h"
#include "support/child.h"

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

/// A server that a shell command runs until the end of the scope; waits until its port answers.
struct Program {
    Program(const std::string &command, const std::string &port) : pid(fork()) {
        if (pid == 0) {
            execl("/bin/sh", "sh", "-c", ("exec " + command + " >/dev/null 2>&1").c_str(), nullptr);
            _exit(127);
        }
        const sockaddr_in address{AF_INET, htons(static_cast<uint16_t>(std::stoi(port))), {htonl(INADDR_LOOPBACK)}, {}};
        const auto answers = [&] {
            const vex::UniqueFd one(socket(AF_INET, SOCK_STREAM, 0));
            return connect(one.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
        };
        EXPECT_TRUE(soon(answers)) << command;
    }
    ~Program() {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    const pid_t pid;
};

}  // namespace vextest

#endif
