#ifndef VEX_CONTAINERS_MAPPED_MEMORY_H
#define VEX_CONTAINERS_MAPPED_MEMORY_H

#include <cstddef>

namespace vex {

inline constexpr size_t kPage = 4096;
inline constexpr size_t kHugePage = 2UL << 20;

/// Maps zeroed, private memory at the begin of a huge page and offers it to the kernel for those;
/// nullptr with errno. Given back with munmap.
void *mapAligned(size_t size);

/// Maps zeroed, private memory that munmap releases; nullptr with errno. Sizes of a huge page and
/// more are aligned to one and offered to the kernel for huge pages: a random access then misses
/// the cache, but not the translation buffer as well.
void *mapZeroed(size_t size);

}  // namespace vex

#endif
