// Address lists: deep copies of the system's, and the one-node lists that stand for a relay.
#include <errno.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>

#include <vex/log.h>
#include <vex/text.h>

#include "base/errno_guard.h"
#include "base/unique_ptr.h"
#include "log/report.h"
#include "net/resolve.h"

#define SAME_PLACE(field) static_assert(offsetof(zq_addrinfo, field) == offsetof(addrinfo, field))
SAME_PLACE(ai_flags);
SAME_PLACE(ai_family);
SAME_PLACE(ai_socktype);
SAME_PLACE(ai_protocol);
SAME_PLACE(ai_addrlen);
SAME_PLACE(ai_addr);
SAME_PLACE(ai_canonname);
SAME_PLACE(ai_next);
#undef SAME_PLACE

namespace vex::net {
namespace {

// No resolver sets this bit: where it is set, the node is a zq_addrinfo with relay information.
// Without it nothing may be read behind the fields of the system's record.
constexpr int kRelayNode = 0x40000000;

int copyParts(const char *who, const char *name_text, const addrinfo *from, zq_addrinfo *to) {
    if (from->ai_canonname != nullptr && (to->ai_canonname = strdup(from->ai_canonname)) == nullptr)
        return VEX_FAIL_AS(who, ENOMEM, ENOMEM, EAI_MEMORY, "%s", name_text);
    const relayinfo *const relay = relayOf(from);
    if (relay == nullptr) return 0;
    to->relayinfo = static_cast<relayinfo *>(malloc(sizeof *relay));
    if (to->relayinfo == nullptr)
        return VEX_FAIL_AS(who, ENOMEM, ENOMEM, EAI_MEMORY,
                           "could not allocate memory for relayinfo");
    *to->relayinfo = *relay;
    return 0;
}

/// False, outputs being a list's head in the making, when @p text does not fit.
bool put(char (&to)[256], const char *text) {
    return vex_strcpy(to, sizeof to, text) >= 0;
}

}  // namespace

int copyList(const char *who, const char *name_text, const addrinfo *source, addrinfo **out) {
    AddressList head;
    addrinfo *last = nullptr;
    for (const addrinfo *from = source; from != nullptr; from = from->ai_next) {
        // the address lies behind its node: one allocation for both halves the cost of a copy
        const size_t size = from->ai_addr != nullptr ? from->ai_addrlen : 0;
        auto *const to = static_cast<zq_addrinfo *>(malloc(sizeof(zq_addrinfo) + size));
        if (to == nullptr)
            return VEX_FAIL_AS(who, ENOMEM, ENOMEM, EAI_MEMORY,
                               last == nullptr ? "could not allocate memory for dst"
                                               : "could not allocate memory for next dst");
        *to = zq_addrinfo{};
        if (size > 0) {
            to->ai_addr = reinterpret_cast<sockaddr *>(to + 1);
            to->ai_addrlen = from->ai_addrlen;
            memcpy(to->ai_addr, from->ai_addr, size);
        }
        auto *const node = reinterpret_cast<addrinfo *>(to);
        // linked at once: whatever fails from here on is freed with the list
        if (last == nullptr)
            head.reset(node);
        else
            last->ai_next = node;
        last = node;
        to->ai_flags = from->ai_flags;
        to->ai_family = from->ai_family;
        to->ai_socktype = from->ai_socktype;
        to->ai_protocol = from->ai_protocol;
        if (copyParts(who, name_text, from, to) != 0) return EAI_MEMORY;
    }
    *out = head.release();
    return 0;
}

relayinfo *relayOf(const addrinfo *node) {
    if (node == nullptr || (node->ai_flags & kRelayNode) == 0) return nullptr;
    return reinterpret_cast<const zq_addrinfo *>(node)->relayinfo;
}

unsigned portOf(const sockaddr *address) {
    if (address->sa_family != AF_INET && address->sa_family != AF_INET6) return 0;
    // the port stands at the same place in both families
    return ntohs(reinterpret_cast<const sockaddr_in *>(address)->sin_port);
}

AddressText::AddressText(const sockaddr *address, const char *otherwise) {
    const ErrnoGuard keep;
    if (address == nullptr || get_ip_str(address, text_, sizeof text_) == nullptr)
        (void)vex_strcpy(text_, sizeof text_, otherwise);
}

}  // namespace vex::net

int zq_copyaddrinfo(const struct addrinfo *source, struct addrinfo **result_out) {
    if (source == nullptr || result_out == nullptr)
        return VEX_FAIL(EINVAL, EAI_BADFLAGS, "invalid NULL parameter");
    return vex::net::copyList(__func__, "could not duplicate cannonical name", source, result_out);
}

void zq_freeaddrinfo(struct addrinfo *list) {
    const vex::ErrnoGuard keep;
    while (list != nullptr) {
        addrinfo *const next = list->ai_next;
        free(vex::net::relayOf(list));
        free(list->ai_canonname);
        free(list);
        list = next;
    }
}

int zq_getaddrinfo4relay(const char *dest_host, const char *dest_port, const char *relay_host,
                         const char *relay_port, struct addrinfo **result_out) {
    if (relay_host == nullptr || relay_port == nullptr || result_out == nullptr)
        return VEX_FAIL(EINVAL, EAI_BADFLAGS, "invalid NULL parameter");
    if (dest_host == nullptr) dest_host = "";
    if (dest_port == nullptr) dest_port = "";
    if (TraceOn())
        __Trace("%s: getaddrinfo with desthost %s, destport %s, rlinkhost %s, rlinkport %s",
                __func__, dest_host, dest_port, relay_host, relay_port);
    vex::UniqueMalloc<relayinfo> relay(static_cast<relayinfo *>(calloc(1, sizeof(relayinfo))));
    vex::UniqueMalloc<char> name(strdup(dest_host));
    if (!relay || !name) {
        errno = ENOMEM;
        ErrorA(ENOMEM, "%s : could not allocate memory for relayinfo", __func__);
        return EAI_MEMORY;
    }
    using vex::net::put;
    if (!put(relay->dest_host, dest_host) || !put(relay->dest_port, dest_port) ||
        !put(relay->relay_host, relay_host) || !put(relay->relay_port, relay_port))
        return VEX_FAIL(EINVAL, EAI_BADFLAGS, "a host or port is longer than 255 bytes");
    auto *const node = static_cast<zq_addrinfo *>(calloc(1, sizeof(zq_addrinfo)));
    if (node == nullptr) {
        errno = ENOMEM;
        ErrorA(ENOMEM, "%s : could not allocate memory for zq_addrinfo", __func__);
        return EAI_MEMORY;
    }
    node->ai_flags = vex::net::kRelayNode;
    node->ai_family = AF_UNSPEC;
    node->ai_socktype = SOCK_STREAM;
    node->ai_canonname = name.release();
    node->relayinfo = relay.release();
    *result_out = reinterpret_cast<addrinfo *>(node);
    return 0;
}
