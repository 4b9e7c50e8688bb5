// Address lists and the resolver, for the rest of the family.
#ifndef VEX_NET_RESOLVE_H
#define VEX_NET_RESOLVE_H

#include <netdb.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>

#include <vex/net.h>

namespace vex::net {

struct AddressListFree {
    void operator()(addrinfo *list) const { zq_freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListFree>;

/// get_nat_vkproxy at a time of coarseMs.
int relaySettings(int64_t now_ms, char *host, size_t host_size, char *port, size_t port_size);

/// zq_getaddrinfo past any relay: for addresses of this machine, which no relay can answer for.
int resolveDirect(const char *host, const char *service, const addrinfo *hints, addrinfo **out);

/// What went wrong, for a message: the text of a resolver's code, errno's for EAI_SYSTEM.
class ResolverText {
public:
    explicit ResolverText(int err);
    const char *get() const { return text_; }

private:
    char buffer_[128];
    const char *text_;
};

/// The errno that goes with a resolver's code; EAI_SYSTEM keeps the one that stands.
int resolverErrno(int err);

/// The deep copy. @p who and @p name_text are its messages' words.
int copyList(const char *who, const char *name_text, const addrinfo *source, addrinfo **out);

/// The relay information of a node; nullptr when the library did not make it for a relay.
relayinfo *relayOf(const addrinfo *node);

/// The port of an internet address, 0 of any other.
unsigned portOf(const sockaddr *address);

/// The numeric text of a socket address, for messages.
class AddressText {
public:
    explicit AddressText(const sockaddr *address, const char *otherwise = "<unknown>");
    const char *get() const { return text_; }

private:
    char text_[46];
};

}  // namespace vex::net

#endif
