#include "frame/build_stamp.h"

// The one place that takes date and time: the compiler takes them from SOURCE_DATE_EPOCH when that
// is set, and a build may give its own with -D.
#ifndef VEX_BUILD_DATE
#define VEX_BUILD_DATE __DATE__
#endif
#ifndef VEX_BUILD_TIME
#define VEX_BUILD_TIME __TIME__
#endif

namespace vex {

const BuildStamp kBuildStamp = {VEX_BUILD_DATE, VEX_BUILD_TIME,
#ifdef __clang__
                                "clang", __clang_major__, __clang_minor__
#else
                                "gcc", __GNUC__, __GNUC_MINOR__
#endif
};

}  // namespace vex
