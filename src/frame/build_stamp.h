// When and with what the library was built.
#ifndef VEX_FRAME_BUILD_STAMP_H
#define VEX_FRAME_BUILD_STAMP_H

namespace vex {

struct BuildStamp {
    const char *date;  // "Dec 24 2024"
    const char *time;  // "09:08:55"
    const char *compiler;
    int compiler_major;
    int compiler_minor;
};

extern const BuildStamp kBuildStamp;

}  // namespace vex

#endif
