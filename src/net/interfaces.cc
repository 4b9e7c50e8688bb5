// The machine's interfaces and their addresses.
#include <arpa/inet.h>
#include <errno.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include <vex/interface.h>
#include <vex/iprange.h>
#include <vex/net.h>
#include <vex/text.h>

#include "base/errno_guard.h"
#include "base/unique_ptr.h"
#include "log/report.h"

namespace vex::net {
namespace {

struct ListDestroy {
    void operator()(vexList *list) const { NetInterfaceListDestroy(list); }
};
using InterfaceList = std::unique_ptr<vexList, ListDestroy>;

struct SystemFree {
    void operator()(ifaddrs *list) const {
        const ErrnoGuard keep;
        freeifaddrs(list);
    }
};

template <size_t kRoom>
void print(const sockaddr *address, char (&text)[kRoom]) {
    const ErrnoGuard keep;
    text[0] = '\0';
    if (address != nullptr && get_ip_str(address, text, kRoom) == nullptr) text[0] = '\0';
}

unsigned bitsSet(const sockaddr *mask) {
    if (mask == nullptr) return 0;
    if (mask->sa_family == AF_INET)
        return static_cast<unsigned>(
            __builtin_popcount(reinterpret_cast<const sockaddr_in *>(mask)->sin_addr.s_addr));
    unsigned bits = 0;
    for (const uint8_t byte : reinterpret_cast<const sockaddr_in6 *>(mask)->sin6_addr.s6_addr)
        bits += static_cast<unsigned>(__builtin_popcount(byte));
    return bits;
}

/// Number and hardware address stand in an entry of their own, under the name without label.
void addHardware(const ifaddrs *all, NetInterface *record) {
    const size_t length = strcspn(record->name, ":");
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_PACKET ||
            strlen(one->ifa_name) != length || strncmp(one->ifa_name, record->name, length) != 0)
            continue;
        const auto *const link = reinterpret_cast<const sockaddr_ll *>(one->ifa_addr);
        record->index = static_cast<unsigned>(link->sll_ifindex);
        if (link->sll_halen == sizeof record->mac)
            memcpy(record->mac, link->sll_addr, sizeof record->mac);
        return;
    }
}

NetInterface describe(const ifaddrs &one, const ifaddrs *all) {
    NetInterface record{};
    (void)vex_strcpy(record.name, sizeof record.name, one.ifa_name);  // the system's own limit
    print(one.ifa_addr, record.address);
    print(one.ifa_netmask, record.netmask);
    if ((one.ifa_flags & IFF_BROADCAST) != 0) print(one.ifa_broadaddr, record.broadcast);
    record.family = one.ifa_addr->sa_family;
    record.flags = one.ifa_flags;
    record.prefix = bitsSet(one.ifa_netmask);
    addHardware(all, &record);
    return record;
}

bool append(const char *who, vexList *list, const NetInterface &record) {
    UniqueMalloc<NetInterface> copy(static_cast<NetInterface *>(malloc(sizeof record)));
    if (!copy) return VEX_FAIL_AS(who, ENOMEM, ENOMEM, false, "could not allocate memory");
    *copy = record;
    if (vexListAdd(list, copy.get()) != 0) return false;
    (void)copy.release();  // the list's now
    return true;
}

template <typename Accept>
const NetInterface *find(const vexList *list, Accept accept) {
    for (const vexListNode *node = list->first; node != nullptr; node = node->next)
        if (const auto *const one = static_cast<const NetInterface *>(node->value); accept(*one))
            return one;
    errno = ENOENT;
    return nullptr;
}

}  // namespace
}  // namespace vex::net

vexList *NetInterfaceListCreate(int family) {
    using namespace vex::net;
    if (family != 0 && family != AF_INET && family != AF_INET6)
        return VEX_FAIL(EINVAL, nullptr, "invalid address family %d", family);
    ifaddrs *found = nullptr;
    if (getifaddrs(&found) != 0)
        return VEX_FAIL(errno, nullptr, "could not get the interfaces: %m");
    const std::unique_ptr<ifaddrs, SystemFree> all(found);
    InterfaceList list(vexListCreate());
    for (const ifaddrs *one = found; list && one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || (one->ifa_flags & IFF_UP) == 0) continue;
        const int own = one->ifa_addr->sa_family;
        if ((own == AF_INET || own == AF_INET6) && (family == 0 || family == own) &&
            !append(__func__, list.get(), describe(*one, found)))
            return nullptr;
    }
    return list.release();
}

void NetInterfaceListDestroy(vexList *list) {
    const vex::ErrnoGuard keep;
    vexListDestroy(list, free);
}

const struct NetInterface *NetInterfaceFindByName(vexList *list, const char *name) {
    if (list == nullptr || name == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    return vex::net::find(list,
                          [&](const NetInterface &one) { return strcmp(one.name, name) == 0; });
}

const struct NetInterface *NetInterfaceFindByAddress(vexList *list, const char *address) {
    if (list == nullptr || address == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    // one address may be written in several ways; the records hold the system's own
    unsigned char bytes[sizeof(in6_addr)];
    char text[INET6_ADDRSTRLEN] = "";
    for (const int family : {AF_INET, AF_INET6})
        if (inet_pton(family, address, bytes) == 1)
            (void)inet_ntop(family, bytes, text, sizeof text);  // has room for every address
    return vex::net::find(list, [&](const NetInterface &one) {
        return text[0] != '\0' && strcmp(one.address, text) == 0;
    });
}

vexList *NetInterfaceListFilter(vexList *list, vexList *ranges) {
    using namespace vex::net;
    if (list == nullptr || ranges == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    InterfaceList result(vexListCreate());
    for (const vexListNode *node = list->first; result && node != nullptr; node = node->next) {
        const auto *const one = static_cast<const NetInterface *>(node->value);
        if (iprange_list_lookup(ranges, one) == 0 && !append(__func__, result.get(), *one))
            return nullptr;
    }
    return result.release();
}
