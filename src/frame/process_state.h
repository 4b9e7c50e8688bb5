// What the process knows about itself from start-up on.
#ifndef VEX_FRAME_PROCESS_STATE_H
#define VEX_FRAME_PROCESS_STATE_H

#include <atomic>
#include <cstdint>

namespace vex {

/// Written by start-up, tear-down and RefreshMarkerFiles, which the program calls from one thread;
/// the marker may be read by any.
struct ProcessState {
    bool initialized = false;
    double ticks_per_ms = 0;  // clock ticks
    std::atomic<bool> perf_enabled{false};
};
extern constinit ProcessState process_state;

/// Online processors, at least 1, counted once: the first static initialiser that asks counts them.
uint32_t numCores();

}  // namespace vex

#endif
