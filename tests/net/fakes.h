// A resolver, a clock and waits that do as the test says. For one file of the program.
#ifndef VEXTEST_NET_FAKES_H
#define VEXTEST_NET_FAKES_H

#include <fcntl.h>
#include <poll.h>
#include <time.h>

#include <deque>
#include <functional>

#include <vex/net.h>

#include "support/faults.h"

namespace vextest {

/// What the system calls of the program do instead, until the end of the scope.
struct Fakes {
    Fakes() { current = this; }
    ~Fakes() { current = nullptr; }

    std::deque<int> answers;  ///< the resolver's next: an EAI_ code (EAI_SYSTEM with EAGAIN), 0 asks the real one
    int seconds_per_answer = 0;
    std::string peer_name;           ///< what reverse look-ups find; empty for nothing
    int expired_polls = 0;           ///< that many polls expire at once, their time passing on the clock
    std::vector<int> polls;          ///< their time-outs
    bool interrupt_connect = false;  ///< every connect goes on behind an EINTR
    double clock = 0;                ///< seconds that the clocks are ahead
    inline static Fakes *current = nullptr;
};

#define REAL_OR_FAKE(type, name, parameters, arguments)            \
    extern "C" type __real_##name parameters;                      \
    extern "C" type __wrap_##name parameters {                     \
        Fakes *const fakes = Fakes::current;                       \
        const auto real = [&] { return __real_##name arguments; }; \
        if (fakes == nullptr) return real();

REAL_OR_FAKE(int, getaddrinfo, (const char *host, const char *service, const addrinfo *hints, addrinfo **out),
    (host, service, hints, out))
if (fakes->answers.empty()) return real();
const int answer = fakes->answers.front();
fakes->answers.pop_front();
fakes->clock += fakes->seconds_per_answer;
if (answer == EAI_SYSTEM) errno = EAGAIN;
return answer != 0 ? answer : real();
}
REAL_OR_FAKE(int, getnameinfo,
    (const sockaddr *a, socklen_t n, char *host, socklen_t size, char *s, socklen_t m, int f),
    (a, n, host, size, s, m, f))
fakes->clock += fakes->seconds_per_answer;
if (fakes->peer_name.empty()) return EAI_NONAME;
return snprintf(host, size, "%s", fakes->peer_name.c_str()) > 0 ? 0 : EAI_FAIL;
}
REAL_OR_FAKE(int, poll, (pollfd * all, nfds_t count, int timeout), (all, count, timeout))
if (const int err = FaultScope::faultFor("poll"); err > 0) return errno = err, -1;
if (fakes->expired_polls == 0) return real();
--fakes->expired_polls;
fakes->polls.push_back(timeout);
fakes->clock += timeout / 1000.0;
return 0;
}
REAL_OR_FAKE(int, connect, (int fd, const sockaddr *address, socklen_t size), (fd, address, size))
if (!fakes->interrupt_connect) return real();
const int flags = fcntl(fd, F_GETFL);
fcntl(fd, F_SETFL, flags | O_NONBLOCK);
const int result = real(), err = errno;
fcntl(fd, F_SETFL, flags);
errno = err == EINPROGRESS ? EINTR : err;
return result;
}
REAL_OR_FAKE(int, clock_gettime, (clockid_t clock, timespec *now), (clock, now))
const int result = real();
now->tv_sec += static_cast<time_t>(fakes->clock);
return result;
}
REAL_OR_FAKE(int, clock_nanosleep, (clockid_t clock, int flags, const timespec *until, timespec *left),
    (clock, flags, until, left))
timespec now;
__wrap_clock_gettime(clock, &now);
fakes->clock += static_cast<double>(until->tv_sec - now.tv_sec);
return 0;
}
REAL_OR_FAKE(uint64_t, gethrtime, (), ())
return real() + static_cast<uint64_t>(fakes->clock * 1e6);
}

}  // namespace vextest

#endif
