/**
 * @file iprange.h
 * @ingroup net
 * Lists of permitted IPv4 networks, as configuration files give them.
 *
 * A failure gives NULL or -1 with errno, and one line, or two where a caller's line names the text
 * as a whole.
 *
 * @threads any thread; calls that change one list are the caller's to order.
 */
#ifndef VEX_IPRANGE_H
#define VEX_IPRANGE_H

#include <stdint.h>

#include <vex/export.h>
#include <vex/list.h>

struct NetInterface;

VEX_BEGIN_DECLS

/** One network, 24 bytes. */
struct iprange {
    uint32_t mask;    /**< host byte order: the prefix's bits are set from the top */
    char address[16]; /**< the network's address in dotted decimal */
    uint32_t network; /**< the same in network byte order */
};

/**
 * The prefix length behind the first '/' of a text, read as strtoul(3) reads numbers: blanks and
 * '+' in front are skipped, what follows the digits is ignored.
 *
 * @return 0 to 32; -1 with EINVAL, or ERANGE for a number beyond unsigned long.
 */
VEX_API int getmasklen(const char *text);

/**
 * Reads "address/length"; the host's bits of the address are cleared. White space may stand in
 * front of the address, not behind it.
 *
 * @return the range; NULL with EINVAL, ERANGE or ENOMEM.
 * @owner the caller destroys it with iprange_destroy.
 */
VEX_API struct iprange *iprange_create(const char *text);
/** Clears a range in the caller's storage. @return @p range. */
VEX_API struct iprange *iprange_init(struct iprange *range);
/** Frees a range that iprange_create made; NULL does nothing. */
VEX_API void iprange_destroy(struct iprange *range);

/**
 * Reads networks and single addresses separated by commas, such as "10.0.0.0/8, 192.168.1.7"; an
 * address without length is a /32. Empty pieces are skipped: "," gives an empty list.
 *
 * @return the list of struct iprange; NULL with errno when any piece is wrong.
 * @owner the caller destroys it with iprange_list_destroy.
 */
VEX_API vexList *iprange_list_create(const char *text);
/** Appends a range, which belongs to the list from then on. @return 0; -1, the range the caller's.
 */
VEX_API int iprange_list_add(vexList *list, struct iprange *range);
/** Frees a list and its ranges; NULL does nothing. */
VEX_API void iprange_list_destroy(vexList *list);

/**
 * Tells whether an interface's IPv4 address lies in one of the ranges. Reads the candidate's
 * address text alone, and leaves the list's cursor where it is.
 *
 * @return 0 when it does; -1 when not, for an empty list, and for an address that is not IPv4; -1
 * with EINVAL, logged, for NULL.
 * @note 0 is the good answer here, unlike that of NetCheckIPRange.
 */
VEX_API int iprange_list_lookup(vexList *list, const struct NetInterface *candidate);

VEX_END_DECLS

#endif
