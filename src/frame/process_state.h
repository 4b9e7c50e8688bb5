// What the process knows about itself from start-up on.
#ifndef VEX_FRAME_PROCESS_STATE_H
#define VEX_FRAME_PROCESS_STATE_H

#include <atomic>
#include <cstdint>

namespace vex {

/// What the deployment's marker files tell; kMarkerFiles holds their names.
enum class Marker { kPerf, kAppliance, kContainer, kCloud, kQlsr, kCount };

/// Written by start-up, tear-down and RefreshMarkerFiles, which the program calls from one thread;
/// the markers may be read by any.
struct ProcessState {
    bool initialized = false;
    double ticks_per_ms = 0;  // clock ticks
    std::atomic<bool> markers[static_cast<int>(Marker::kCount)] = {};
};
extern constinit ProcessState process_state;

/// Whether the marker's file was there at the last refresh; false before the first.
bool markerSet(Marker marker);

/// Online processors, at least 1, counted once: the first static initialiser that asks counts them.
uint32_t numCores();

}  // namespace vex

#endif
