#ifndef VEX_BASE_SLEEP_H
#define VEX_BASE_SLEEP_H

#include <time.h>

#include <cstdint>

#include "base/errno_guard.h"

namespace vex {

/// Sleeps at least that long: signals do not end it.
inline void sleepMs(int64_t ms) {
    const ErrnoGuard keep;
    timespec left{ms / 1000, ms % 1000 * 1'000'000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace vex

#endif
