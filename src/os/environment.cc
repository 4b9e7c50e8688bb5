#include "base/environment.h"

#include <vex/os.h>
#include <vex/process.h>

const char *vex_getenv(const char *name) {
    return vex::environmentValue(name);
}

const char *VexProcessName() {
    return vex::processName();
}
