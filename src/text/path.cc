#include <errno.h>

#include <vex/path.h>

#include "base/native_path.h"
#include "log/report.h"

char *vex_path_native(char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    return vex::toNativePath(path);
}
