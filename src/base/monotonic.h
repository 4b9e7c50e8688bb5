// The clock that time-outs are counted by; it does not jump when the wall clock is set.
#ifndef VEX_BASE_MONOTONIC_H
#define VEX_BASE_MONOTONIC_H

#include <time.h>

#include <cstdint>

namespace vex {

/// Milliseconds of a clock that cannot fail.
inline int64_t millisecondsOf(clockid_t clock) {
    timespec now{};
    (void)clock_gettime(clock, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

inline int64_t monotonicMs() {
    return millisecondsOf(CLOCK_MONOTONIC);
}

/// Right within some milliseconds, at a third of the cost.
inline int64_t coarseMs() {
    return millisecondsOf(CLOCK_MONOTONIC_COARSE);
}

}  // namespace vex

#endif
