#include "text/utf8_blocks.h"

#include <immintrin.h>

#include <bit>
#include <cstring>

#include "base/cpu.h"
#include "base/endian.h"
#include "text/utf8.h"

namespace vex::text {
namespace {

// The check is J. Keiser and D. Lemire's, "Validating UTF-8 In Less Than One Instruction Per Byte",
// Software: Practice and Experience 51 (2021). Every error but one shows in two neighbouring bytes:
// each of three tables tells, by the halves of the first byte and the high half of the second,
// which errors are still possible, and those that all three leave are there.
enum : uint8_t {
    kTooShort = 1 << 0,      // a lead byte without the continuation it needs
    kTooLong = 1 << 1,       // a continuation behind ASCII
    kOverlong3 = 1 << 2,     // e0 with less than a0
    kTooLarge = 1 << 3,      // f4 with 90 or more, f5 and above
    kSurrogate = 1 << 4,     // ed with a0 or more
    kOverlong2 = 1 << 5,     // c0 and c1
    kTooLarge1000 = 1 << 6,  // f5 and above with less than 90
    kOverlong4 = 1 << 6,     // f0 with less than 90
    kTwoConts = 1 << 7,      // two continuations: right where three or four bytes were announced
    kAnyLow = kTooShort | kTooLong | kTwoConts,
    kLarge = kAnyLow | kTooLarge | kTooLarge1000,
    kAnyHigh = kTooLong | kOverlong2 | kTwoConts,
    kLeadF = kTooShort | kTooLarge | kTooLarge1000 | kOverlong4
};

alignas(16) constexpr uint8_t kByFirstHigh[16] = {kTooLong,
                                                  kTooLong,
                                                  kTooLong,
                                                  kTooLong,
                                                  kTooLong,
                                                  kTooLong,
                                                  kTooLong,
                                                  kTooLong,
                                                  kTwoConts,
                                                  kTwoConts,
                                                  kTwoConts,
                                                  kTwoConts,
                                                  kTooShort | kOverlong2,
                                                  kTooShort,
                                                  kTooShort | kOverlong3 | kSurrogate,
                                                  kLeadF};
alignas(16) constexpr uint8_t kByFirstLow[16] = {kAnyLow | kOverlong3 | kOverlong2 | kOverlong4,
                                                 kAnyLow | kOverlong2,
                                                 kAnyLow,
                                                 kAnyLow,
                                                 kAnyLow | kTooLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge,
                                                 kLarge | kSurrogate,
                                                 kLarge,
                                                 kLarge};
alignas(16) constexpr uint8_t kBySecondHigh[16] = {
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kAnyHigh | kOverlong3 | kTooLarge1000 | kOverlong4,
    kAnyHigh | kOverlong3 | kTooLarge,
    kAnyHigh | kSurrogate | kTooLarge,
    kAnyHigh | kSurrogate | kTooLarge,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort};

VEX_TARGET_AVX2 __m256i lookUp(const uint8_t (&table)[16], __m256i halves) {
    const __m128i half = _mm_load_si128(reinterpret_cast<const __m128i *>(table));
    return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(half), halves);
}

VEX_TARGET_AVX2 __m256i highHalves(__m256i bytes) {
    return _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(0x0f));
}

/// Non-zero where a block, or what it makes of the end of the one before, is wrong.
VEX_TARGET_AVX2 __m256i errorsOf(__m256i block, __m256i before) {
    const __m256i joint = _mm256_permute2x128_si256(before, block, 0x21);
    const __m256i first = _mm256_alignr_epi8(block, joint, 15);
    const __m256i low = _mm256_and_si256(first, _mm256_set1_epi8(0x0f));
    const __m256i pairs = _mm256_and_si256(
        _mm256_and_si256(lookUp(kByFirstHigh, highHalves(first)), lookUp(kByFirstLow, low)),
        lookUp(kBySecondHigh, highHalves(block)));
    // a third or fourth byte, which the pairs took for one continuation too many
    const __m256i third =
        _mm256_subs_epu8(_mm256_alignr_epi8(block, joint, 14), _mm256_set1_epi8(0xe0 - 0x80));
    const __m256i fourth = _mm256_subs_epu8(_mm256_alignr_epi8(block, joint, 13),
                                            _mm256_set1_epi8(static_cast<char>(0xf0 - 0x80)));
    const __m256i announced =
        _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(static_cast<char>(0x80)));
    return _mm256_xor_si256(announced, pairs);
}

/// The bytes in whole blocks in front of the first with an error.
VEX_TARGET_AVX2 size_t goodBlocks(const uint8_t *bytes, size_t length) {
    __m256i before = _mm256_setzero_si256();
    size_t at = 0;
    for (; at + 32 <= length; at += 32) {
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(bytes + at));
        if (_mm256_movemask_epi8(_mm256_or_si256(block, before)) != 0) {
            const __m256i errors = errorsOf(block, before);
            if (_mm256_testz_si256(errors, errors) == 0) break;
        }
        before = block;
    }
    return at;
}

/// A character that is known to be well formed, without a branch; its length. Reads four bytes.
VEX_TARGET_AVX2 inline size_t decodeKnown(const uint8_t *at, uint32_t *character) {
    static constexpr uint32_t kLeadBits[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
    const uint32_t four = loadBig32(at), lead = at[0];
    const unsigned length = 1U + (lead >= 0xc0) + (lead >= 0xe0) + (lead >= 0xf0);
    const uint32_t bits = (lead & kLeadBits[length]) << 18 | (four & 0x3f0000) >> 4 |
                          (four & 0x3f00) >> 2 | (four & 0x3f);
    *character = bits >> (6 * (4 - length));
    return length;
}

VEX_TARGET_AVX2 inline void widen16(__m128i bytes, wchar_t *to) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i low = _mm_unpacklo_epi8(bytes, zero), high = _mm_unpackhi_epi8(bytes, zero);
    auto *const out = reinterpret_cast<__m128i *>(to);
    _mm_storeu_si128(out, _mm_unpacklo_epi16(low, zero));
    _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(low, zero));
    _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(high, zero));
    _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(high, zero));
}

}  // namespace

size_t checkBlocks(const uint8_t *bytes, size_t length) {
    if (!hasAvx2()) return 0;
    const size_t end = goodBlocks(bytes, length);
    // the last character may go on behind the blocks
    size_t start = end;
    while (start > 0 && end - start < 3 && continues(bytes[start - 1])) --start;
    return start > 0 && bytes[start - 1] >= 0xc0 ? start - 1 : end;
}

VEX_TARGET_AVX2 static size_t widen(const uint8_t *bytes, size_t length, wchar_t *out, size_t room,
                                    size_t *written) {
    constexpr int kFew = 4;
    size_t at = 0, to = 0;
    // a character at the end of a block reaches three bytes behind it
    while (at + 16 + 3 <= length && to + 16 < room) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + at));
        const auto high = static_cast<unsigned>(_mm_movemask_epi8(block));
        uint32_t character = 0;
        if (std::popcount(high) > kFew) {
            // each character by itself: their places are known at once
            const __m128i inner = _mm_cmplt_epi8(block, _mm_set1_epi8(-0x40));
            auto firsts = static_cast<unsigned>(_mm_movemask_epi8(inner)) ^ 0xffffU;
            for (; firsts != 0; firsts &= firsts - 1, ++to) {
                decodeKnown(bytes + at + std::countr_zero(firsts), &character);
                out[to] = static_cast<wchar_t>(character);
            }
            for (at += 16; at < length && continues(bytes[at]);) ++at;
            continue;
        }
        widen16(block, out + to);  // what stands behind the first that is not ASCII is overwritten
        if (high == 0) {
            at += 16;
            to += 16;
            continue;
        }
        const auto run = static_cast<size_t>(std::countr_zero(high));
        at += run + decodeKnown(bytes + at + run, &character);
        to += run + 1;
        out[to - 1] = static_cast<wchar_t>(character);
    }
    *written = to;
    return at;
}

size_t widenBlocks(const uint8_t *bytes, size_t length, wchar_t *out, size_t room,
                   size_t *written) {
    *written = 0;
    return hasAvx2() ? widen(bytes, length, out, room, written) : 0;
}

}  // namespace vex::text
