#include <errno.h>
#include <immintrin.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>

#include <vex/encoding.h>

#include "base/cpu.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kNoDigit = 0xff;

constexpr std::array<uint8_t, 256> makeValues() {
    std::array<uint8_t, 256> values{};
    for (auto &value : values) value = kNoDigit;
    for (uint8_t i = 0; i < 64; ++i) values[static_cast<uint8_t>(kAlphabet[i])] = i;
    return values;
}
constexpr auto kValues = makeValues();

int failWith(int err) {
    errno = err;
    return -1;
}

/// The four characters of up to three bytes; missing bytes become padding.
void encodeGroup(const uint8_t *from, size_t bytes, char *to) {
    const uint32_t group = static_cast<uint32_t>(from[0]) << 16 |
                           (bytes > 1 ? static_cast<uint32_t>(from[1]) << 8 : 0U) |
                           (bytes > 2 ? static_cast<uint32_t>(from[2]) : 0U);
    to[0] = kAlphabet[group >> 18];
    to[1] = kAlphabet[group >> 12 & 63];
    to[2] = bytes > 1 ? kAlphabet[group >> 6 & 63] : '=';
    to[3] = bytes > 2 ? kAlphabet[group & 63] : '=';
}

/// The bytes of four characters, of which the last @p padding are taken as zero; false for a
/// character outside the alphabet and for bits that no byte takes up.
bool decodeGroup(const char *from, size_t padding, uint8_t *to) {
    uint32_t group = 0;
    for (size_t i = 0; i < 4; ++i) {
        const uint8_t value = i < 4 - padding ? kValues[static_cast<uint8_t>(from[i])] : uint8_t{0};
        if (value == kNoDigit) return false;
        group = group << 6 | value;
    }
    if ((group & ((1U << (8 * padding)) - 1)) != 0) return false;
    for (size_t i = 0; i < 3 - padding; ++i) to[i] = static_cast<uint8_t>(group >> (16 - 8 * i));
    return true;
}

// The vector forms follow W. Mula and D. Lemire, "Faster Base64 Encoding and Decoding Using AVX2
// Instructions", ACM Transactions on the Web 12 (2018): shifts by multiplication, and the ranges of
// the alphabet by one table look-up each.

/// Encodes 24 bytes a step while @p size lasts; the bytes that were taken. Reads 28 bytes a step.
VEX_TARGET_AVX2 size_t encodeAvx2(const uint8_t *from, size_t size, char *to) {
    // each group of three bytes spread over four, the middle one twice
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0,
                                            2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    // what to add to a value: to 26-51, to each digit, to 62, to 63, to 0-25
    const __m256i offsets = _mm256_broadcastsi128_si256(
        _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    size_t done = 0;
    for (; done + 28 <= size; done += 24, to += 32) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + done));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + done + 12));
        const __m256i bytes = _mm256_shuffle_epi8(_mm256_set_m128i(high, low), spread);
        const __m256i odd = _mm256_mulhi_epu16(
            _mm256_and_si256(bytes, _mm256_set1_epi32(0x0fc0fc00)), _mm256_set1_epi32(0x04000040));
        const __m256i even = _mm256_mullo_epi16(
            _mm256_and_si256(bytes, _mm256_set1_epi32(0x003f03f0)), _mm256_set1_epi32(0x01000010));
        const __m256i values = _mm256_or_si256(odd, even);
        const __m256i capital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
        const __m256i range = _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                              _mm256_and_si256(capital, _mm256_set1_epi8(13)));
        const __m256i text = _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, range));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), text);
    }
    return done;
}

/// Decodes 32 characters a step until fewer are left or one is outside the alphabet; the characters
/// that were taken.
VEX_TARGET_AVX2 size_t decodeAvx2(const char *from, size_t length, uint8_t *to) {
    // a character is good when the bits that its two halves give have none in common
    const __m256i by_low =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                  0x11, 0x11, 0x13, 0x1a, 0x1b, 0x1b, 0x1b, 0x1a));
    const __m256i by_high =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                  0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
    const __m256i offsets = _mm256_broadcastsi128_si256(_mm_setr_epi8(
        0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0));
    const __m256i gather = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const __m256i slash = _mm256_set1_epi8('/');
    size_t done = 0;
    for (; done + 32 <= length; done += 32, to += 24) {
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from + done));
        const __m256i high = _mm256_and_si256(_mm256_srli_epi32(text, 4), slash);
        const __m256i low = _mm256_and_si256(text, slash);
        if (_mm256_testz_si256(_mm256_shuffle_epi8(by_low, low),
                               _mm256_shuffle_epi8(by_high, high)) == 0)
            break;
        const __m256i range = _mm256_add_epi8(_mm256_cmpeq_epi8(text, slash), high);
        const __m256i values = _mm256_add_epi8(text, _mm256_shuffle_epi8(offsets, range));
        const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
        const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        const __m256i packed = _mm256_permutevar8x32_epi32(
            _mm256_shuffle_epi8(groups, gather), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to), _mm256_castsi256_si128(packed));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(to + 16), _mm256_extracti128_si256(packed, 1));
    }
    return done;
}

}  // namespace

int Base64Encode(const void *src, unsigned length, char *dest, unsigned dest_length) {
    if ((src == nullptr && length > 0) || dest == nullptr) return failWith(EINVAL);
    const uint64_t text_length = (uint64_t{length} + 2) / 3 * 4;
    if (text_length > INT_MAX) return failWith(ERANGE);
    if (text_length >= dest_length) return failWith(ENOBUFS);
    const auto *from = static_cast<const uint8_t *>(src);
    size_t done = vex::hasAvx2() ? encodeAvx2(from, length, dest) : 0;
    for (char *to = dest + done / 3 * 4; done < length; done += 3, to += 4)
        encodeGroup(from + done, length - done < 3 ? length - done : 3, to);
    dest[text_length] = '\0';
    return static_cast<int>(text_length);
}

int Base64Decode(const char *src, void *dest, unsigned dest_length) {
    if (src == nullptr || (dest == nullptr && dest_length > 0)) return failWith(EINVAL);
    const size_t text_length = std::strlen(src);
    if (text_length % 4 != 0) return failWith(EINVAL);
    if (text_length == 0) return 0;
    const size_t padding = src[text_length - 1] != '=' ? 0 : src[text_length - 2] != '=' ? 1 : 2;
    const size_t size = text_length / 4 * 3 - padding;
    if (size > INT_MAX) return failWith(ERANGE);
    if (size > dest_length) return failWith(ENOBUFS);
    auto *const to = static_cast<uint8_t *>(dest);
    // the last group may be padded and is left to the loop, and so is whatever is no digit
    size_t at = vex::hasAvx2() ? decodeAvx2(src, text_length - 4, to) : 0;
    for (; at < text_length; at += 4)
        if (!decodeGroup(src + at, at + 4 == text_length ? padding : 0, to + at / 4 * 3))
            return failWith(EINVAL);
    return static_cast<int>(size);
}
