#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <vex/frame.h>
#include <vex/log.h>

#include "base/ascii.h"

void _VexFree(void **p) {
    if (p == nullptr) return;
    std::free(*p);
    *p = nullptr;
}

unsigned VexSleep(unsigned seconds) {
    if (seconds == 0) return 0;
    const time_t start = time(nullptr);
    timeval timeout = {static_cast<time_t>(seconds), 0};
    if (select(0, nullptr, nullptr, nullptr, &timeout) == 0) return 0;
    if (errno == EINTR) {
        const time_t left = static_cast<time_t>(seconds) - (time(nullptr) - start);
        return static_cast<unsigned>(std::max<time_t>(left, 1));
    }
    if (TraceOn())
        __Trace("select returned unexpectedly with error %u [%m]", static_cast<unsigned>(errno));
    return static_cast<unsigned>(-1);
}

pthread_t GetTid() {
    return pthread_self();
}

int VexThreadActive(pthread_t thread) {
    return thread != 0 ? 1 : 0;
}

char *VexCtime(const time_t *t, char *buf) {
    return ctime_r(t, buf);
}

struct tm *VexLocaltime(const time_t *t, struct tm *out) {
    return localtime_r(t, out);
}

int VexIsDecimalNumber(const char *s) {
    if (s == nullptr) return 0;
    while (vex::ascii::isDigit(*s)) ++s;
    return *s == '\0' ? 1 : 0;
}
