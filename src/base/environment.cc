#include "base/environment.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <climits>

namespace vex {

const char *environmentValue(const char *name) {
    return name == nullptr || *name == '\0' ? nullptr : secure_getenv(name);
}

const char *processName() {
    return program_invocation_short_name;
}

bool markerExists(const char *name) {
    char path[PATH_MAX];
    const int length = snprintf(path, sizeof path, "%s%s", kMarkerDirectory, name);
    return length > 0 && length < static_cast<int>(sizeof path) && access(path, F_OK) == 0;
}

}  // namespace vex
