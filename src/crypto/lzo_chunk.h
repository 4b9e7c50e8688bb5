// LZO chunks: how a block's data is compressed or stored, and read back.
//
// A chunk is a big-endian word, the data's length with bit 31 set when it is compressed, and then
// the compressed or the plain bytes.
#ifndef VEX_CRYPTO_LZO_CHUNK_H
#define VEX_CRYPTO_LZO_CHUNK_H

#include <cstddef>
#include <cstdint>

namespace vex::crypto {

/// Bytes of work memory that lzoCompress needs at a level from 6 to 16.
size_t lzoWorkMemory(unsigned level);

/// Compresses @p n bytes at @p level into @p out, which has room for lzoWorstCase(n). The
/// compressed size, or 0 when the data is better stored: it does not shrink, or its samples tell
/// so.
size_t lzoCompress(unsigned level, const unsigned char *in, size_t n, unsigned char *out,
                   void *work);

/// Decodes compressed bytes at @p in, of which there are at most @p size, into exactly @p length
/// bytes at @p out; false when they are damaged. @p used receives how many of them the data took:
/// more chunks or padding may follow.
bool lzoDecompress(const unsigned char *in, size_t size, unsigned char *out, size_t length,
                   size_t *used);

/// False for a length that @p size compressed bytes cannot expand to.
bool lzoCanExpandTo(size_t size, size_t length);

}  // namespace vex::crypto

#endif
