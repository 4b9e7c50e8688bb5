#include "base/hex.h"

#include <emmintrin.h>

#include <cstdint>

#include "base/ascii.h"

namespace vex {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

__m128i load(const void *from) {
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}
void store(void *to, __m128i value) {
    _mm_storeu_si128(static_cast<__m128i *>(to), value);
}

/// Sixteen values 0 to 15 as digits.
__m128i digitsOf(__m128i values) {
    const __m128i letters = _mm_cmpgt_epi8(values, _mm_set1_epi8(9));
    const __m128i gap = _mm_and_si128(letters, _mm_set1_epi8('a' - '9' - 1));
    return _mm_add_epi8(_mm_add_epi8(values, _mm_set1_epi8('0')), gap);
}

/// Bytes of all ones where a byte of @p values, taken as unsigned, is not above @p most.
__m128i notAbove(__m128i values, int most) {
    const __m128i limit = _mm_set1_epi8(static_cast<char>(most));
    return _mm_cmpeq_epi8(_mm_min_epu8(values, limit), values);
}

/// Sixteen digits as eight bytes in the low half of each 16-bit lane; false when one is no digit.
bool bytesOf(__m128i digits, __m128i *bytes) {
    const __m128i number = _mm_sub_epi8(digits, _mm_set1_epi8('0'));
    const __m128i letter =
        _mm_sub_epi8(_mm_or_si128(digits, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    const __m128i is_number = notAbove(number, 9), is_letter = notAbove(letter, 5);
    const __m128i value =
        _mm_or_si128(_mm_and_si128(is_number, number),
                     _mm_and_si128(is_letter, _mm_add_epi8(letter, _mm_set1_epi8(10))));
    // the first digit of a pair stands in the low half of its lane and is the high nibble
    const __m128i pairs = _mm_or_si128(_mm_slli_epi16(value, 4), _mm_srli_epi16(value, 8));
    *bytes = _mm_and_si128(pairs, _mm_set1_epi16(0xff));
    return _mm_movemask_epi8(_mm_or_si128(is_number, is_letter)) == 0xffff;
}

}  // namespace

void hexEncode(const void *from, size_t size, char *to) {
    const auto *bytes = static_cast<const uint8_t *>(from);
    size_t i = 0;
    for (; i + 16 <= size; i += 16) {
        const __m128i block = load(bytes + i), nibble = _mm_set1_epi8(0x0f);
        const __m128i high = digitsOf(_mm_and_si128(_mm_srli_epi16(block, 4), nibble));
        const __m128i low = digitsOf(_mm_and_si128(block, nibble));
        store(to + 2 * i, _mm_unpacklo_epi8(high, low));
        store(to + 2 * i + 16, _mm_unpackhi_epi8(high, low));
    }
    for (; i < size; ++i) {
        to[2 * i] = kDigits[bytes[i] >> 4];
        to[2 * i + 1] = kDigits[bytes[i] & 15];
    }
}

size_t hexDecode(const char *from, size_t size, void *to) {
    auto *bytes = static_cast<uint8_t *>(to);
    size_t i = 0;
    for (; i + 16 <= size; i += 16) {
        __m128i first, second;
        const bool good_first = bytesOf(load(from + 2 * i), &first);
        if (!bytesOf(load(from + 2 * i + 16), &second) || !good_first) break;
        store(bytes + i, _mm_packus_epi16(first, second));
    }
    for (; i < size; ++i) {
        const int high = ascii::hexValue(from[2 * i]);
        if (high < 0) return 2 * i;
        const int low = ascii::hexValue(from[2 * i + 1]);
        if (low < 0) return 2 * i + 1;
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return 2 * size;
}

}  // namespace vex
