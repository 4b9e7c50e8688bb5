#ifndef VEX_BASE_ADLER32_H
#define VEX_BASE_ADLER32_H

#include <cstddef>
#include <cstdint>

namespace vex {

inline constexpr uint32_t kAdler32Start = 1;

/// Continues an Adler-32 checksum, begun with kAdler32Start, over more bytes.
uint32_t adler32(uint32_t checksum, const void *data, size_t size);

}  // namespace vex

#endif
