// The accepting side: who the peer is, by a cache of reverse look-ups.
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>

#include <mutex>

#include <vex/file.h>
#include <vex/interface.h>
#include <vex/log.h>
#include <vex/net.h>
#include <vex/text.h>

#include "base/monotonic.h"
#include "base/unique_fd.h"
#include "log/report.h"
#include "net/resolve.h"

std::map<std::string, std::string> g_DNS_Cache;
bool g_DNS_Cache_enabled = true;
uint64_t tDNS_Cache_clear_up_base = 0;
unsigned g_found_DNS_slow_count = 0;

namespace vex::net {
namespace {

constexpr char kName[] = "NetGetPeerName";
constexpr int64_t kSlowMs = 5000;
// peers choose their addresses: the cache must not grow with their patience
constexpr size_t kMostItems = 65536;

/// Guards this and the four variables above.
struct CacheState {
    std::mutex mutex;
    unsigned timeout_seconds = 3600;
} cache;

void clear() {
    if (TraceOn())
        __Trace("%s:.g_DNS_Cache %lu items will be clear up.", kName,
                static_cast<unsigned long>(g_DNS_Cache.size()));
    g_DNS_Cache.clear();
}

/// Empties the cache when its time has come.
void expire() {
    const uint64_t now = gethrtime();
    uint64_t &base = tDNS_Cache_clear_up_base;
    if (base == 0 || now < base) base = now;  // first use, or the wall clock was set back
    if (now - base <= seconds2hrtime(cache.timeout_seconds)) return;
    clear();
    base = now;
}

/// The cached name, if any.
bool lookUp(const char *ip, std::string *name) {
    const std::lock_guard lock(cache.mutex);
    if (!g_DNS_Cache_enabled) return false;
    expire();
    const auto found = g_DNS_Cache.find(ip);
    if (found == g_DNS_Cache.end()) return false;
    *name = found->second;
    if (TraceOn())
        __Trace("%s: QLSR DNS Cache is activated. %s is mapped to %s", kName, ip, name->c_str());
    return true;
}

void remember(const char *ip, const char *name) {
    const std::lock_guard lock(cache.mutex);
    if (!g_DNS_Cache_enabled) return;
    if (TraceOn()) __Trace("%s: Adding DNS Cache Item, %s is mapped to %s", kName, ip, name);
    if (g_DNS_Cache.size() >= kMostItems) clear();
    g_DNS_Cache[ip] = name;
}

void switchOff() {
    const std::lock_guard lock(cache.mutex);
    if (!g_DNS_Cache_enabled) return;
    g_DNS_Cache_enabled = false;
    ErrorA(EAFNOSUPPORT, "%s: get_ip_str. Failed to turn sockaddr to IP string. Turn off DNS Cache",
           kName);
}

/// Asks the resolver and tells when it was slow; 0 or its code.
int ask(const sockaddr *address, socklen_t size, const char *ip, char (&name)[NI_MAXHOST]) {
    const int64_t start = coarseMs();
    const int err = getnameinfo(address, size, name, sizeof name, nullptr, 0, NI_NAMEREQD);
    const int64_t took = coarseMs() - start;
    if (took <= kSlowMs) return err;
    unsigned count;
    {
        const std::lock_guard lock(cache.mutex);
        count = ++g_found_DNS_slow_count;
    }
    WarningA(-1,
             "%s: There might be DNS issue. It took %.3f seconds to resolve remote address "
             "(%s, %u). %u times.",
             kName, static_cast<double>(took) / 1000, ip, portOf(address), count);
    return err;
}

int giveName(const char *name, char *host, size_t size, int result) {
    if (strlen(name) >= size) return VEX_FAIL_AS(kName, ENOBUFS, ENOBUFS, -1, "buffer too small");
    (void)vex_strcpy(host, size, name);  // fits
    return result;
}

/// An IPv4 peer of an IPv6 socket in its own form, by which it is known everywhere else.
void unmap(sockaddr_storage *address, socklen_t *size) {
    sockaddr_in6 v6;
    if (address->ss_family != AF_INET6 || *size < sizeof v6) return;
    memcpy(&v6, address, sizeof v6);
    if (!IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr)) return;
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = v6.sin6_port;
    memcpy(&v4.sin_addr, &v6.sin6_addr.s6_addr[12], sizeof v4.sin_addr);
    memcpy(address, &v4, sizeof v4);
    *size = sizeof v4;
}

}  // namespace
}  // namespace vex::net

int NetGetPeerName(const struct sockaddr *address, socklen_t address_size, char *host,
                   size_t size) {
    using namespace vex::net;
    if (address == nullptr || host == nullptr || size == 0)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        char ip[INET6_ADDRSTRLEN];
        if (get_ip_str(address, ip, sizeof ip) == nullptr) {
            const int err = errno;
            switchOff();
            errno = err;
            return -1;
        }
        std::string cached;
        if (lookUp(ip, &cached)) return giveName(cached.c_str(), host, size, 0);
        char name[NI_MAXHOST];
        const int err = ask(address, address_size, ip, name);
        if (err != 0) {
            errno = resolverErrno(err);
            WarningA(errno, "%s: could not determine the hostname for %s by DNS", kName, ip);
            return giveName(ip, host, size, 1);
        }
        remember(ip, name);
        return giveName(name, host, size, 0);
    });
}

int NetAccept(int listen_fd, char *host, size_t host_size, char *ip, size_t ip_size,
              unsigned *port) {
    using namespace vex::net;
    sockaddr_storage peer{};
    socklen_t size;
    auto *const address = reinterpret_cast<sockaddr *>(&peer);
    vex::UniqueFd socket;
    do {
        size = sizeof peer;
        socket.reset(accept4(listen_fd, address, &size, SOCK_CLOEXEC));
        // a peer that has left again before its turn is none
    } while (!socket && (errno == EINTR || errno == ECONNABORTED));
    if (!socket) {
        if (errno == EAGAIN) return -1;
        return VEX_FAIL(errno, -1, "could not accept a connection: %m");
    }
    unmap(&peer, &size);
    if (ip != nullptr && ip_size > 0)
        (void)vex_strcpy(ip, ip_size, AddressText(address, "").get());  // its head when it is short
    if (port != nullptr) *port = portOf(address);
    if (host != nullptr && host_size > 0) {
        host[0] = '\0';
        // a connection without a name is still one
        if (NetGetPeerName(address, size, host, host_size) < 0) host[0] = '\0';
    }
    return socket.release();
}

void NetSetDnsCache(bool enabled, unsigned timeout_seconds) {
    const std::lock_guard lock(vex::net::cache.mutex);
    g_DNS_Cache_enabled = enabled;
    vex::net::cache.timeout_seconds = timeout_seconds;
}
