// Host routes, through the kernel's routing socket.
#include <arpa/inet.h>
#include <errno.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include <vex/interface.h>

#include "base/eintr.h"
#include "base/unique_fd.h"
#include "log/report.h"
#include "net/socket.h"

using vex::net::given;

namespace {

/// An address in network byte order, 4 or 16 bytes.
struct Address {
    int family = 0;
    unsigned char bytes[sizeof(in6_addr)] = {};
    size_t size() const { return family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr); }

    bool parse(const char *text) {
        for (const int candidate : {AF_INET, AF_INET6})
            if (inet_pton(candidate, text, bytes) == 1) {
                family = candidate;
                return true;
            }
        return false;
    }
};

/// One route message: header, body, and up to three attributes of at most 16 bytes.
struct Request {
    nlmsghdr header;
    rtmsg body;
    char attributes[3 * RTA_SPACE(sizeof(in6_addr))];

    void add(uint16_t type, const void *data, size_t size) {
        char *const at = reinterpret_cast<char *>(this) + NLMSG_ALIGN(header.nlmsg_len);
        const rtattr attribute{static_cast<uint16_t>(RTA_LENGTH(size)), type};
        memcpy(at, &attribute, sizeof attribute);
        memcpy(at + RTA_LENGTH(0), data, size);
        header.nlmsg_len = static_cast<uint32_t>(NLMSG_ALIGN(header.nlmsg_len) + RTA_LENGTH(size));
    }
};

constexpr uint32_t kSequence = 1;

Request hostRoute(uint16_t type, uint16_t flags, const Address &target, const Address &source,
                  unsigned index) {
    Request request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof request.body);
    request.header.nlmsg_type = type;
    request.header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    request.header.nlmsg_seq = kSequence;
    request.body.rtm_family = static_cast<unsigned char>(target.family);
    request.body.rtm_dst_len = static_cast<unsigned char>(target.size() * 8);
    request.body.rtm_table = RT_TABLE_MAIN;
    request.body.rtm_protocol = RTPROT_STATIC;
    // IPv6 routes know one scope alone
    request.body.rtm_scope = target.family == AF_INET ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE;
    request.body.rtm_type = RTN_UNICAST;
    request.add(RTA_DST, target.bytes, target.size());
    request.add(RTA_OIF, &index, sizeof index);
    if (source.family != 0) request.add(RTA_PREFSRC, source.bytes, source.size());
    return request;
}

/// Hands the request to the kernel: 0, or the errno it answers or the exchange fails with.
int exchange(const Request &request) {
    const vex::UniqueFd link(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!link) return errno;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    const auto *const to = reinterpret_cast<const sockaddr *>(&kernel);
    if (vex::retryOnEintr([&] {
            return sendto(link.get(), &request, request.header.nlmsg_len, 0, to, sizeof kernel);
        }) < 0)
        return errno;
    for (;;) {
        struct {
            nlmsghdr header;
            nlmsgerr error;
            char rest[512];  // the request, which an error repeats
        } answer{};
        sockaddr_nl from{};
        socklen_t from_size = sizeof from;
        const ssize_t n = vex::retryOnEintr([&] {
            return recvfrom(link.get(), &answer, sizeof answer, 0,
                            reinterpret_cast<sockaddr *>(&from), &from_size);
        });
        if (n < 0) return errno;
        const bool from_kernel = from_size == sizeof from && from.nl_pid == 0;
        if (!from_kernel ||
            n < static_cast<ssize_t>(sizeof answer.header + sizeof answer.error.error) ||
            answer.header.nlmsg_seq != kSequence || answer.header.nlmsg_type != NLMSG_ERROR)
            continue;  // not ours: any process may send to a routing socket
        return -answer.error.error;
    }
}

/// 0 when done, else the errno: @p settled, which means that nothing had to be done, stays
/// unlogged.
int change(const char *who, uint16_t type, uint16_t flags, int settled, const char *target,
           const char *if_ip, const char *if_name) {
    if (!given(target) || !given(if_name))
        return VEX_FAIL_AS(who, EINVAL, EINVAL, EINVAL, "invalid NULL parameter");
    Address to, source;
    if (!to.parse(target) || (given(if_ip) && (!source.parse(if_ip) || source.family != to.family)))
        return VEX_FAIL_AS(who, EINVAL, EINVAL, EINVAL, "invalid addresses: target %s, source %s",
                           target, given(if_ip) ? if_ip : "none");
    const unsigned index = if_nametoindex(if_name);
    if (index == 0) return VEX_FAIL_AS(who, ENODEV, ENODEV, ENODEV, "no interface %s: %m", if_name);
    const int err = exchange(hostRoute(type, flags, to, source, index));
    if (err != 0 && err != settled)
        return VEX_FAIL_AS(who, err, err, err, "route to %s through %s: %m", target, if_name);
    return err;
}

}  // namespace

int NetAddRoute(const char *target, const char *if_ip, const char *if_name) {
    const int err =
        change(__func__, RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, EEXIST, target, if_ip, if_name);
    if (err == 0) return 0;
    return err == EEXIST ? 1 : -1;
}

int NetDelRoute(const char *target, const char *if_ip, const char *if_name) {
    const int err = change(__func__, RTM_DELROUTE, 0, ESRCH, target, if_ip, if_name);
    return err == 0 || err == ESRCH ? 0 : -1;
}
