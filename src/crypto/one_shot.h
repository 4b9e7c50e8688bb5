// What the functions over whole buffers share.
#ifndef VEX_CRYPTO_ONE_SHOT_H
#define VEX_CRYPTO_ONE_SHOT_H

#include <cstddef>

#include <vex/crypt_stream.h>

namespace vex::crypto {

/// A stream to be opened, with its input and output set.
c_stream_t streamOver(const unsigned char *in, size_t in_length, unsigned char *out,
                      size_t out_length);

/// One error line for a failed stream; its code is the errno that the failing step set, -1 when it
/// set none. Callers see no stream code, so errno then tells the kind: EINVAL, ENOMEM,
/// EKEYREJECTED, or EBADMSG for damaged data.
void reportFailure(int result, const char *format, ...) VEX_PRINTF(2, 3);

/// The result of the only call for a stream: 0 means that the output was too small, -5 with
/// ENOBUFS.
int settle(int result);

}  // namespace vex::crypto

#endif
