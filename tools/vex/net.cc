// "vex net": what the machine's resolver, sockets, interfaces and routes do as the library uses
// them.
#include <netinet/in.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "base/unique_fd.h"
#include "command.h"

namespace tool {
namespace {

constexpr int kReplyMs = 10000;

struct ListFree {
    void operator()(addrinfo *list) const { zq_freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, ListFree>;

/// The address list of a host; empty after telling that it is not known.
AddressList resolve(const char *host, const char *port) {
    addrinfo *list = nullptr;
    const int err = zq_getaddrinfo(host, port, nullptr, &list);
    if (err != 0)
        fail("'%s' is not resolved (%s): check the name, and the resolver in /etc/resolv.conf",
             host, gai_strerror(err));
    return AddressList(list);
}

/// A port from 0 to 65535; false after telling that it is none.
bool readPort(const char *text, unsigned *port) {
    char *end = nullptr;
    const unsigned long long value = vex_strtoull(text, &end, 10);
    *port = value <= 65535 ? static_cast<unsigned>(value) : 0;
    if (end != text && *end == '\0' && value <= 65535) return true;
    usageError("'%s' is no port from 0 to 65535", text);
    return false;
}

int runResolve(int argc, char **argv) {
    const AddressList list = resolve(argv[0], argc > 1 ? argv[1] : nullptr);
    if (!list) return kFailure;
    char text[46];
    for (const addrinfo *one = list.get(); one != nullptr; one = one->ai_next)
        if (one->ai_addr == nullptr)
            std::printf("%s through a relay\n", argv[0]);
        else if (get_ip_str(one->ai_addr, text, sizeof text) != nullptr)
            std::printf("%s\n", text);
    return kSuccess;
}

/// Sends the line, if any, and prints the line that comes back.
int talk(int fd, const char *line) {
    if (line == nullptr) return kSuccess;
    char reply[4096];
    if (NetSend(fd, "%s", line) < 0 || NetSelect(fd, kReplyMs) != 1 ||
        NetReadReply(fd, reply, sizeof reply) < 0)
        return fail("no line came back within %d seconds: does the peer answer lines?",
                    kReplyMs / 1000);
    std::printf("%s\n", reply);
    return kSuccess;
}

int runConnect(int argc, char **argv) {
    unsigned port = 0;
    if (!readPort(argv[1], &port)) return kUsage;
    const AddressList list = resolve(argv[0], argv[1]);
    if (!list) return kFailure;
    const vex::UniqueFd socket(NetConnectByAddr(list.get(), nullptr));
    if (!socket)
        return fail("no connection to %s port %u (%m): does a service listen there?", argv[0],
                    port);
    if (argc == 2) std::printf("connected to %s port %u\n", argv[0], port);
    return talk(socket.get(), argc > 2 ? argv[2] : nullptr);
}

/// True when the peer has closed: the end of a conversation, and no failure.
bool ended(int fd) {
    char next;
    return recv(fd, &next, 1, MSG_PEEK) == 0;
}

/// Sends every line of a connection back, until it ends or says nothing for a while.
void echo(int fd) {
    char line[4096];
    while (NetSelect(fd, kReplyMs) == 1 && !ended(fd) && NetReadReply(fd, line, sizeof line) >= 0)
        if (NetSend(fd, "%s", line) < 0) return;
}

int runListen(int argc, char **argv) {
    unsigned port = 0;
    if (!readPort(argv[0], &port)) return kUsage;
    int fd = -1;
    if (NetBindAndListen(argc > 1 ? argv[1] : nullptr, port, nullptr, &fd) != 0)
        return fail("cannot listen on port %u (%m): choose a free one, below 1024 as root", port);
    const vex::UniqueFd listener(fd);
    sockaddr_in6 own{};  // the port stands at the same place in both families
    socklen_t size = sizeof own;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size) == 0)
        port = ntohs(own.sin6_port);
    std::printf("listening on port %u\n", port);
    for (;;) {
        std::fflush(stdout);
        char ip[46];
        unsigned peer_port = 0;
        const vex::UniqueFd socket(NetAccept(fd, nullptr, 0, ip, sizeof ip, &peer_port));
        if (!socket) return fail("no connection could be accepted (%m)");
        std::printf("%s port %u\n", ip, peer_port);
        std::fflush(stdout);
        echo(socket.get());
    }
}

int runLocal(int, char **argv) {
    if (NetIsHostLocalByName(argv[0]) == 0) return fail("'%s' is not this machine", argv[0]);
    std::printf("local\n");
    return kSuccess;
}

int runRange(int argc, char **argv) {
    if (NetCheckIPRange(argv[0], argc > 1 ? argv[1] : nullptr, 1) == 0)
        return argc > 1 ? fail("%s is not inside '%s'", argv[1], argv[0])
                        : fail("'%s' is no list of networks such as 10.0.0.0/8,192.168.1", argv[0]);
    std::printf("%s\n", argc > 1 ? "inside" : "good");
    return kSuccess;
}

/// The machine's IPv4 routes, as proc(5) has them: addresses in hexadecimal, lowest byte first.
void printRoutes() {
    const vex::UniqueFile file(std::fopen("/proc/net/route", "re"));
    char line[512], name[16];
    unsigned target = 0, gateway = 0, mask = 0;
    while (file && std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::sscanf(line, "%15s %x %x %*x %*d %*d %*d %x", name, &target, &gateway, &mask) != 4)
            continue;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        char text[46], via[46];
        address.sin_addr.s_addr = target;
        (void)get_ip_str(reinterpret_cast<sockaddr *>(&address), text, sizeof text);
        address.sin_addr.s_addr = gateway;
        (void)get_ip_str(reinterpret_cast<sockaddr *>(&address), via, sizeof via);
        std::printf("route   %s %s/%d%s%s\n", name, text, __builtin_popcount(mask),
                    gateway != 0 ? " through " : "", gateway != 0 ? via : "");
    }
}

int listRoutes() {
    vexList *const all = NetInterfaceListCreate(0);
    if (all == nullptr) return fail("the interfaces cannot be listed (%m)");
    for (const vexListNode *node = all->first; node != nullptr; node = node->next) {
        const auto *const one = static_cast<const NetInterface *>(node->value);
        std::printf("address %s %s/%u\n", one->name, one->address, one->prefix);
    }
    NetInterfaceListDestroy(all);
    printRoutes();
    return kSuccess;
}

int runRoutes(int argc, char **argv) {
    if (argc == 0) return listRoutes();
    const bool add = std::strcmp(argv[0], "add") == 0;
    if (argc < 3 || (!add && std::strcmp(argv[0], "delete") != 0))
        return usageError("'net routes' takes nothing, or add|delete TARGET INTERFACE [SOURCE]");
    const char *const source = argc > 3 ? argv[3] : nullptr;
    const int result =
        add ? NetAddRoute(argv[1], source, argv[2]) : NetDelRoute(argv[1], source, argv[2]);
    if (result < 0)
        return fail(
            "the route to %s was not changed (%m): it takes root, two addresses of one "
            "family and an interface that is up",
            argv[1]);
    if (result == 1) std::printf("a route to %s exists already\n", argv[1]);
    return kSuccess;
}

constexpr struct {
    const char *name;
    int least, most;  // arguments
    int (*run)(int argc, char **argv);
} kActions[] = {{"resolve", 1, 2, runResolve}, {"connect", 2, 3, runConnect},
                {"listen", 1, 2, runListen},   {"local", 1, 1, runLocal},
                {"range", 1, 2, runRange},     {"routes", 0, 4, runRoutes}};

}  // namespace

int runNet(int argc, char **argv) {
    if (argc < 2) return usageError("'net' needs an action, such as resolve");
    for (const auto &action : kActions) {
        if (std::strcmp(action.name, argv[1]) != 0) continue;
        if (argc - 2 < action.least || argc - 2 > action.most)
            return usageError("'net %s' takes %d to %d arguments", action.name, action.least,
                              action.most);
        return action.run(argc - 2, argv + 2);
    }
    return usageError("there is no 'net %s'", argv[1]);
}

}  // namespace tool
