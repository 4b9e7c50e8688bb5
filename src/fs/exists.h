#ifndef VEX_FS_EXISTS_H
#define VEX_FS_EXISTS_H

#include <sys/stat.h>

namespace vex::fs {

/// Whether anything has this name, be it a link to nowhere.
inline bool exists(const char *path) {
    struct stat status {};
    return lstat(path, &status) == 0;
}

}  // namespace vex::fs

#endif
