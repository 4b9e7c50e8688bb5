// LZO1X-1: greedy matching through one hash table of recent positions.
//
// Positions are kept modulo 2^16. That is enough: matches reach back 49151 bytes at most, an entry
// older than 65535 bytes merely names a wrong candidate, and every candidate's bytes are compared.
// Entries are positions already passed (0 in a fresh table), so a candidate never lies before the
// input. The input needs no cutting into segments with a fresh table each, which costs both time
// and ratio.
#include "crypto/lzo_encoder.h"

#include <cstdint>
#include <cstring>

namespace vex::crypto {
namespace {

using Byte = unsigned char;

// no match starts so near the end: wide loads and copies stay inside the input
constexpr size_t kTailGuard = 20;
constexpr size_t kMatchBytes = 4;   // shorter matches are not looked for
constexpr unsigned kSkipShift = 4;  // the longer nothing was found, the larger the steps

// the farthest distances, and the longest lengths held in the instruction itself, of the three
// kinds of matches
constexpr size_t kM2Far = 0x800, kM2Long = 8;
constexpr size_t kM3Far = 0x4000, kM3Long = 33;
constexpr size_t kM4Far = 0xbfff, kM4Long = 9;
constexpr unsigned kM3Mark = 32, kM4Mark = 16;
// literals a stream can open with in one instruction of their own
constexpr size_t kFirstRunLong = 238;
constexpr size_t kRunLong = 18;

template <typename T>
inline T load(const Byte *from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

inline Byte low(size_t value) {
    return static_cast<Byte>(value);
}

/// A length beyond what an instruction holds: zeros for 255 each, then the rest, which is at
/// least 1.
inline Byte *putLength(Byte *out, size_t excess) {
    for (; excess > 255; excess -= 255) *out++ = 0;
    *out++ = low(excess);
    return out;
}

/// Writes the instruction for @p count literals; up to 3 ride in the low bits of the match before
/// them.
inline Byte *putRunLength(Byte *out, size_t count, bool first) {
    if (first && count <= kFirstRunLong) {
        *out++ = low(17 + count);
    } else if (!first && count <= 3) {
        out[-2] = low(out[-2] | count);
    } else if (count <= kRunLong) {
        *out++ = low(count - 3);
    } else {
        *out++ = 0;
        out = putLength(out, count - kRunLong);
    }
    return out;
}

/// Copies a run with 16 bytes at a time: input behind it and room for the output's worst case are
/// there.
inline Byte *putRun(Byte *out, const Byte *from, size_t count, bool first) {
    out = putRunLength(out, count, first);
    for (size_t at = 0; at < count; at += 16) std::memcpy(out + at, from + at, 16);
    return out + count;
}

inline Byte *putLongMatch(Byte *out, unsigned mark, size_t longest, size_t length,
                          size_t distance) {
    if (length <= longest) {
        *out++ = low(mark | (length - 2));
    } else {
        *out++ = low(mark);
        out = putLength(out, length - longest);
    }
    *out++ = low(distance << 2);
    *out++ = low(distance >> 6);
    return out;
}

inline Byte *putMatch(Byte *out, size_t length, size_t distance) {
    if (length <= kM2Long && distance <= kM2Far) {
        --distance;
        *out++ = low((length - 1) << 5 | (distance & 7) << 2);
        *out++ = low(distance >> 3);
        return out;
    }
    if (distance <= kM3Far) return putLongMatch(out, kM3Mark, kM3Long, length, distance - 1);
    distance -= 0x4000;
    return putLongMatch(out, kM4Mark | static_cast<unsigned>(distance >> 11 & 8), kM4Long, length,
                        distance);
}

/// How many bytes from @p a on equal those from @p b on, which lies behind it; @p end stops b.
inline size_t equalBytes(const Byte *a, const Byte *b, const Byte *end) {
    const Byte *start = b;
    while (b + 8 <= end) {
        const uint64_t difference = load<uint64_t>(a) ^ load<uint64_t>(b);
        if (difference != 0)
            return static_cast<size_t>(b - start) +
                   static_cast<size_t>(__builtin_ctzll(difference)) / 8;
        a += 8;
        b += 8;
    }
    while (b < end && *a == *b) ++a, ++b;
    return static_cast<size_t>(b - start);
}

template <unsigned Bits>
size_t encode(const Byte *in, size_t n, Byte *out, void *work) {
    auto *const table = static_cast<uint16_t *>(work);
    std::memset(table, 0, lzoEncoderMemory(Bits));
    const Byte *const end = in + n;
    const Byte *literals = in;  // those not yet written
    Byte *to = out;
    if (n > kTailGuard) {
        const Byte *const last = end - kTailGuard;
        const Byte *at = in + 1;
        while (at < last) {
            const auto word = load<uint32_t>(at);
            const auto position = static_cast<uint16_t>(at - in);
            uint16_t &entry = table[(word * 0x1824429du) >> (32 - Bits)];
            const size_t distance = static_cast<uint16_t>(position - entry);
            entry = position;
            if (load<uint32_t>(at - distance) != word || distance - 1 >= kM4Far) {
                at += 1 + (static_cast<size_t>(at - literals) >> kSkipShift);
                continue;
            }
            if (at != literals)
                to = putRun(to, literals, static_cast<size_t>(at - literals), literals == in);
            const size_t length =
                kMatchBytes + equalBytes(at - distance + kMatchBytes, at + kMatchBytes, end);
            to = putMatch(to, length, distance);
            at += length;
            literals = at;
        }
    }
    if (literals != end) {
        const auto count = static_cast<size_t>(end - literals);
        to = putRunLength(to, count, literals == in);
        std::memcpy(to, literals, count);
        to += count;
    }
    static constexpr Byte kEnd[] = {kM4Mark | 1, 0, 0};
    std::memcpy(to, kEnd, sizeof kEnd);
    return static_cast<size_t>(to - out) + sizeof kEnd;
}

}  // namespace

size_t lzoEncode(unsigned bits, const unsigned char *in, size_t n, unsigned char *out, void *work) {
    using Encoder = size_t (*)(const Byte *, size_t, Byte *, void *);
    static constexpr Encoder kEncoders[] = {encode<6>,  encode<7>,  encode<8>,  encode<9>,
                                            encode<10>, encode<11>, encode<12>, encode<13>,
                                            encode<14>, encode<15>, encode<16>};
    return kEncoders[bits - kLzoLowestBits](in, n, out, work);
}

}  // namespace vex::crypto
