#ifndef VEX_FS_READER_H
#define VEX_FS_READER_H

#include <cstddef>

#include "base/unique_fd.h"

namespace vex::fs {

/// All whole-file work moves blocks of this size, on the stack.
inline constexpr size_t kBlock = 32768;

/// Opens a file for reading from its start to its end; empty after reporting, under the name of the
/// public function, why it cannot be, directories included.
UniqueFd openReader(const char *who, const char *path);

}  // namespace vex::fs

#endif
