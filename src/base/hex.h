// Hexadecimal text: lower case out, either case in. SSE2, which every x86-64 has, does sixteen
// characters at a time.
#ifndef VEX_BASE_HEX_H
#define VEX_BASE_HEX_H

#include <cstddef>

namespace vex {

/// Writes 2 * @p size digits, high nibble first, without a terminator.
void hexEncode(const void *from, size_t size, char *to);

/// Reads 2 * @p size digits. Returns how many characters were digits before the first that was not:
/// 2 * @p size when all were; the bytes of the whole pairs before that place have been written
/// then.
size_t hexDecode(const char *from, size_t size, void *to);

}  // namespace vex

#endif
