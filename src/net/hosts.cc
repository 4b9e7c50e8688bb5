// Addresses as text, and which hosts are this machine or the same one.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>

#include <vex/log.h>
#include <vex/text.h>

#include "base/errno_guard.h"
#include "log/report.h"
#include "net/resolve.h"
#include "net/socket.h"

namespace vex::net {
namespace {

const in_addr &v4(const sockaddr *address) {
    return reinterpret_cast<const sockaddr_in *>(address)->sin_addr;
}

const in6_addr &v6(const sockaddr *address) {
    return reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr;
}

AddressList resolveName(const char *name) {
    addrinfo *list = nullptr;
    (void)resolveDirect(name, nullptr, nullptr, &list);  // an unknown host has no addresses
    return AddressList(list);
}

bool isLocal(const char *who, const addrinfo *list) {
    bool local = false;
    for (const addrinfo *one = list; one != nullptr && !local; one = one->ai_next)
        local = is_addrinfo_local(one) != 0;
    if (TraceOn()) __Trace("%s: exiting with is_local == %d", who, local ? 1 : 0);
    return local;
}

bool shareAddress(const addrinfo *list1, const addrinfo *list2) {
    for (const addrinfo *a = list1; a != nullptr; a = a->ai_next)
        for (const addrinfo *b = list2; b != nullptr; b = b->ai_next)
            if (a->ai_addr != nullptr && b->ai_addr != nullptr &&
                ip_compare(a->ai_addr, b->ai_addr) != 0)
                return true;
    return false;
}

bool isSame(const char *who, const addrinfo *list1, const char *name1, const addrinfo *list2,
            const char *name2) {
    if (shareAddress(list1, list2)) return true;
    if (!isLocal(who, list1) || !isLocal(who, list2)) return false;
    if (TraceOn()) __Trace("%s: %s and %s matched as locals", who, name1, name2);
    return true;
}

}  // namespace
}  // namespace vex::net

char *get_ip_str(const struct sockaddr *address, char *buffer, size_t size) {
    if (address == nullptr || buffer == nullptr || size == 0)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    const void *bytes;
    if (address->sa_family == AF_INET) {
        bytes = &vex::net::v4(address);
    } else if (address->sa_family == AF_INET6) {
        bytes = &vex::net::v6(address);
    } else {
        (void)vex_strcpy(buffer, size, "Unknown AF");
        errno = EAFNOSUPPORT;
        return nullptr;
    }
    if (inet_ntop(address->sa_family, bytes, buffer, static_cast<socklen_t>(size)) == nullptr)
        return VEX_FAIL(ENOBUFS, nullptr, "buffer too small");
    return buffer;
}

int ip_compare(const struct sockaddr *a, const struct sockaddr *b) {
    if (a == nullptr || b == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    if (a->sa_family != b->sa_family) return 0;
    if (a->sa_family == AF_INET) return vex::net::v4(a).s_addr == vex::net::v4(b).s_addr ? 1 : 0;
    if (a->sa_family != AF_INET6) return 0;
    return memcmp(&vex::net::v6(a), &vex::net::v6(b), sizeof(in6_addr)) == 0 ? 1 : 0;
}

int is_addrinfo_local(const struct addrinfo *one) {
    if (one == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    sockaddr_storage address{};
    if (one->ai_addr == nullptr || one->ai_addrlen > sizeof address) return 0;
    memcpy(&address, one->ai_addr, one->ai_addrlen);
    // any port: the one in the list may be in use by the very service that is asked about
    if (address.ss_family == AF_INET)
        reinterpret_cast<sockaddr_in &>(address).sin_port = 0;
    else if (address.ss_family == AF_INET6)
        reinterpret_cast<sockaddr_in6 &>(address).sin6_port = 0;
    else
        return 0;
    const vex::UniqueFd socket = vex::net::streamSocket(address.ss_family);
    if (!socket) {
        InfoA(-1, "%s: socket() returned error", __func__);
        return 0;
    }
    if (bind(socket.get(), reinterpret_cast<sockaddr *>(&address), one->ai_addrlen) == 0) return 1;
    if (TraceOn()) __Trace("%s: could not bind to address (%d)", __func__, errno);
    return 0;
}

int NetIsHostLocalByName(const char *name) {
    if (name == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return vex::net::isLocal(__func__, vex::net::resolveName(name).get()) ? 1 : 0;
}

int NetIsHostLocalByAddr(const struct addrinfo *list) {
    if (list == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return vex::net::isLocal(__func__, list) ? 1 : 0;
}

int NetSameHostByName(const char *name1, const char *name2) {
    using namespace vex::net;
    if (name1 == nullptr) return VEX_FAIL(EINVAL, 0, "name1 is NULL");
    if (*name1 == '\0') return VEX_FAIL(EINVAL, 0, "name1 is empty");
    if (name2 == nullptr) return VEX_FAIL(EINVAL, 0, "name2 is NULL");
    if (*name2 == '\0') return VEX_FAIL(EINVAL, 0, "name2 is empty");
    const AddressList list1 = resolveName(name1), list2 = resolveName(name2);
    return isSame(__func__, list1.get(), name1, list2.get(), name2) ? 1 : 0;
}

int NetSameHostByAddr(const struct addrinfo *list1, const struct addrinfo *list2) {
    using namespace vex::net;
    if (list1 == nullptr || list2 == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return isSame(__func__, list1, AddressText(list1->ai_addr).get(), list2,
                  AddressText(list2->ai_addr).get())
               ? 1
               : 0;
}
