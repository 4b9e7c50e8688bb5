#ifndef VEX_BASE_DIRECTORIES_H
#define VEX_BASE_DIRECTORIES_H

#include <sys/types.h>

namespace vex {

/// Creates every missing directory of @p path, which it changes while it works and restores; 0, or
/// -1 with the errno of the failing mkdir (ENOTDIR when the last component exists and is no
/// directory). Logs nothing, so that the log itself can use it.
int makeDirectories(char *path, mode_t mode);

}  // namespace vex

#endif
