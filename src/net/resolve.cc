// The resolver with its retries.
#include "net/resolve.h"

#include <errno.h>
#include <string.h>

#include <vex/log.h>

#include "base/errno_guard.h"
#include "base/monotonic.h"
#include "log/report.h"

namespace vex::net {
namespace {

constexpr char kName[] = "zq_getaddrinfo";
constexpr int kAttempts = 3;
constexpr int64_t kPauseMs = 1000;
constexpr int64_t kDeadlineMs = 30 * 1000;

struct SystemListFree {
    void operator()(addrinfo *list) const {
        const ErrnoGuard keep;
        freeaddrinfo(list);
    }
};
using SystemList = std::unique_ptr<addrinfo, SystemListFree>;

bool isTemporary(int err) {
    return err == EAI_AGAIN || (err == EAI_SYSTEM && errno == EAGAIN);
}

/// A whole second, signals or not: the retries are counted on it.
void pause() {
    timespec until{};
    (void)clock_gettime(CLOCK_MONOTONIC, &until);  // cannot fail for this clock
    until.tv_sec += kPauseMs / 1000;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

const char *orNull(const char *text) {
    return text != nullptr ? text : "NULL";
}

/// Asks the system's resolver up to three times from @p start on; errno goes with the result.
int ask(int64_t start, const char *host, const char *service, const addrinfo &hints,
        SystemList *list) {
    for (int attempt = 1;; ++attempt) {
        addrinfo *found = nullptr;
        const int err = getaddrinfo(host, service, &hints, &found);
        list->reset(found);
        if (err == 0) return 0;
        const bool retry = isTemporary(err) && attempt < kAttempts;
        errno = resolverErrno(err);
        const ResolverText text(err);
        if (!retry) {
            if (TraceOn())
                __Trace("%s: getaddrinfo failed for host %s using service %s: %s", kName,
                        orNull(host), orNull(service), text.get());
            return err;
        }
        if (coarseMs() - start + kPauseMs > kDeadlineMs) {
            ErrorA(-1, "%s: EAI_AGAIN took too long for host %s using service %s: %s", kName,
                   orNull(host), orNull(service), text.get());
            return err;
        }
        ErrorA(-1, "%s: getaddrinfo EAI_AGAIN for host %s using service %s try %d: %s", kName,
               orNull(host), orNull(service), attempt, text.get());
        pause();
    }
}

/// The clock is read once by the caller: a numeric address takes hardly longer to resolve.
int resolveFrom(int64_t start, const char *host, const char *service, const addrinfo *hints,
                addrinfo **out) {
    if (out == nullptr)
        return VEX_FAIL_AS(kName, EINVAL, EINVAL, EAI_BADFLAGS, "invalid NULL parameter");
    addrinfo own{};
    if (hints != nullptr) {
        own.ai_flags = hints->ai_flags;
        own.ai_family = hints->ai_family;
        own.ai_protocol = hints->ai_protocol;
    }
    own.ai_flags |= AI_NUMERICSERV;
    own.ai_socktype = SOCK_STREAM;
    SystemList list;
    int err = ask(start, host, service, own, &list);
    if (err == 0) err = copyList("copy_addrinfo", "could not duplicate string", list.get(), out);
    if (TraceOn()) __Trace("%s: exiting, err = %d", kName, err);
    return err;
}

}  // namespace

ResolverText::ResolverText(int err) {
    const ErrnoGuard keep;
    text_ = err == EAI_SYSTEM ? strerror_r(errno, buffer_, sizeof buffer_) : gai_strerror(err);
}

int resolverErrno(int err) {
    switch (err) {
        case EAI_SYSTEM:
            return errno;
        case EAI_AGAIN:
            return EAGAIN;
        case EAI_MEMORY:
            return ENOMEM;
        case EAI_BADFLAGS:
        case EAI_FAMILY:
        case EAI_SOCKTYPE:
        case EAI_SERVICE:
            return EINVAL;
        default:
            return ENOENT;
    }
}

int resolveDirect(const char *host, const char *service, const addrinfo *hints, addrinfo **out) {
    return resolveFrom(coarseMs(), host, service, hints, out);
}

namespace {

int resolveOrRelay(const char *host, const char *service, const addrinfo *hints, addrinfo **out) {
    const int64_t now = coarseMs();
    char relay_host[sizeof relayinfo::relay_host], relay_port[sizeof relayinfo::relay_port];
    if (relaySettings(now, relay_host, sizeof relay_host, relay_port, sizeof relay_port) > 0)
        return zq_getaddrinfo4relay(host, service, relay_host, relay_port, out);
    return resolveFrom(now, host, service, hints, out);
}

}  // namespace

}  // namespace vex::net

int zq_getaddrinfo(const char *host, const char *service, const struct addrinfo *hints,
                   struct addrinfo **result_out) {
    return vex::net::resolveOrRelay(host, service, hints, result_out);
}
