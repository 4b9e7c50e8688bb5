#ifndef VEX_BASE_NATIVE_PATH_H
#define VEX_BASE_NATIVE_PATH_H

namespace vex {

/// Brings a path into this platform's form, in place: backslashes become '/', runs of '/' become
/// one, and a trailing '/' goes unless it is the root. Returns @p path.
char *toNativePath(char *path);

}  // namespace vex

#endif
