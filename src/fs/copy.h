#ifndef VEX_FS_COPY_H
#define VEX_FS_COPY_H

#include <cstdint>

namespace vex::fs {

/// FileCopy with its arguments checked. With @p durable a compressed copy is synced as well.
int64_t copyFile(const char *source, const char *destination, int mode, bool durable);

}  // namespace vex::fs

#endif
