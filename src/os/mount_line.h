#ifndef VEX_OS_MOUNT_LINE_H
#define VEX_OS_MOUNT_LINE_H

#include <string>

#include <vex/os.h>

namespace vex::os {

/// Takes one line of /proc/self/mountinfo apart; false when it is none.
bool parseMountLine(const std::string &line, VexMountInfo *info);

}  // namespace vex::os

#endif
