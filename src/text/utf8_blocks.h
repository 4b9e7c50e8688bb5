// UTF-8 in blocks: what can be checked and converted without looking at one character at a time.
// Both do a head of their input only; the rest is for the plain loops in utf8.cc.
#ifndef VEX_TEXT_UTF8_BLOCKS_H
#define VEX_TEXT_UTF8_BLOCKS_H

#include <cstddef>
#include <cstdint>

namespace vex::text {

/// How many bytes from the start are known to be whole well-formed characters.
size_t checkBlocks(const uint8_t *bytes, size_t length);

/// Converts a head of valid UTF-8 into wide characters while @p room lasts; the bytes taken and, in
/// @p written, the characters.
size_t widenBlocks(const uint8_t *bytes, size_t length, wchar_t *out, size_t room, size_t *written);

}  // namespace vex::text

#endif
