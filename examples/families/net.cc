// net serve NETWORKS [COUNT]: answers lines with their length, for COUNT (1) connections from the
// NETWORKS ("127.0.0.0/8, 10.1"); prints its port first. net ask HOST PORT LINE: asks such a
// server.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vex/frame.h>
#include <vex/interface.h>
#include <vex/log.h>
#include <vex/net.h>

namespace {

constexpr int kPatienceMs = 5000;

int ask(const char *host, const char *port, const char *line) {
    addrinfo *list = nullptr;
    const int err = zq_getaddrinfo(host, port, nullptr, &list);
    if (err != 0) {
        ErrorA(-1, "%s: %s", host, gai_strerror(err));
        return 1;
    }
    const int fd = NetConnectByAddr(list, nullptr);  // every address in turn
    zq_freeaddrinfo(list);
    if (fd < 0) return 1;
    char reply[1024];
    // a peer that says nothing must not hold us for ever: wait first, then receive
    const bool good = NetSend(fd, "%s", line) > 0 && NetSelect(fd, kPatienceMs) == 1 &&
                      NetReadReply(fd, reply, sizeof reply) >= 0;
    if (good) std::printf("%s\n", reply);
    return close(fd) == 0 && good ? 0 : 1;
}

/// True when the peer has closed: the end of a conversation, and no failure.
bool ended(int fd) {
    char next;
    return recv(fd, &next, 1, MSG_PEEK) == 0;
}

void answer(int fd) {
    char line[1024];
    while (NetSelect(fd, kPatienceMs) == 1 && !ended(fd)) {
        const int length = NetReadReply(fd, line, sizeof line);
        if (length < 0 || NetSend(fd, "%d", length) < 0) return;
    }
}

unsigned portOf(int fd) {
    sockaddr_in6 own = {};  // the port stands at the same place in both families
    socklen_t size = sizeof own;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size) == 0 ? ntohs(own.sin6_port)
                                                                           : 0;
}

int serve(const char *networks, int count) {
    int listener = -1;
    if (NetCheckIPRange(networks, nullptr, 1) != 1) return 2;  // tells what is wrong
    if (NetBindAndListen(nullptr, 0, nullptr, &listener) != 0) return 1;
    std::printf("port %u\n", portOf(listener));
    (void)std::fflush(stdout);
    for (; count > 0; --count) {
        char ip[46];
        const int fd = NetAccept(listener, nullptr, 0, ip, sizeof ip, nullptr);
        if (fd < 0) return 1;
        if (NetCheckIPRange(networks, ip, 0) == 1)
            answer(fd);
        else
            AuthA(-1, "refused %s", ip);
        (void)close(fd);
    }
    return close(listener) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("net");
    if (argc >= 3 && strcmp(argv[1], "serve") == 0)
        return serve(argv[2], argc > 3 ? std::atoi(argv[3]) : 1);
    if (argc == 5 && strcmp(argv[1], "ask") == 0) return ask(argv[2], argv[3], argv[4]);
    std::fprintf(stderr, "usage: %s serve NETWORKS [COUNT] | ask HOST PORT LINE\n", argv[0]);
    return 2;
}
