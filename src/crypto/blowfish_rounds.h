// The 16 rounds over N independent blocks at once. The rounds of one block are one chain of
// dependent loads; with several blocks in flight the loads of one fill the waits of the others.
#ifndef VEX_CRYPTO_BLOWFISH_ROUNDS_H
#define VEX_CRYPTO_BLOWFISH_ROUNDS_H

#include <cstddef>
#include <cstdint>

#include <vex/blowfish.h>

#include "base/endian.h"

namespace vex::crypto {

inline constexpr size_t kBlowfishBlock = 8;

enum class Direction { kEncrypt, kDecrypt };

inline uint32_t blowfishMix(const BlowfishContext &s, uint32_t x) {
    return ((s.S[0][x >> 24] + s.S[1][x >> 16 & 0xff]) ^ s.S[2][x >> 8 & 0xff]) + s.S[3][x & 0xff];
}

/// The round key used @p step-th, 0 to 17: decryption takes them from the end.
template <Direction D>
inline uint32_t roundKey(const BlowfishContext &s, size_t step) {
    return s.P[D == Direction::kEncrypt ? step : 17 - step];
}

/// Takes the halves of N blocks and leaves the results there. Both levels unroll wholly: the halves
/// stay in registers.
template <Direction D, size_t N>
__attribute__((always_inline)) inline void blowfishRounds(const BlowfishContext &s,
                                                          uint32_t (&l)[N], uint32_t (&r)[N]) {
#pragma GCC unroll 8
    for (size_t step = 0; step < 16; step += 2) {
        const uint32_t first = roundKey<D>(s, step), second = roundKey<D>(s, step + 1);
#pragma GCC unroll 8
        for (size_t i = 0; i < N; ++i) {
            l[i] ^= first;
            r[i] ^= blowfishMix(s, l[i]);
        }
#pragma GCC unroll 8
        for (size_t i = 0; i < N; ++i) {
            r[i] ^= second;
            l[i] ^= blowfishMix(s, r[i]);
        }
    }
    const uint32_t left = roundKey<D>(s, 17), right = roundKey<D>(s, 16);
#pragma GCC unroll 8
    for (size_t i = 0; i < N; ++i) {
        const uint32_t swapped = l[i];
        l[i] = r[i] ^ left;
        r[i] = swapped ^ right;
    }
}

}  // namespace vex::crypto

#endif
