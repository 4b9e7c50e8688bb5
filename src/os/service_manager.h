#ifndef VEX_OS_SERVICE_MANAGER_H
#define VEX_OS_SERVICE_MANAGER_H

namespace vex::os {

/// Sends one message to the service manager that NOTIFY_SOCKET names. True when it was sent or
/// nobody is there to be told; false with errno.
bool notifyServiceManager(const char *message);

}  // namespace vex::os

#endif
