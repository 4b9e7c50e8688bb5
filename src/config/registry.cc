#include "config/registry.h"

#include "base/environment.h"

namespace vex::config {

const char *registryPath() {
    const char *const named = environmentValue("ZQREGISTRY");
    return named != nullptr && *named != '\0' ? named : "/etc/zqregistry.cfg";
}

}  // namespace vex::config
