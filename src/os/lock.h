#ifndef VEX_OS_LOCK_H
#define VEX_OS_LOCK_H

namespace vex::os {

/// Locks a whole open file for writing against every other opening of it; false with EAGAIN when
/// one holds it and @p wait is not asked for.
bool lockFile(int fd, bool wait);

/// Whether another opening holds the lock: 1, 0, or -1 with errno.
int fileIsLocked(int fd);

/// Whether the path still leads to the open file.
bool samePlace(int fd, const char *path);

}  // namespace vex::os

#endif
