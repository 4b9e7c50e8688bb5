#include "net/fakes.h"

#include <arpa/inet.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "support/faults.h"

namespace {

vextest::Fakes *fakes = nullptr;

}  // namespace

extern "C" {

int __real_getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **);
int __wrap_getaddrinfo(const char *host, const char *service, const addrinfo *hints, addrinfo **out) {
    if (fakes == nullptr || fakes->answers.empty()) return __real_getaddrinfo(host, service, hints, out);
    const int answer = fakes->answers.front();
    fakes->answers.pop_front();
    fakes->clock += fakes->seconds_per_answer;
    if (answer == EAI_SYSTEM) errno = EAGAIN;
    return answer != 0 ? answer : __real_getaddrinfo(host, service, hints, out);
}

int __real_getnameinfo(const sockaddr *, socklen_t, char *, socklen_t, char *, socklen_t, int);
int __wrap_getnameinfo(const sockaddr *address, socklen_t size, char *host, socklen_t host_size, char *service,
                       socklen_t service_size, int flags) {
    if (fakes == nullptr) return __real_getnameinfo(address, size, host, host_size, service, service_size, flags);
    fakes->clock += fakes->seconds_per_answer;
    if (fakes->peer_name.empty()) return EAI_NONAME;
    snprintf(host, host_size, "%s", fakes->peer_name.c_str());
    return 0;
}

int __real_poll(pollfd *, nfds_t, int);
int __wrap_poll(pollfd *all, nfds_t count, int timeout) {
    if (const int err = vextest::faultFor("poll"); err > 0) return errno = err, -1;
    if (fakes == nullptr || fakes->expired_polls == 0) return __real_poll(all, count, timeout);
    --fakes->expired_polls;
    fakes->polls.push_back(timeout);
    fakes->clock += timeout / 1000.0;
    return 0;
}

int __real_connect(int, const sockaddr *, socklen_t);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size) {
    const int result = __real_connect(fd, address, size);
    if (fakes == nullptr || !fakes->interrupt_connect) return result;
    return errno = EINTR, -1;
}

int __real_clock_gettime(clockid_t, timespec *);
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    if (fakes != nullptr) now->tv_sec += static_cast<time_t>(fakes->clock);
    return result;
}

int __real_clock_nanosleep(clockid_t, int, const timespec *, timespec *);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec *until, timespec *left) {
    if (fakes == nullptr) return __real_clock_nanosleep(clock, flags, until, left);
    timespec now;
    __wrap_clock_gettime(clock, &now);
    fakes->clock += static_cast<double>(until->tv_sec - now.tv_sec);
    return 0;
}

uint64_t __real_gethrtime();
uint64_t __wrap_gethrtime() {
    return __real_gethrtime() + (fakes != nullptr ? static_cast<uint64_t>(fakes->clock * 1e6) : 0);
}
}

namespace vextest {

Fakes::Fakes() { fakes = this; }
Fakes::~Fakes() { fakes = nullptr; }

Peer::Peer(std::function<void(int socket)> script, const char *address) {
    if (NetBindAndListen(address, 0, nullptr, &listener_) != 0) abort();
    port_ = portOf(listener_);
    if (zq_getaddrinfo(address, port().c_str(), nullptr, &list_) != 0) abort();
    thread_ = std::thread([this, script] {
        for (int socket; (socket = accept(listener_, nullptr, nullptr)) >= 0; close(socket)) script(socket);
    });
}

Peer::~Peer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
    zq_freeaddrinfo(list_);
}

unsigned portOf(int socket) {
    sockaddr_in6 address{};  // the port stands at the same place in both families
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin6_port);
}

bool inNamespace(int flags, const std::function<void()> &body) {
    bool allowed = false;
    std::thread([&] {
        allowed = unshare(flags) == 0;
        if (allowed && (flags & CLONE_NEWNS) != 0)
            allowed = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      mount("none", "/usr", "tmpfs", 0, nullptr) == 0;
        else if (allowed)
            allowed = system("ip link set lo up 2>/dev/null") == 0;
        if (allowed) body();
    }).join();
    return allowed;
}

}  // namespace vextest
