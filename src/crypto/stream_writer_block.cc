// Making one block of a stream. Data is compressed and enciphered on the way from the input to
// where it is delivered; the window serves as scratch room and for what the output has no room for.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/endian.h"
#include "crypto/deflate_block.h"
#include "crypto/lzo_chunk.h"
#include "crypto/lzo_encoder.h"
#include "crypto/stream_writer.h"

namespace vex::crypto {
namespace {

// the chunk word holds 31 bits, and the worst case must fit the largest window
constexpr size_t kMostLzoInput = (size_t{1} << 31) - 1 - 4096;

void putChunkWord(unsigned char *payload, size_t n, bool compressed) {
    storeBig32(payload, static_cast<uint32_t>(n) | (compressed ? kLzoCompressed : 0));
}

}  // namespace

/// The most input bytes of a block: its payload, padding included, stays within the capacity.
size_t StreamWriter::mostInput() const {
    if (lzo_level_ != 0) return std::min(size_t{1} << window_bits_, kMostLzoInput);
    if (deflating_) return deflateMostInput(capacity_ - kMostPadding);
    return capacity_;
}

/// Room for a payload in the window, between a header and a trailer.
unsigned char *StreamWriter::windowPayload() {
    if (window_ == nullptr)
        window_.reset(static_cast<unsigned char *>(
            std::malloc(kBlockHeaderSize + size_t{capacity_} + kTrailerSize)));
    return window_ == nullptr ? nullptr : window_.get() + kBlockHeaderSize;
}

StreamWriter::Place StreamWriter::placeFor(const c_stream_t &stream, size_t room) {
    if (stream.avail_out >= kBlockHeaderSize + room)
        return {stream.next_out + kBlockHeaderSize, true};
    return {windowPayload(), false};
}

/// For what @p size bytes are enciphered to.
StreamWriter::Place StreamWriter::placeEnciphered(const c_stream_t &stream, size_t size) {
    const auto unit = static_cast<size_t>(cipher_->GetPaddingSize());
    return placeFor(stream, (size + unit - 1) / unit * unit);
}

int64_t StreamWriter::encipher(const unsigned char *in, size_t size, bool final,
                               unsigned char *out) {
    return processAll(cipher_.get(), in, size, final, out, &extra_);
}

int64_t StreamWriter::buildPlain(const c_stream_t &stream, size_t n, Place *place) {
    *place = encrypts() ? placeEnciphered(stream, n) : placeFor(stream, n);
    if (place->payload == nullptr) return VEX_STREAM_MEMORY_ERROR;
    if (encrypts()) return encipher(stream.next_in, n, true, place->payload);
    std::memcpy(place->payload, stream.next_in, n);
    return static_cast<int64_t>(n);
}

/// A chunk of plain bytes, which go from the input to their place in one step.
int64_t StreamWriter::storeChunk(const unsigned char *in, size_t n, unsigned char *payload) {
    putChunkWord(payload, n, false);
    if (!encrypts()) {
        std::memcpy(payload + kLzoChunkWord, in, n);
        return static_cast<int64_t>(kLzoChunkWord + n);
    }
    const int64_t word = encipher(payload, kLzoChunkWord, false, payload);
    if (word < 0) return word;
    const int64_t rest = encipher(in, n, true, payload + word);
    return rest < 0 ? rest : word + rest;
}

int64_t StreamWriter::buildLzo(const c_stream_t &stream, size_t n, Place *place) {
    // enciphered data is compressed in the window first
    *place = encrypts() ? Place{windowPayload(), false}
                        : placeFor(stream, kLzoChunkWord + lzoWorstCase(n));
    unsigned char *const built = place->payload;
    if (built == nullptr) return VEX_STREAM_MEMORY_ERROR;
    const size_t size =
        lzoCompress(lzo_level_, stream.next_in, n, built + kLzoChunkWord, lzo_work_.get());
    const size_t total = kLzoChunkWord + (size == 0 ? n : size);
    if (encrypts()) *place = placeEnciphered(stream, total);
    if (size == 0) return storeChunk(stream.next_in, n, place->payload);
    putChunkWord(built, n, true);
    return encrypts() ? encipher(built, total, true, place->payload) : static_cast<int64_t>(total);
}

int64_t StreamWriter::buildDeflate(const c_stream_t &stream, size_t n, Place *place) {
    *place = encrypts() ? Place{windowPayload(), false} : placeFor(stream, capacity_);
    unsigned char *const built = place->payload;
    if (built == nullptr) return VEX_STREAM_MEMORY_ERROR;
    const int64_t size =
        deflateBlock(&z_, stream.next_in, n, built, capacity_ - (encrypts() ? kMostPadding : 0));
    if (size < 0 || !encrypts()) return size;
    *place = placeEnciphered(stream, static_cast<size_t>(size));
    return encipher(built, static_cast<size_t>(size), true, place->payload);
}

/// The payload's size, or a negative code of the stream functions.
int64_t StreamWriter::build(const c_stream_t &stream, size_t n, Place *place) {
    if (lzo_level_ != 0) return buildLzo(stream, n, place);
    return deflating_ ? buildDeflate(stream, n, place) : buildPlain(stream, n, place);
}

int StreamWriter::writeBlock(c_stream_t *stream) {
    const size_t n = std::min<size_t>(stream->avail_in, mostInput());
    Place place{};
    const int64_t built = build(*stream, n, &place);
    if (built < 0) return static_cast<int>(built);
    const auto size = static_cast<uint32_t>(built);
    stream->next_in += n;
    stream->avail_in -= static_cast<uint32_t>(n);
    stream->total_in += n;

    unsigned char *const header = place.payload - kBlockHeaderSize;
    storeBig32(header, size);
    storeBig32(header + 4, extra_);
    if (!place.direct) {
        pending_ = header;
        pending_size_ = kBlockHeaderSize + size_t{size};
        deliver(stream);
        return VEX_STREAM_OK;
    }
    const auto count = static_cast<uint32_t>(kBlockHeaderSize + size);
    stream->next_out += count;
    stream->avail_out -= count;
    stream->total_out += count;
    return VEX_STREAM_OK;
}

}  // namespace vex::crypto
