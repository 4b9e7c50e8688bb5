// A block's data as one complete raw deflate stream.
#ifndef VEX_CRYPTO_DEFLATE_BLOCK_H
#define VEX_CRYPTO_DEFLATE_BLOCK_H

#include <zlib.h>

#include <cstddef>
#include <cstdint>

namespace vex::crypto {

/// How many bytes fit into @p room whatever they are.
constexpr size_t deflateMostInput(size_t room) {
    return room - 5 * (room / 16383 + 2);
}

/// Compresses @p n bytes, at most deflateMostInput(room), into @p out and leaves @p z ready for the
/// next block: the bytes written, or a negative code of zlib's.
int64_t deflateBlock(z_stream *z, const unsigned char *in, size_t n, unsigned char *out,
                     size_t room);

}  // namespace vex::crypto

#endif
