// The clock that time-outs are counted by; it does not jump when the wall clock is set.
#ifndef VEX_NET_CLOCK_H
#define VEX_NET_CLOCK_H

#include <time.h>

#include <cstdint>

namespace vex::net {

inline int64_t monotonicMs() {
    timespec now{};
    // read on every look-up: the coarse clock, right within some milliseconds, costs a third;
    // cannot fail
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace vex::net

#endif
