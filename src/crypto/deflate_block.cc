#include "crypto/deflate_block.h"

#include <algorithm>
#include <cstring>

#include <vex/log.h>

namespace vex::crypto {
namespace {

/// Stored deflate blocks: what zlib makes of data that does not compress may be larger than this.
size_t storeBlocks(const unsigned char *in, size_t n, unsigned char *out) {
    constexpr size_t kMost = 65535;
    unsigned char *to = out;
    for (bool last = false; !last;) {
        const size_t piece = std::min(n, kMost);
        last = piece == n;
        *to++ = last ? 1 : 0;
        const auto low = static_cast<unsigned char>(piece),
                   high = static_cast<unsigned char>(piece >> 8);
        *to++ = low;
        *to++ = high;
        *to++ = static_cast<unsigned char>(~low);
        *to++ = static_cast<unsigned char>(~high);
        std::memcpy(to, in, piece);
        to += piece;
        in += piece;
        n -= piece;
    }
    return static_cast<size_t>(to - out);
}

}  // namespace

int64_t deflateBlock(z_stream *z, const unsigned char *in, size_t n, unsigned char *out,
                     size_t room) {
    InfoA(-1, "__compress: Using ZLIB compression");
    z->next_in = const_cast<unsigned char *>(in);  // zlib only reads it
    z->avail_in = static_cast<uInt>(n);
    z->next_out = out;
    z->avail_out = static_cast<uInt>(room);
    const int result = deflate(z, Z_FINISH);
    const size_t size = room - z->avail_out;
    const int reset = deflateReset(z);
    if (reset != Z_OK) return reset;
    if (result == Z_STREAM_END) return static_cast<int64_t>(size);
    if (result != Z_OK && result != Z_BUF_ERROR) return result;
    return static_cast<int64_t>(storeBlocks(in, n, out));
}

}  // namespace vex::crypto
