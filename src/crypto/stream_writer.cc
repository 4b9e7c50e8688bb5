#include "crypto/stream_writer.h"

#include <algorithm>
#include <cstring>

#include "base/endian.h"

namespace vex::crypto {

bool StreamWriter::deliver(c_stream_t *stream) {
    const size_t count = std::min<size_t>(pending_size_, stream->avail_out);
    std::memcpy(stream->next_out, pending_, count);
    pending_ += count;
    pending_size_ -= count;
    stream->next_out += count;
    stream->avail_out -= static_cast<uint32_t>(count);
    stream->total_out += count;
    return pending_size_ == 0;
}

void StreamWriter::finish(c_stream_t *stream) {
    finished_ = true;
    if (pending_size_ == 0) pending_ = small_;
    // behind a pending block: the window has room for it there
    unsigned char *const trailer = pending_ + pending_size_;
    storeBig32(trailer, kTrailerMark);
    storeBig32(trailer + 4, extra_);
    storeBig32(trailer + 8, 0);
    storeBig64(trailer + 12, stream->total_in);
    pending_size_ += kTrailerSize;
}

}  // namespace vex::crypto

int dcpEncrypt(c_stream_t *stream) {
    auto *const writer = vex::crypto::contextOf<vex::crypto::StreamWriter>(stream);
    if (writer == nullptr || stream->next_out == nullptr ||
        (stream->next_in == nullptr && stream->avail_in > 0))
        return VEX_STREAM_PARAMETER_ERROR;
    if (stream->avail_out == 0) return VEX_STREAM_BUFFER_ERROR;
    if (writer->failure < 0) return writer->failure;

    if (!writer->deliver(stream)) return VEX_STREAM_OK;
    if (writer->finished()) return stream->avail_in > 0 ? VEX_STREAM_BUFFER_ERROR : VEX_STREAM_END;
    while (stream->avail_in > 0 && stream->avail_out > 0) {
        const int result = writer->writeBlock(stream);
        if (result < 0) return writer->failure = result;
    }
    if (stream->avail_in > 0) return VEX_STREAM_OK;
    // all input is consumed: that ends the stream, even when there is no room left for the trailer
    writer->finish(stream);
    return writer->deliver(stream) ? VEX_STREAM_END : VEX_STREAM_OK;
}
