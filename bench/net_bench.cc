// Waiting and receiving against bare poll and recv; numeric look-ups against getaddrinfo; the times
// of range checks.
#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <vex/interface.h>
#include <vex/iprange.h>
#include <vex/net.h>

#include "peer.h"

namespace {

volatile long sink;

constexpr size_t kMessage = 64;
constexpr int kTrips = 20000;

/// A TCP connection on loopback whose far end sends back what comes.
class Echo {
public:
    Echo() {
        int listener = -1;
        sockaddr_in address{};
        socklen_t size = sizeof address;
        addrinfo *list = nullptr;
        if (NetBindAndListen("127.0.0.1", 0, nullptr, &listener) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
            zq_getaddrinfo("127.0.0.1", std::to_string(ntohs(address.sin_port)).c_str(), nullptr,
                           &list) != 0)
            abort();
        fd = NetConnectByAddr(list, nullptr);
        const int far = NetAccept(listener, nullptr, 0, nullptr, 0, nullptr);
        zq_freeaddrinfo(list);
        close(listener);
        NetSetSocketOptions(far, 0, 0, 0);
        thread_ = std::thread([far] {
            char block[kMessage];
            for (ssize_t n; (n = recv(far, block, sizeof block, 0)) > 0;)
                send(far, block, static_cast<size_t>(n), MSG_NOSIGNAL);
            close(far);
        });
    }
    ~Echo() {
        close(fd);
        thread_.join();
    }
    int fd;

private:
    std::thread thread_;
};

void roundTrips() {
    Echo echo;
    char block[kMessage] = "";
    bench::compare(
        {.name = "round trip of 64 bytes, NetSelect + read_n_bytes",
         .peer = "poll + recv",
         .target = "<= 1.10",
         .units = kTrips,
         .byTime = true,
         .rounds = 11},
        [&] {
            for (int i = 0; i < kTrips; ++i) {
                write_n_bytes(echo.fd, block, sizeof block);
                if (NetSelect(echo.fd, 0) != 1 ||
                    read_n_bytes(echo.fd, block, sizeof block) != kMessage)
                    abort();
            }
        },
        [&] {
            for (int i = 0; i < kTrips; ++i) {
                send(echo.fd, block, sizeof block, MSG_NOSIGNAL);
                pollfd ready{echo.fd, POLLIN, 0};
                if (poll(&ready, 1, 60000) != 1 ||
                    recv(echo.fd, block, sizeof block, 0) != kMessage)
                    abort();
            }
        });
}

void numericLookUp() {
    constexpr int kCalls = 20000;
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    for (const char *host : {"192.0.2.7", "2001:db8::7"})
        bench::compare(
            {.name = std::string("numeric address, zq_getaddrinfo ") + host,
             .peer = "getaddrinfo",
             .target = "<= 1.3",
             .units = kCalls,
             .byTime = true,
             .rounds = 11},
            [&] {
                addrinfo *list;
                for (int i = 0; i < kCalls; ++i) {
                    if (zq_getaddrinfo(host, "80", nullptr, &list) != 0) abort();
                    zq_freeaddrinfo(list);
                }
            },
            [&] {
                addrinfo *list;
                for (int i = 0; i < kCalls; ++i) {
                    if (getaddrinfo(host, "80", &hints, &list) != 0) abort();
                    freeaddrinfo(list);
                }
            });
}

void ranges() {
    constexpr int kCalls = 20000;
    std::string hundred, thousand;
    for (int i = 0; i < 1000; ++i) {
        const std::string one =
            "10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24";
        if (i < 100) hundred += (i > 0 ? "," : "") + one;
        thousand += (i > 0 ? "," : "") + one;
    }
    std::vector<double> checks, lookups;
    vexList *const list = iprange_list_create(thousand.c_str());
    NetInterface candidate{};
    strcpy(candidate.address, "192.0.2.7");
    for (int round = 0; round < 7; ++round) {
        checks.push_back(bench::seconds([&] {
            for (int i = 0; i < kCalls; ++i)
                sink = sink + NetCheckIPRange(hundred.c_str(), "192.0.2.7", 0);
        }));
        lookups.push_back(bench::seconds([&] {
            for (int i = 0; i < kCalls; ++i) sink = sink + iprange_list_lookup(list, &candidate);
        }));
    }
    iprange_list_destroy(list);
    std::printf("%-58s %.2f us (target <= 5)\n", "NetCheckIPRange, 100 ranges, none matches",
                bench::median(checks) / kCalls * 1e6);
    std::printf("%-58s %.2f us (target <= 10)\n", "iprange_list_lookup, 1000 ranges, none matches",
                bench::median(lookups) / kCalls * 1e6);
}

}  // namespace

int main() {
    roundTrips();
    numericLookUp();
    ranges();
}
