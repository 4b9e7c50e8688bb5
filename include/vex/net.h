/**
 * @file net.h
 * @ingroup net
 * Name resolution, TCP connections and listeners, waiting, sending and receiving.
 *
 * Host names and addresses may be of IPv4 and IPv6. Descriptors belong to the caller, who closes
 * them with close(2); all that the library opens are close-on-exec. Sending to a peer that has gone
 * is an error (EPIPE), never a SIGPIPE. Results are 0, a count or a descriptor, or -1 with errno;
 * the function that meets a failure logs it, once. NULL for a parameter that must not be NULL gives
 * the failure value with EINVAL and the line "invalid NULL parameter".
 *
 * @threads any thread. The relay settings and the reverse-lookup cache are shared by all threads,
 * each under a lock of its own.
 * @standard RFC 1928 (SOCKS version 5), RFC 3493 (socket interface for IPv6).
 */
#ifndef VEX_NET_H
#define VEX_NET_H

#include <netdb.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <vex/export.h>

struct addrinfo;
struct sockaddr;

VEX_BEGIN_DECLS

/** Where a connection through a relay leads and which relay takes it there; all NUL-terminated. */
struct relayinfo {
    char dest_host[256];  /**< name or address, resolved by the relay; 1 to 255 bytes */
    char dest_port[256];  /**< decimal, 1 to 65535 */
    char relay_host[256]; /**< name or address of the relay */
    char relay_port[256]; /**< its port */
};

/**
 * What each node of the library's address lists is. The first eight fields are laid out as those of
 * struct addrinfo, so that a list can be handed to code that expects the system's.
 */
struct zq_addrinfo {
    int ai_flags;             /**< the resolver's; one private bit marks the node of a relay list */
    int ai_family;            /**< AF_INET or AF_INET6; AF_UNSPEC in a relay list */
    int ai_socktype;          /**< SOCK_STREAM */
    int ai_protocol;          /**< IPPROTO_TCP, or 0 */
    socklen_t ai_addrlen;     /**< bytes at ai_addr */
    struct sockaddr *ai_addr; /**< NULL in a relay list */
    char *ai_canonname;       /**< NULL unless asked for; the destination host in a relay list */
    struct addrinfo *ai_next; /**< NULL at the end */
    struct relayinfo *relayinfo; /**< NULL unless in a relay list */
};

/** Bits of the options word. */
enum {
    NET_OPT_NAGLE = 1,     /**< leave Nagle's algorithm on; otherwise TCP_NODELAY is set */
    NET_OPT_KEEPALIVE = 2, /**< probe an idle peer, first after 210 seconds */
    NET_OPT_LINGER = 4     /**< close(2) waits up to 1 second for what is unsent */
};

/** How to connect. All zero is the default. */
struct NetConnectParams {
    uint32_t options;            /**< NET_OPT_ bits */
    int send_buffer;             /**< bytes, 0 = the system's choice */
    int receive_buffer;          /**< bytes, 0 = the system's choice */
    const char *local_interface; /**< name or address to bind to; NULL or "" for none */
    const char *route_target;    /**< address of a host route to add; NULL or "" for none */
    const char *route_if_ip;     /**< its preferred source address */
    const char *route_if_name;   /**< its interface */
    int fatal;                   /**< non-zero makes a failure the thread's fatal error */
};

/**
 * Resolves a name for stream sockets, as getaddrinfo(3) does, and gives up on a resolver that is
 * busy only after three attempts.
 *
 * While a relay is in force (see get_nat_vkproxy) nothing is resolved: the result is the list of
 * zq_getaddrinfo4relay. Services are numbers. Only EAI_AGAIN, and EAI_SYSTEM with EAGAIN, are
 * retried, a second apart and never later than 30 seconds after the first attempt.
 *
 * @param host     name or address; NULL as for getaddrinfo(3).
 * @param service  port in decimal; NULL for none. Names give EAI_NONAME; the system's resolver
 *                 takes numbers above 65535 modulo 65536.
 * @param hints    left unchanged; the socket type is taken as stream. NULL for any family.
 * @param result_out  receives the list, untouched after a failure.
 * @return 0 or a negative EAI_ code; then errno tells the kind: EAGAIN, ENOMEM, EINVAL (wrong
 * hints), ENOENT (no such name), or the system's for EAI_SYSTEM. EAI_BADFLAGS for a NULL
 * result_out.
 * @owner the caller frees the list with zq_freeaddrinfo, never with freeaddrinfo(3).
 * @logs each retry. That a name is not known is only traced.
 * @note Blocks as long as the system's resolver does, which resolv.conf(5) bounds, three times at
 * most, and 2 seconds.
 */
VEX_API int zq_getaddrinfo(const char *host, const char *service, const struct addrinfo *hints,
                           struct addrinfo **result_out);

/** Copies a list, the system's or the library's, with all that it points to. @return 0;
 * EAI_MEMORY with ENOMEM, or EAI_BADFLAGS with EINVAL. @owner see zq_getaddrinfo. */
VEX_API int zq_copyaddrinfo(const struct addrinfo *source, struct addrinfo **result_out);

/** Frees a list that the library made; NULL does nothing. Keeps errno. */
VEX_API void zq_freeaddrinfo(struct addrinfo *list);

/**
 * Makes the list for a connection through a relay: one node of family AF_UNSPEC, without address,
 * whose relayinfo holds the four texts. Resolves nothing.
 *
 * @param dest_host, dest_port  NULL counts as "", which NetConnectByAddr4Relay refuses.
 * @param relay_host            name or address of the relay.
 * @param relay_port            its port in decimal.
 * @param result_out            receives the list, untouched after a failure.
 * @return 0; EAI_BADFLAGS with EINVAL for a NULL relay or a text of more than 255 bytes;
 * EAI_MEMORY.
 * @owner see zq_getaddrinfo.
 */
VEX_API int zq_getaddrinfo4relay(const char *dest_host, const char *dest_port,
                                 const char *relay_host, const char *relay_port,
                                 struct addrinfo **result_out);

/**
 * Tells whether connections must go through a relay, as the keys NAT_VKPROXY_HOST and
 * NAT_VKPROXY_PORT of /usr/lumen/vaultkeep/hx.conf say.
 *
 * The file is read every 120 seconds at most. A line is "KEY=value", blanks around both are left
 * out; the last one of a key counts; lines of more than 1023 bytes and lines that begin with '#' do
 * not, and of a file the first MiB alone is read.
 *
 * @return 1 with both outputs written; 0 when no relay is in force; -1 with ENOBUFS when an output
 * is too small (256 bytes hold every value).
 * @logs a warning when the file cannot be opened, an error when it has one key without the other.
 */
VEX_API int get_nat_vkproxy(char *host_out, size_t host_size, char *port_out, size_t port_size);

/**
 * Connects to the first address of a list that answers, from every local address in turn where a
 * local interface is named. A relay list is handed to NetConnectByAddr4Relay.
 *
 * A route that was added for an attempt that fails is removed again; one that existed stays. Each
 * attempt takes about half a minute at most when nothing answers (TCP_SYNCNT is 4).
 *
 * @param list        of zq_getaddrinfo or the system's; stays the caller's.
 * @param parameters  NULL for the defaults.
 * @return the connected socket, blocking; -1 with the errno of the last attempt.
 * @logs "Failed to connect to host" once, warnings for local addresses that cannot be bound.
 * @note The fatal error names the service by the port of the last address: "blockd" for 10082, else
 * "mgrd". A failure through a relay makes no fatal error.
 */
VEX_API int NetConnectByAddr(const struct addrinfo *list,
                             const struct NetConnectParams *parameters);

/**
 * Connects to the relay of a relay list and has it connect to the destination by name.
 *
 * Relay addresses are tried in order until one accepts the connection; the exchange with it may
 * take 120 seconds. The relay must answer with an address of the host-name type. No byte behind its
 * answer is taken from the socket.
 *
 * @return the connected socket; -1 with ECONNREFUSED when the relay refuses, EPROTO for an answer
 * that breaks the protocol, ECONNRESET, ETIMEDOUT, or what connect(2) left; EINVAL for a list that
 * is no relay list and for a destination without a host or with a port not in 1 to 65535.
 */
VEX_API int NetConnectByAddr4Relay(const struct addrinfo *list,
                                   const struct NetConnectParams *parameters);

/**
 * Tunes a TCP socket: the options, the buffers, and TCP_SYNCNT 4 always.
 *
 * @param fd                           a TCP socket, connected or not.
 * @param options                      NET_OPT_ bits.
 * @param send_buffer, receive_buffer  bytes; 0 leaves the system's choice, which grows as needed.
 * @return 0, also when some option could not be set, which is a warning; -1 with EBADF for a
 * negative descriptor.
 */
VEX_API int NetSetSocketOptions(int fd, uint32_t options, int send_buffer, int receive_buffer);

/**
 * Listens on the first address of a host that can be listened on, with a backlog of 1024 and
 * SO_REUSEADDR and SO_REUSEPORT: a second listener of the same user on the port succeeds.
 *
 * @param host    name or address of this machine; NULL for all its addresses: IPv4 alone comes
 *                first, so ask for AF_INET6 in the hints to serve both families with one socket.
 * @param port    0 to 65535; 0 lets the system choose.
 * @param hints   family and flags, AI_PASSIVE is added; NULL for any family.
 * @param fd_out  receives the listening socket.
 * @return 0; -1 with the errno of the last attempt.
 */
VEX_API int NetBindAndListen(const char *host, unsigned port, const struct addrinfo *hints,
                             int *fd_out);

/**
 * Receives exactly @p count bytes, or what comes before the peer closes.
 *
 * @return the count; less, with errno ECONNRESET where it was 0 before, when the peer closed; -1
 * when recv(2) fails.
 * @note Blocks without limit on a blocking socket: wait with NetSelect first, or set SO_RCVTIMEO.
 * Set errno to 0 before where a short count must be told apart by it.
 */
VEX_API ssize_t read_n_bytes(int fd, void *buffer, size_t count);

/** Sends exactly @p count bytes. @return @p count; -1 when send(2) fails. Blocks without limit
 * while the peer reads nothing, but for SO_SNDTIMEO. */
VEX_API ssize_t write_n_bytes(int fd, const void *buffer, size_t count);

/**
 * Sends one line: the text, cut to 1022 bytes without notice, and a newline, also behind a text
 * that ends in one.
 *
 * @param fd      a socket, a pipe or a file.
 * @param format  printf format of the text.
 * @return the bytes sent by the one call made, which may be fewer on a non-blocking descriptor; -1.
 */
VEX_API int NetSend(int fd, const char *format, ...) VEX_PRINTF(2, 3);

/**
 * Waits until a descriptor is readable.
 *
 * @param fd          a socket, a pipe, a terminal or a file.
 * @param timeout_ms  milliseconds, negative without limit; 0 waits 60, then 120, then 240 seconds,
 *                    telling each, and then without limit.
 * @return 1 when readable, which the end of the peer's data is too; 0 when the time is over; -1 for
 * an interrupted wait (EINTR, traced only), a hang-up (EPIPE), a descriptor in error (its error, or
 * EIO) or one that is not open (EBADF).
 */
VEX_API int NetSelect(int fd, int timeout_ms);

/** Tells at once whether a descriptor is readable. @return as NetSelect; a signal does not
 * interrupt it. */
VEX_API int NetCheckForInput(int fd);

/**
 * Receives one line, without its "\n" or "\r\n", and not a byte beyond it.
 *
 * @param fd      a socket, a pipe or a file.
 * @param buffer  receives the line, terminated.
 * @param size    room with the terminator.
 * @return its length; -1 with ECONNRESET when the peer closed before any byte; -1 with ENOBUFS for
 * a line that does not fit, whose rest has been dropped and whose head is in @p buffer. What came
 * before the peer closed counts as a line.
 * @note Blocks without limit. A pipe or file is read byte by byte.
 */
VEX_API int NetReadReply(int fd, char *buffer, size_t size);

/**
 * Tests an IPv4 address against networks such as "10, 10.1, 192.168.1.0/24"; blanks around them and
 * empty ones do not count.
 *
 * A network gives 1 to 4 fields; without a length the prefix covers the fields given. Fields
 * outside the prefix must be 0.
 *
 * @param ranges   NULL or "" allows everything.
 * @param address  four fields; NULL only checks the ranges.
 * @param verbose  non-zero logs why, and flushes standard output at the end.
 * @return 1 when the address lies in a range or all ranges are good; 0 when not, or with EINVAL for
 * a wrong address or range.
 * @note The first range that matches ends the call: ranges behind it are not checked.
 */
VEX_API int NetCheckIPRange(const char *ranges, const char *address, int verbose);

/** Starts the use of the network: nothing to do on this platform. @return 0. */
VEX_API int NetStart(void);
/** Ends the use of the network: nothing to do on this platform. @return 0. */
VEX_API int NetStop(void);

/**
 * Writes the numeric text of an IPv4 or IPv6 address; 46 bytes hold every one.
 *
 * @return @p buffer; NULL with EAFNOSUPPORT, not logged, and "Unknown AF" in @p buffer for other
 * families; NULL with ENOBUFS.
 */
VEX_API char *get_ip_str(const struct sockaddr *address, char *buffer, size_t size);

/**
 * Tells whether a host is this machine: one of its addresses can be bound here. Relays play no
 * part.
 *
 * @return 1 or 0; 0 also for a name that cannot be resolved and after a failure.
 */
VEX_API int NetIsHostLocalByName(const char *name);
/** NetIsHostLocalByName for the addresses of a list. */
VEX_API int NetIsHostLocalByAddr(const struct addrinfo *list);
/** The same for one node of a list. */
VEX_API int is_addrinfo_local(const struct addrinfo *one);

/**
 * Tells whether two hosts are the same: they share an address, or both are this machine.
 *
 * @return 1 or 0; 0 also for names that cannot be resolved, and with EINVAL for NULL and "".
 */
VEX_API int NetSameHostByName(const char *name1, const char *name2);
/** NetSameHostByName for two lists of addresses; 0 with EINVAL for NULL. */
VEX_API int NetSameHostByAddr(const struct addrinfo *list1, const struct addrinfo *list2);

/** Compares family and address bytes, not the port. @return 1 when equal, else 0. An IPv4 address
 * and its IPv6-mapped form differ. */
VEX_API int ip_compare(const struct sockaddr *a, const struct sockaddr *b);

VEX_END_DECLS

#ifdef __cplusplus
#include <map>
#include <string>

VEX_BEGIN_DECLS
/** The reverse-lookup cache of NetGetPeerName: numeric address to host name. Change these from
 * outside only while no other thread accepts connections. */
extern VEX_API std::map<std::string, std::string> g_DNS_Cache;
/** False after an address could not be printed, or by NetSetDnsCache. */
extern VEX_API bool g_DNS_Cache_enabled;
/** When the cache was emptied last, a gethrtime stamp; 0 before its first use. */
extern VEX_API uint64_t tDNS_Cache_clear_up_base;
/** Reverse look-ups that took more than 5 seconds. */
extern VEX_API unsigned g_found_DNS_slow_count;
VEX_END_DECLS
#endif

#endif
