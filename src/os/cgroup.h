// What the control groups of a process, and so the container it runs in, allow it.
#ifndef VEX_OS_CGROUP_H
#define VEX_OS_CGROUP_H

#include <cstdint>
#include <string>

namespace vex::os {

struct CgroupLimits {
    uint64_t memory = UINT64_MAX;  // bytes
    double processors = 0;         // 0 for no limit
};

/// Reads /proc/self/cgroup and /sys/fs/cgroup below @p root, which is empty but in tests. Files
/// that are not there limit nothing.
CgroupLimits readCgroupLimits(const std::string &root);

}  // namespace vex::os

#endif
