#include "frame/process_state.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
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

bool markerSet(Marker marker) {
    return process_state.markers[static_cast<int>(marker)].load(std::memory_order_relaxed);
}

namespace {

// in the order of Marker; below "/usr/lumen/zqde/"
constexpr const char *kMarkerFiles[] = {"qlsr-perf", "qlsr-appliance", "qlsr-container",
                                        "qlsr-cloud", "qlsr"};
static_assert(std::size(kMarkerFiles) == static_cast<size_t>(Marker::kCount));

// counted before main, while the process has one thread
[[maybe_unused]] const uint32_t counted_at_load = numCores();

}  // namespace

}  // namespace vex

void RefreshMarkerFiles() {
    for (size_t i = 0; i < std::size(vex::kMarkerFiles); ++i)
        vex::process_state.markers[i] = vex::markerExists(vex::kMarkerFiles[i]);
}

bool PerfEnabled() {
    return vex::markerSet(vex::Marker::kPerf);
}
