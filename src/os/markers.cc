// What kind of deployment this is.
#include <errno.h>
#include <string.h>

#include <vex/os.h>

#include "base/environment.h"
#include "frame/process_state.h"
#include "log/report.h"

using vex::Marker;
using vex::markerSet;

int VexMarkerExists(const char *name) {
    if (name == nullptr || *name == '\0') return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    if (strchr(name, '/') != nullptr) return VEX_FAIL(EINVAL, 0, "invalid marker name %s", name);
    return vex::markerExists(name) ? 1 : 0;
}

int VexIsAppliance() {
    return markerSet(Marker::kAppliance) ? 1 : 0;
}
int VexIsContainer() {
    return markerSet(Marker::kContainer) ? 1 : 0;
}
int VexIsCloudDeployment() {
    return markerSet(Marker::kCloud) ? 1 : 0;
}
int VexIsQlsr() {
    return markerSet(Marker::kQlsr) ? 1 : 0;
}
