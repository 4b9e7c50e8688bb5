#include "crypto/stream_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/endian.h"

namespace vex::crypto {
namespace {

// what a v2 and an older stream carry behind the trailer's mark and extra word: v2 puts four zero
// bytes before the total
constexpr size_t kTotalV2 = 12, kTotalOlder = 8;
// a payload's announced length is believed up to here; beyond it memory grows with the bytes that
// arrive
constexpr size_t kTrustedPayload = size_t{256} << 10;

}  // namespace

/// Room for @p to bytes, with or without the old contents.
bool StreamReader::Growing::grow(size_t to, bool keep) {
    if (to <= size) return true;
    if (!keep) bytes.reset();
    void *const bigger = std::realloc(bytes.get(), to);
    if (bigger == nullptr) {
        if (!keep) size = 0;
        return false;
    }
    (void)bytes.release();
    bytes.reset(static_cast<unsigned char *>(bigger));
    size = to;
    return true;
}

void StreamReader::take(size_t count) {
    stream_->next_in += count;
    stream_->avail_in -= static_cast<uint32_t>(count);
    stream_->total_in += count;
}

void StreamReader::produced(size_t count) {
    stream_->next_out += count;
    stream_->avail_out -= static_cast<uint32_t>(count);
    stream_->total_out += count;
    delivered_ += count;
}

/// Gathers an element of @p count bytes in small_; true when it is whole.
bool StreamReader::gather(size_t count) {
    const size_t piece = std::min<size_t>(count - small_count_, stream_->avail_in);
    if (piece > 0) std::memcpy(small_ + small_count_, stream_->next_in, piece);
    take(piece);
    small_count_ += piece;
    if (small_count_ < count) return false;
    small_count_ = 0;
    return true;
}

int StreamReader::readBlockHeader() {
    const uint32_t length = loadBig32(small_);
    extra_ = loadBig32(small_ + 4);
    if (length == kTrailerMark) {
        stage_ = Stage::kTrailer;
        return kGoOn;
    }
    if (length > capacity_ || extra_ > kMostPadding) return VEX_STREAM_SYSTEM_ERROR;
    payload_size_ = length;
    payload_have_ = 0;
    if (length > 0) stage_ = Stage::kPayload;
    return kGoOn;
}

int StreamReader::gatherPayload() {
    if (payload_have_ == 0 && stream_->avail_in >= payload_size_) {
        const unsigned char *const payload = stream_->next_in;
        take(payload_size_);
        return openBlock(payload, payload_size_, true);
    }
    const size_t piece = std::min<size_t>(payload_size_ - payload_have_, stream_->avail_in);
    if (piece == 0) return kNeedInput;
    const size_t have = payload_have_ + piece;
    if (!window_.grow(std::min(payload_size_, std::max(kTrustedPayload, 2 * have)), true))
        return VEX_STREAM_MEMORY_ERROR;
    std::memcpy(window_.bytes.get() + payload_have_, stream_->next_in, piece);
    take(piece);
    payload_have_ = have;
    if (have < payload_size_) return kNeedInput;
    return openBlock(window_.bytes.get(), have, false);
}

int StreamReader::readTrailer() {
    const bool v2 = (flags_ & VEX_MAGIC_STREAMABLE_V2) != 0;
    announced_ = loadBig64(small_ + (v2 ? kTotalV2 - kTotalOlder : 0));
    stage_ = Stage::kEnd;
    return kGoOn;
}

int StreamReader::step() {
    switch (stage_) {
        case Stage::kMagic:
            return gather(VEX_MAGIC_SIZE) ? readMagic() : kNeedInput;
        case Stage::kKeyCheck:
            return gather(static_cast<size_t>(cipher_->GetHeaderSize())) ? checkKey() : kNeedInput;
        case Stage::kVector:
            return gather(static_cast<size_t>(cipher_->GetHeaderSize())) ? readVector()
                                                                         : kNeedInput;
        case Stage::kBlockHeader:
            return gather(kBlockHeaderSize) ? readBlockHeader() : kNeedInput;
        case Stage::kPayload:
            return gatherPayload();
        case Stage::kBlock:
            return blockStep();
        case Stage::kTrailer:
            return gather((flags_ & VEX_MAGIC_STREAMABLE_V2) != 0 ? kTotalV2 : kTotalOlder)
                       ? readTrailer()
                       : kNeedInput;
        case Stage::kEnd:
            break;
    }
    return VEX_STREAM_END;
}

/// Input has ended inside the stream: what is there of the last block is still delivered.
int StreamReader::cutShort() {
    if (stage_ == Stage::kPayload && payload_have_ > 0 && !cut_short_) {
        cut_short_ = true;
        extra_ = 0;
        const size_t whole = pads() ? payload_have_ / 8 * 8 : payload_have_;
        return openBlock(window_.bytes.get(), whole, false);
    }
    return stream_->avail_out > 0 ? VEX_STREAM_BUFFER_ERROR : kNeedRoom;
}

/// The rest of a block that lies in the caller's input must outlive the call.
int StreamReader::keepRest() {
    if (!borrowed_ || left_ == 0 || stage_ != Stage::kBlock) return VEX_STREAM_OK;
    if (!window_.grow(left_, false)) return VEX_STREAM_MEMORY_ERROR;
    std::memcpy(window_.bytes.get(), data_, left_);
    data_ = window_.bytes.get();
    borrowed_ = false;
    return VEX_STREAM_OK;
}

int StreamReader::finish() const {
    return announced_ == delivered_ ? VEX_STREAM_END : VEX_STREAM_DATA_ERROR;
}

int StreamReader::read(c_stream_t *stream, bool flush) {
    stream_ = stream;
    int found = kGoOn;
    while (found == kGoOn && stage_ != Stage::kEnd) {
        found = step();
        if (found == kNeedInput && flush) found = cutShort();
    }
    if (found < 0) return found;
    if (stage_ == Stage::kEnd) return finish();
    return keepRest();
}

}  // namespace vex::crypto

using vex::crypto::StreamReader;

int dcpDecryptInit(c_stream_t *stream, const VexKey &key, unsigned char cipherType) {
    if (stream == nullptr) return VEX_STREAM_PARAMETER_ERROR;
    stream->state = nullptr;
    auto reader = vex::crypto::tryNew<StreamReader>();
    if (reader == nullptr || !reader->begin(key, cipherType)) return VEX_STREAM_MEMORY_ERROR;
    stream->state = reader.release();
    return VEX_STREAM_OK;
}

int dcpDecrypt(c_stream_t *stream, int flush) {
    StreamReader *const reader = vex::crypto::contextOf<StreamReader>(stream);
    if (reader == nullptr || (stream->next_in == nullptr && stream->avail_in > 0) ||
        (stream->next_out == nullptr && stream->avail_out > 0))
        return VEX_STREAM_PARAMETER_ERROR;
    if (reader->failure == 0) {
        const int result = reader->read(stream, flush != 0);
        if (result >= 0) return result;
        reader->failure = result;
    }
    if (reader->failure == VEX_STREAM_SYSTEM_ERROR) errno = EBADMSG;
    return reader->failure;
}

int dcpDecryptReset(c_stream_t *stream, const VexKey &key, unsigned char cipherType) {
    if (stream == nullptr) return VEX_STREAM_PARAMETER_ERROR;
    if (stream->state == nullptr) return dcpDecryptInit(stream, key, cipherType);
    StreamReader *const reader = vex::crypto::contextOf<StreamReader>(stream);
    if (reader == nullptr) return VEX_STREAM_PARAMETER_ERROR;
    vex::crypto::restart(stream);
    if (reader->begin(key, cipherType)) return VEX_STREAM_OK;
    return reader->failure = VEX_STREAM_MEMORY_ERROR;
}

int dcpDecryptEnd(c_stream_t *stream) {
    return vex::crypto::endStream<StreamReader>(stream);
}
