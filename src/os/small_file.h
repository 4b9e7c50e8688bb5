#ifndef VEX_OS_SMALL_FILE_H
#define VEX_OS_SMALL_FILE_H

#include <string>

namespace vex::os {

/// Reads a file of /proc or /sys, whose size stat does not tell; false with errno.
bool readSmallFile(const std::string &path, std::string *text);

}  // namespace vex::os

#endif
