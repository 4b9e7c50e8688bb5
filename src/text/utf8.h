// Characters in UTF-8, one at a time, and runs of ASCII in front of them.
#ifndef VEX_TEXT_UTF8_H
#define VEX_TEXT_UTF8_H

#include <emmintrin.h>
#include <sys/types.h>

#include <bit>
#include <cstddef>
#include <cstdint>

namespace vex::text {

inline constexpr uint32_t kLastCharacter = 0x10ffff;
/// A byte that belongs to no character travels through wide text as this plus its value.
inline constexpr uint32_t kStrayByte = 0xdc00;

inline bool isSurrogate(uint32_t c) {
    return c >= 0xd800 && c <= 0xdfff;
}
inline bool continues(uint8_t byte) {
    return (byte & 0xc0) == 0x80;
}

/// The length of the well-formed character at the head of @p left bytes, at least one, and its
/// number; 0 when there is none.
inline size_t decodeCharacter(const uint8_t *at, size_t left, uint32_t *character) {
    const uint32_t lead = at[0];
    if (lead < 0x80) return *character = lead, 1;
    if (lead < 0xe0) {
        if (lead < 0xc2 || left < 2 || !continues(at[1])) return 0;
        return *character = (lead & 0x1f) << 6 | (at[1] & 0x3fU), 2;
    }
    if (left < 3 || !continues(at[1]) || !continues(at[2])) return 0;
    const uint32_t tail = (at[1] & 0x3fU) << 6 | (at[2] & 0x3fU);
    if (lead < 0xf0) {
        const uint32_t value = (lead & 0x0f) << 12 | tail;
        if (value < 0x800 || isSurrogate(value)) return 0;
        return *character = value, 3;
    }
    if (lead > 0xf4 || left < 4 || !continues(at[3])) return 0;
    const uint32_t value = (lead & 0x07) << 18 | tail << 6 | (at[3] & 0x3fU);
    if (value < 0x10000 || value > kLastCharacter) return 0;
    return *character = value, 4;
}

/// Writes a character of up to four bytes; 0 for what is no character.
inline size_t encodeCharacter(uint32_t c, char *to) {
    if (c < 0x80) return to[0] = static_cast<char>(c), 1;
    if (c > kLastCharacter || isSurrogate(c)) return 0;
    const size_t length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (size_t i = length - 1; i > 0; --i, c >>= 6) to[i] = static_cast<char>(0x80 | (c & 0x3f));
    to[0] = static_cast<char>((0xf00U >> length & 0xf0U) | c);
    return length;
}

/// How many of @p size bytes in front of the first that is not ASCII.
inline size_t asciiRun(const uint8_t *at, size_t size) {
    size_t run = 0;
    for (; run + 16 <= size; run += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(at + run));
        const auto high = static_cast<unsigned>(_mm_movemask_epi8(block));
        if (high != 0) return run + static_cast<size_t>(std::countr_zero(high));
    }
    while (run < size && at[run] < 0x80) ++run;
    return run;
}

/// Fails with @p err at a place in the input, which vex_encoding_error_offset() then tells.
ssize_t failAt(int err, size_t offset);

}  // namespace vex::text

#endif
