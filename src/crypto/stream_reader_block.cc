// Delivering one block: deciphering, decompressing, copying.
#include <algorithm>
#include <cstring>

#include "base/endian.h"
#include "crypto/lzo_chunk.h"
#include "crypto/stream_reader.h"

namespace vex::crypto {

/// A block's payload is there, in the window or @p borrowed from the caller's input.
int StreamReader::openBlock(const unsigned char *payload, size_t size, bool borrowed) {
    stage_ = Stage::kBlock;
    plain_left_ = decoded_left_ = 0;
    data_ = payload;
    left_ = size;
    borrowed_ = borrowed;
    if (encrypts()) {
        const int result = openEnciphered(payload, size);
        if (result < 0) return result;
    }
    inflating_ = deflated_ && left_ > 0;
    if (inflating_ && inflateReset(&z_) != Z_OK) return VEX_STREAM_MEMORY_ERROR;
    if (action == VEX_STREAM_CLEAR || action == VEX_STREAM_ENCRYPT) plain_left_ = left_;
    return kGoOn;
}

int StreamReader::openEnciphered(const unsigned char *payload, size_t size) {
    const size_t padding = pads() ? extra_ : 0;
    if (padding > size || (pads() && size % 8 != 0)) return VEX_STREAM_DATA_ERROR;
    const bool direct = action == VEX_STREAM_ENCRYPT && stream_->avail_out >= size;
    // what lies in the window is deciphered there
    if (!direct && !window_.grow(size, !borrowed_)) return VEX_STREAM_MEMORY_ERROR;
    unsigned char *const to = direct ? stream_->next_out : window_.bytes.get();
    if (size > 0 && processAll(cipher_.get(), payload, size, true, to, nullptr) < 0)
        return VEX_STREAM_DATA_ERROR;
    data_ = to;
    left_ = size - padding;
    borrowed_ = false;
    if (direct) {
        produced(left_);
        left_ = 0;
    }
    return kGoOn;
}

int StreamReader::blockStep() {
    if (!deliverDecoded() || !copyPlain()) return kNeedRoom;
    if (inflating_) return inflateStep();
    if (left_ > 0) return chunkStep();
    payload_have_ = 0;
    stage_ = cut_short_ ? Stage::kPayload : Stage::kBlockHeader;
    return cut_short_ ? kNeedInput : kGoOn;
}

/// Delivers bytes that need no decoding; false when the output is full before.
bool StreamReader::copyPlain() {
    const size_t count = std::min<size_t>(plain_left_, stream_->avail_out);
    if (count > 0) std::memcpy(stream_->next_out, data_, count);
    produced(count);
    data_ += count;
    left_ -= count;
    plain_left_ -= count;
    return plain_left_ == 0;
}

/// Delivers a decoded chunk; false when the output is full before.
bool StreamReader::deliverDecoded() {
    const size_t count = std::min<size_t>(decoded_left_, stream_->avail_out);
    if (count > 0) std::memcpy(stream_->next_out, decoded_.bytes.get() + decoded_at_, count);
    produced(count);
    decoded_at_ += count;
    decoded_left_ -= count;
    return decoded_left_ == 0;
}

int StreamReader::inflateStep() {
    unsigned char nowhere = 0;
    z_.next_in = const_cast<unsigned char *>(data_);  // zlib only reads it
    z_.avail_in = static_cast<uInt>(left_);
    // also without room: the end of the block may follow without another byte of data
    z_.next_out = stream_->avail_out > 0 ? stream_->next_out : &nowhere;
    z_.avail_out = stream_->avail_out;
    const int result = inflate(&z_, Z_FINISH);
    produced(stream_->avail_out - z_.avail_out);
    data_ += left_ - z_.avail_in;
    left_ = z_.avail_in;
    if (result == Z_STREAM_END) {
        if (left_ > (pads() ? kMostPadding : 0)) return VEX_STREAM_DATA_ERROR;
        left_ = 0;
        inflating_ = false;
        return kGoOn;
    }
    if (result == Z_MEM_ERROR) return VEX_STREAM_MEMORY_ERROR;
    if (result != Z_OK && result != Z_BUF_ERROR) return VEX_STREAM_DATA_ERROR;
    return stream_->avail_out == 0 ? kNeedRoom : VEX_STREAM_DATA_ERROR;
}

/// Writers that leave the extra word at 0 put the cipher's padding behind the last chunk.
bool StreamReader::onlyPaddingLeft() const {
    return pads() && left_ <= kMostPadding &&
           std::all_of(data_, data_ + left_, [](unsigned char c) { return c == 0; });
}

int StreamReader::chunkStep() {
    if (onlyPaddingLeft()) {
        left_ = 0;
        return kGoOn;
    }
    if (left_ < kLzoChunkWord) return VEX_STREAM_DATA_ERROR;
    const uint32_t word = loadBig32(data_);
    const size_t length = word & ~kLzoCompressed;
    data_ += kLzoChunkWord;
    left_ -= kLzoChunkWord;
    if ((word & kLzoCompressed) != 0) return decodeChunk(length);
    if (length > left_) return VEX_STREAM_DATA_ERROR;
    plain_left_ = length;
    return kGoOn;
}

int StreamReader::decodeChunk(size_t length) {
    // before memory is allocated for what a few hostile bytes announce
    if (!lzoCanExpandTo(left_, length)) return VEX_STREAM_DATA_ERROR;
    const bool direct = stream_->avail_out >= length;
    if (!direct && !decoded_.grow(length, false)) return VEX_STREAM_MEMORY_ERROR;
    unsigned char *const to = direct ? stream_->next_out : decoded_.bytes.get();
    size_t used = 0;
    if (!lzoDecompress(data_, left_, to, length, &used)) return VEX_STREAM_DATA_ERROR;
    data_ += used;
    left_ -= used;
    if (direct) {
        produced(length);
    } else {
        decoded_at_ = 0;
        decoded_left_ = length;
    }
    return kGoOn;
}

}  // namespace vex::crypto
