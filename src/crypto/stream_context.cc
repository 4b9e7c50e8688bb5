#include "crypto/stream_context.h"

#include <algorithm>

namespace vex::crypto {

int64_t processAll(Cipher *cipher, const unsigned char *in, size_t length, bool final,
                   unsigned char *out, unsigned *padding) {
    constexpr size_t kPiece = size_t{1} << 30;  // whole blocks of every cipher, within an int
    int64_t total = 0;
    do {
        const size_t piece = std::min(length, kPiece);
        length -= piece;
        const int written = cipher->Process(in, static_cast<int>(piece), final && length == 0,
                                            out + total, padding);
        if (written < 0) return -1;
        in += piece;
        total += written;
    } while (length > 0);
    return total;
}

}  // namespace vex::crypto

int dcpGetCryptoAction(c_stream_t *stream, unsigned short *action) {
    if (stream == nullptr || stream->state == nullptr || action == nullptr)
        return VEX_STREAM_PARAMETER_ERROR;
    *action = stream->state->action;
    return VEX_STREAM_OK;
}
