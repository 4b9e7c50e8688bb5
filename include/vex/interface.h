/**
 * @file interface.h
 * @ingroup net
 * The machine's interfaces, host routes, and accepting connections with the peer's name.
 *
 * Failures are 0-or--1 or NULL with errno and one line in the log.
 *
 * @threads any thread; a list is used by one thread at a time. The reverse-lookup cache has a lock.
 */
#ifndef VEX_INTERFACE_H
#define VEX_INTERFACE_H

#include <stdbool.h>
#include <stddef.h>
#include <sys/socket.h>

#include <vex/export.h>
#include <vex/list.h>

struct sockaddr;

VEX_BEGIN_DECLS

/** One address of an interface. Texts are numeric, and empty where there is nothing to tell. */
struct NetInterface {
    char name[16];        /**< as the system calls it, a label such as "eth0:1" included */
    char address[46];     /**< IPv4 or IPv6 */
    char netmask[46];     /**< of the same family */
    char broadcast[46];   /**< IPv4 where the interface has one */
    int family;           /**< AF_INET or AF_INET6 */
    unsigned index;       /**< the system's number, from 1; 0 when it has gone meanwhile */
    unsigned flags;       /**< IFF_ bits of netdevice(7) */
    unsigned prefix;      /**< bits set in the netmask */
    unsigned char mac[6]; /**< hardware address, zeros for none */
};

/**
 * Lists the addresses of all interfaces that are up, the loopback included, in the system's order.
 *
 * @param family  AF_INET, AF_INET6, or 0 for both.
 * @return a list of struct NetInterface; NULL with EINVAL or what getifaddrs(3) left.
 * @owner the caller destroys it with NetInterfaceListDestroy.
 */
VEX_API vexList *NetInterfaceListCreate(int family);
/** Frees a list and its records; NULL does nothing. */
VEX_API void NetInterfaceListDestroy(vexList *list);

/**
 * Finds the first record of an interface's name.
 *
 * @return the list's record; NULL with ENOENT, silently, when there is none.
 */
VEX_API const struct NetInterface *NetInterfaceFindByName(vexList *list, const char *name);
/** NetInterfaceFindByName for an address, in whatever form it is written. */
VEX_API const struct NetInterface *NetInterfaceFindByAddress(vexList *list, const char *address);

/** Copies the records whose address lies in one of the ranges of iprange_list_create. @return a new
 * list, perhaps empty. @owner see NetInterfaceListCreate. */
VEX_API vexList *NetInterfaceListFilter(vexList *list, vexList *ranges);

/**
 * Adds a route to one host through a device, in the main table. Needs CAP_NET_ADMIN.
 *
 * @param target   address of the host, IPv4 or IPv6.
 * @param if_ip    preferred source address, one of this machine; NULL or "" leaves it to the
 * system.
 * @param if_name  the interface.
 * @return 0 when it was added, 1 when a route to the host existed already; -1 with EPERM, ENODEV,
 * EINVAL (no addresses, or of different families) or what the system says, such as ENETDOWN.
 * @standard rtnetlink(7); the system answers at once.
 */
VEX_API int NetAddRoute(const char *target, const char *if_ip, const char *if_name);
/** Removes the route that NetAddRoute adds. @return 0, also when there is none; -1 as above. */
VEX_API int NetDelRoute(const char *target, const char *if_ip, const char *if_name);

/**
 * Accepts a connection and tells who the peer is. An IPv4 peer of an IPv6 socket shows as IPv4.
 *
 * @param listen_fd  a listening socket of NetBindAndListen.
 * @param host       receives its name by NetGetPeerName, "" when it does not fit (1025 bytes hold
 *                   every name); NULL leaves the look-up out.
 * @param host_size  room at @p host in bytes.
 * @param ip         receives its numeric address (46 bytes hold it), "" for other families; NULL
 *                   for none.
 * @param ip_size    room at @p ip in bytes.
 * @param port       receives its port; NULL for none.
 * @return the socket, close-on-exec; -1 with the errno of accept(2); EAGAIN is not logged.
 * @note Waits without limit for a connection on a blocking socket; the look-up of the name takes as
 * long as the resolver does.
 */
VEX_API int NetAccept(int listen_fd, char *host, size_t host_size, char *ip, size_t ip_size,
                      unsigned *port);

/**
 * Finds the name of a host by its address, in the process's cache first.
 *
 * @param address       an IPv4 or IPv6 address.
 * @param address_size  bytes at @p address.
 * @param host          receives the name, or the numeric address where there is none.
 * @param size          room of @p host in bytes.
 * @return 0 when the name was found; 1 when there is none: @p host holds the numeric address; -1
 * with ENOBUFS for a name that does not fit, EAFNOSUPPORT for an address that cannot be printed.
 * @logs a warning for each address without a name and for each look-up of more than 5 seconds.
 * @note A name is what the owner of the address claims: do not grant rights by it.
 */
VEX_API int NetGetPeerName(const struct sockaddr *address, socklen_t address_size, char *host,
                           size_t size);

/**
 * Switches the reverse-lookup cache, which is on at first, and sets how long it is kept until it is
 * emptied as a whole: the key DNSCacheTimeoutSecond of a program's configuration.
 *
 * @param enabled          false makes each call ask the resolver.
 * @param timeout_seconds  3600 at first.
 */
VEX_API void NetSetDnsCache(bool enabled, unsigned timeout_seconds);

VEX_END_DECLS

#endif
