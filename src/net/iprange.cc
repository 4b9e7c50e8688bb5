// Lists of IPv4 networks.
#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include <vex/interface.h>
#include <vex/iprange.h>
#include <vex/log.h>
#include <vex/text.h>

#include "base/ascii.h"
#include "base/errno_guard.h"
#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

struct RangeDestroy {
    void operator()(iprange *range) const { iprange_destroy(range); }
};
struct ListDestroy {
    void operator()(vexList *list) const { iprange_list_destroy(list); }
};
using Range = std::unique_ptr<iprange, RangeDestroy>;
using RangeList = std::unique_ptr<vexList, ListDestroy>;

int invalidMask(const char *who) {
    return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid mask");
}

/// A line whose blank before the colon log readers look for.
std::nullptr_t failSpaced(int code, const char *who, const char *text) {
    ErrorA(code, "%s : %s", who, text);
    return nullptr;
}

/// Splits the copy at its '/' and fills the record; false after reporting.
bool readNetwork(const char *who, char *text, iprange *range) {
    *strchr(text, '/') = '\0';
    while (vex::ascii::isSpace(*text)) ++text;
    in_addr address{};
    if (inet_pton(AF_INET, text, &address) != 1) {
        // an errno from elsewhere has been reported there
        if (errno != 0) return false;
        errno = EINVAL;
        failSpaced(EINVAL, who, "could not convert ip address to address");
        return false;
    }
    address.s_addr &= htonl(range->mask);
    range->network = address.s_addr;
    if (inet_ntop(AF_INET, &address, range->address, sizeof range->address) != nullptr) return true;
    failSpaced(errno, who, "could not convert ip address to string");
    return false;
}

/// The range of one piece of a list; empty after reporting.
Range readPiece(const char *who, char *piece) {
    char host[32];
    if (strchr(piece, '/') == nullptr) {
        piece = vex_strtrim(piece);
        if (strlen(piece) > 16) {
            errno = EINVAL;
            ErrorA(69, "%s: %s: IP Range format error: %m", who, piece);
            return nullptr;
        }
        (void)snprintf(host, sizeof host, "%s/%s", piece, "32");  // 16 bytes and the length
        piece = host;
    }
    Range range(iprange_create(piece));
    if (!range) {
        const int err = errno;
        (void)VEX_FAIL_AS(who, err, err, nullptr, "get ip range address failed %m");
    }
    return range;
}

}  // namespace

int getmasklen(const char *text) {
    if (text == nullptr || *text == '\0') {
        (void)VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
        return invalidMask(__func__);
    }
    const char *const slash = strchr(text, '/');
    if (slash == nullptr) {
        (void)VEX_FAIL(EINVAL, -1, "invalid parameter: does not contain '/'");
        return invalidMask(__func__);
    }
    errno = 0;
    char *end = nullptr;
    const unsigned long length = strtoul(slash + 1, &end, 10);
    if (errno == ERANGE) return VEX_FAIL(ERANGE, -1, "invalid input: %s", slash + 1);
    if (end == slash + 1) {
        (void)VEX_FAIL(EINVAL, -1, "no digit found");
        return invalidMask(__func__);
    }
    // a minus sign is taken modulo the type: it makes the number large, or small again
    const bool negative =
        length != 0 && std::find(slash + 1, static_cast<const char *>(end), '-') != end;
    if (negative || length >= 33) {
        (void)VEX_FAIL(EINVAL, -1, "mask not 0-32 (%lu)", length);
        return invalidMask(__func__);
    }
    return static_cast<int>(length);
}

struct iprange *iprange_create(const char *text) {
    if (text == nullptr || *text == '\0')
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    const vex::UniqueMalloc<char> copy(strdup(text));
    if (!copy) return failSpaced(-1, __func__, "could not dupliate input");
    const int length = getmasklen(text);
    if (length < 0) {
        const int err = errno;
        return VEX_FAIL(err, nullptr, "IP address format is invalid.");
    }
    Range range(static_cast<iprange *>(malloc(sizeof(iprange))));
    if (!range) return failSpaced(ENOMEM, __func__, "could not allocate memory");
    iprange_init(range.get());
    // a shift by all 32 bits is not defined
    range->mask = length == 0 ? 0 : UINT32_MAX << (32 - length);
    return readNetwork(__func__, copy.get(), range.get()) ? range.release() : nullptr;
}

struct iprange *iprange_init(struct iprange *range) {
    if (range == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    *range = iprange{};
    return range;
}

void iprange_destroy(struct iprange *range) {
    const vex::ErrnoGuard keep;
    free(range);
}

vexList *iprange_list_create(const char *text) {
    if (text == nullptr || *text == '\0')
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    const vex::UniqueMalloc<char> copy(strdup(text));
    if (!copy) return VEX_FAIL(ENOMEM, nullptr, "could not dupliate input");
    RangeList list(vexListCreate());
    if (!list) return VEX_FAIL(ENOMEM, nullptr, "could not create list.");
    char *state = nullptr;
    for (char *piece = vex_strtok(copy.get(), ",", &state); piece != nullptr;
         piece = vex_strtok(nullptr, ",", &state)) {
        Range range = readPiece(__func__, piece);
        if (!range) return nullptr;
        if (iprange_list_add(list.get(), range.get()) != 0) {
            const int err = errno;
            return VEX_FAIL(err, nullptr, "Add the node into IP range list failed %m");
        }
        (void)range.release();  // the list's now
    }
    return list.release();
}

int iprange_list_add(vexList *list, struct iprange *range) {
    if (list == nullptr || range == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vexListAdd(list, range);
}

void iprange_list_destroy(vexList *list) {
    const vex::ErrnoGuard keep;
    vexListDestroy(list, [](void *range) { iprange_destroy(static_cast<iprange *>(range)); });
}

int iprange_list_lookup(vexList *list, const struct NetInterface *candidate) {
    if (list == nullptr || candidate == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    in_addr address{};
    if (inet_pton(AF_INET, candidate->address, &address) != 1) return -1;
    for (const vexListNode *node = list->first; node != nullptr; node = node->next) {
        const auto *const range = static_cast<const iprange *>(node->value);
        if ((address.s_addr & htonl(range->mask)) == range->network) return 0;
    }
    return -1;
}
