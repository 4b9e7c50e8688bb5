#include "frame/process_state.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include <vex/frame.h>

#include "base/environment.h"

namespace vex {

constinit ProcessState process_state;

uint32_t numCores() {
    static const uint32_t num_cores = static_cast<uint32_t>(
        std::clamp<long>(sysconf(_SC_NPROCESSORS_ONLN), 1, std::numeric_limits<uint32_t>::max()));
    return num_cores;
}

namespace {
// counted before main, while the process has one thread
[[maybe_unused]] const uint32_t counted_at_load = numCores();
}  // namespace

}  // namespace vex

// "/usr/lumen/zqde/qlsr-perf"
void RefreshMarkerFiles() {
    vex::process_state.perf_enabled = vex::markerExists("qlsr-perf");
}

bool PerfEnabled() {
    return vex::process_state.perf_enabled.load(std::memory_order_relaxed);
}
