// Adler-32, sixteen bytes at a time. Over a block of n bytes x[0..n-1] the two sums grow by
//     a += x[0] + ... + x[n-1]
//     b += n * a_before + n * x[0] + (n - 1) * x[1] + ... + 1 * x[n-1]
// so that each group of sixteen adds its own weighted bytes to b, and 16 times the bytes of the
// groups before it.
#include "base/adler32.h"

#include <emmintrin.h>

#include <algorithm>

namespace vex {
namespace {

constexpr uint32_t kModulus = 65521;
constexpr size_t kGroup = 16;
// the most bytes for which b stays below 2^32 when the remainder is taken only behind them
constexpr size_t kBlock = 5552;

uint64_t sumOf64(__m128i lanes) {
    return static_cast<uint64_t>(_mm_cvtsi128_si64(lanes)) +
           static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(lanes, lanes)));
}

uint64_t sumOf32(__m128i lanes) {
    const __m128i zero = _mm_setzero_si128();
    return sumOf64(_mm_add_epi64(_mm_unpacklo_epi32(lanes, zero), _mm_unpackhi_epi32(lanes, zero)));
}

/// Adds whole groups to both sums, without the remainder.
void addGroups(const uint8_t *bytes, size_t size, uint64_t *a, uint64_t *b) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i first_weights = _mm_setr_epi16(16, 15, 14, 13, 12, 11, 10, 9);
    const __m128i last_weights = _mm_setr_epi16(8, 7, 6, 5, 4, 3, 2, 1);
    __m128i plain = zero, before = zero, weighted = zero;
    for (size_t i = 0; i < size; i += kGroup) {
        const __m128i group = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + i));
        before = _mm_add_epi64(before, plain);
        plain = _mm_add_epi64(plain, _mm_sad_epu8(group, zero));
        weighted =
            _mm_add_epi32(weighted, _mm_madd_epi16(_mm_unpacklo_epi8(group, zero), first_weights));
        weighted =
            _mm_add_epi32(weighted, _mm_madd_epi16(_mm_unpackhi_epi8(group, zero), last_weights));
    }
    *b += size * *a + kGroup * sumOf64(before) + sumOf32(weighted);
    *a += sumOf64(plain);
}

}  // namespace

uint32_t adler32(uint32_t checksum, const void *data, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    uint64_t a = checksum & 0xffff, b = checksum >> 16;
    while (size > 0) {
        const size_t block = std::min(size, kBlock), grouped = block / kGroup * kGroup;
        addGroups(bytes, grouped, &a, &b);
        for (size_t i = grouped; i < block; ++i) {
            a += bytes[i];
            b += a;
        }
        a %= kModulus;
        b %= kModulus;
        bytes += block;
        size -= block;
    }
    return static_cast<uint32_t>(b << 16 | a);
}

}  // namespace vex
