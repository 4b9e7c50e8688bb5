// What the functions over whole buffers share.
#ifndef VEX_CRYPTO_ONE_SHOT_H
#define VEX_CRYPTO_ONE_SHOT_H

#include <cerrno>
#include <cstddef>

#include <vex/crypt_stream.h>

namespace vex::crypto {

/// A stream to be opened, with its input and output set.
c_stream_t streamOver(const unsigned char *in, size_t in_length, unsigned char *out,
                      size_t out_length);

/// The code of a failure's log line: errno when the failing step set it.
inline int failureCode() {
    return errno != 0 ? errno : -1;
}

/// The result of the only call for a stream: 0 means that the output was too small, -5 with
/// ENOBUFS.
int settle(int result);

}  // namespace vex::crypto

#endif
