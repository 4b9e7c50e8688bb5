// LZO1X-1 compression with any dictionary size: what liblzo2 offers for 2^11, 2^12 and 2^14 entries
// only.
#ifndef VEX_CRYPTO_LZO_ENCODER_H
#define VEX_CRYPTO_LZO_ENCODER_H

#include <cstddef>

namespace vex::crypto {

inline constexpr unsigned kLzoLowestBits = 6;
inline constexpr unsigned kLzoHighestBits = 16;

/// Bytes of work memory for a dictionary of 2^@p bits entries.
constexpr size_t lzoEncoderMemory(unsigned bits) {
    return size_t{2} << bits;
}

/// The most bytes that @p n bytes compress to.
constexpr size_t lzoWorstCase(size_t n) {
    return n + n / 16 + 67;
}

/// Compresses @p n bytes into @p out, which has room for lzoWorstCase(n), with a dictionary of
/// 2^@p bits entries in @p work (aligned for 16-bit words, contents of no matter). Returns the
/// compressed size. lzo1x_decompress_safe decodes the result.
size_t lzoEncode(unsigned bits, const unsigned char *in, size_t n, unsigned char *out, void *work);

}  // namespace vex::crypto

#endif
