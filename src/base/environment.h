// What the process was started with, and the deployment's marker files.
#ifndef VEX_BASE_ENVIRONMENT_H
#define VEX_BASE_ENVIRONMENT_H

namespace vex {

/// The value of an environment variable; nullptr when absent, for a null or empty name, and in
/// set-id programs, where the environment belongs to somebody else.
const char *environmentValue(const char *name);

/// The last part of the path that the process was started as.
const char *processName();

/// True when the marker file of that name exists under kMarkerDirectory.
bool markerExists(const char *name);

inline constexpr const char *kMarkerDirectory = "/usr/lumen/zqde/";

}  // namespace vex

#endif
