#ifndef VEX_FRAME_MEMORY_REPORT_H
#define VEX_FRAME_MEMORY_REPORT_H

namespace vex {

/// The info line on the bytes that an allocator has handed out.
void reportMemory(const char *name, long bytes);

}  // namespace vex

#endif
