// Opening a stream for writing: its settings and the bytes it begins with.
#include <cstdlib>
#include <cstring>

#include <vex/log.h>

#include "crypto/lzo_chunk.h"
#include "crypto/stream_writer.h"
#include "log/report.h"

namespace vex::crypto {
namespace {

constexpr uint16_t kDefaultWindowBits = 17, kLeastWindowBits = 12, kMostWindowBits = 31;
constexpr uint16_t kDefaultLzoLevel = 14, kLeastLzoLevel = 6, kMostLzoLevel = 16;
constexpr uint16_t kDefaultDeflateLevel = 6, kMostDeflateLevel = 10;
constexpr int kDeflateMemoryLevel = 9;

bool validWindow(uint16_t bits) {
    return bits == 0 || (bits >= kLeastWindowBits && bits <= kMostWindowBits);
}

uint16_t actionOf(unsigned long flags) {
    const bool plain = (flags & VEX_STREAM_NO_COMPRESSION) != 0;
    const bool open = (flags & VEX_STREAM_NO_ENCRYPTION) != 0;
    if (plain) return open ? VEX_STREAM_CLEAR : VEX_STREAM_ENCRYPT;
    return open ? VEX_STREAM_COMPRESS : VEX_STREAM_COMPRESS_ENCRYPT;
}

/// LZO may expand what it compresses.
uint32_t windowSize(uint16_t bits, bool lzo) {
    const uint64_t size = uint64_t{1} << bits;
    constexpr uint64_t kPage = 4096;
    return static_cast<uint32_t>(lzo ? (size + size / 16 + 167 + kPage - 1) / kPage * kPage : size);
}

}  // namespace

StreamWriter::~StreamWriter() {
    if (deflating_) (void)deflateEnd(&z_);  // tells only that data was discarded
}

int StreamWriter::configure(const c_stream_t &stream, unsigned long flags) {
    action = actionOf(flags);
    if (!validWindow(stream.zwindow)) return VEX_STREAM_PARAMETER_ERROR;
    window_bits_ = stream.zwindow == 0 ? kDefaultWindowBits : stream.zwindow;
    int result = VEX_STREAM_OK;
    if (compresses()) {
        const bool deflate = stream.zalgorithm == VEX_STREAM_ALGORITHM_FLAGS
                                 ? (flags & VEX_STREAM_DEFLATE) != 0
                                 : stream.zalgorithm == VEX_STREAM_ALGORITHM_DEFLATE;
        result = deflate ? chooseDeflate(stream) : chooseLzo(stream);
    }
    if (action == VEX_STREAM_CLEAR) magic_flags_ |= VEX_MAGIC_SIMPLE;
    window_size_ = windowSize(window_bits_, lzo_level_ != 0);
    capacity_ = window_size_ - static_cast<uint32_t>(kBlockHeaderSize);
    return result;
}

int StreamWriter::chooseLzo(const c_stream_t &stream) {
    if (lzo_compression_init() != 0 || stream.zlevel > kMostLzoLevel)
        return VEX_STREAM_PARAMETER_ERROR;
    lzo_level_ = stream.zlevel < kLeastLzoLevel ? kDefaultLzoLevel : stream.zlevel;
    const size_t bytes = lzoWorkMemory(lzo_level_);
    lzo_work_.reset(static_cast<unsigned char *>(std::malloc(bytes)));
    if (lzo_work_ == nullptr) {
        log::allocationFailure(bytes, "dcpEncryptInit");
        return VEX_STREAM_MEMORY_ERROR;
    }
    magic_flags_ |= VEX_MAGIC_LZO;
    return VEX_STREAM_OK;
}

int StreamWriter::chooseDeflate(const c_stream_t &stream) {
    if (stream.zlevel > kMostDeflateLevel) return VEX_STREAM_PARAMETER_ERROR;
    // callers count zlib's levels from 1, since 0 stands for the default
    const int level = (stream.zlevel == 0 ? kDefaultDeflateLevel : stream.zlevel) - 1;
    const int result =
        deflateInit2(&z_, level, Z_DEFLATED, -MAX_WBITS, kDeflateMemoryLevel, Z_DEFAULT_STRATEGY);
    if (result != Z_OK) return result;
    deflating_ = true;
    magic_flags_ |= VEX_MAGIC_DEFLATE;
    return VEX_STREAM_OK;
}

int StreamWriter::begin(const VexKey &key, unsigned char cipher_type) {
    cipher_.reset();
    if (encrypts()) {
        cipher_ = newCipher(cipher_type);
        if (cipher_ == nullptr)
            return errno == ENOMEM ? VEX_STREAM_MEMORY_ERROR : VEX_STREAM_PARAMETER_ERROR;
        magic_flags_ |= VEX_MAGIC_ENCRYPTED | VEX_MAGIC_KEY_CHECK | VEX_MAGIC_KEY_256;
    }
    magic_flags_ |= VEX_MAGIC_STREAMABLE_V2;
    vexMagicMake(magic_flags_, small_, VEX_MAGIC_SIZE, window_size_);
    pending_ = small_;
    pending_size_ = VEX_MAGIC_SIZE;
    return cipher_ == nullptr ? VEX_STREAM_OK : makePrefix(key);
}

/// With an 8-byte check, that is the first thing enciphered and the cipher runs on from there into
/// the blocks; otherwise the vector itself stands in the stream.
int StreamWriter::makePrefix(const VexKey &key) {
    unsigned char *const block = small_ + VEX_MAGIC_SIZE;
    if (cipher_->UseIv8()) {
        if (cipher_->Init(0, key, nullptr) != 1 || cipher_->makeIv(block) != 0 ||
            cipher_->Encrypt(block, cipher_->GetHeaderSize(), false, block, nullptr) < 0)
            return VEX_STREAM_SYSTEM_ERROR;
    } else if (cipher_->makeIv(block) != 0 || cipher_->Init(0, key, block) != 1) {
        return VEX_STREAM_SYSTEM_ERROR;
    }
    pending_size_ += static_cast<size_t>(cipher_->GetHeaderSize());
    return VEX_STREAM_OK;
}

int StreamWriter::reset() {
    failure = 0;
    finished_ = false;
    extra_ = 0;
    pending_size_ = 0;
    return deflating_ ? deflateReset(&z_) : Z_OK;
}

}  // namespace vex::crypto

using vex::crypto::StreamWriter;

int dcpEncryptInit(c_stream_t *stream, unsigned long flags, const VexKey &key,
                   unsigned char cipherType) {
    if (stream == nullptr) return VEX_STREAM_PARAMETER_ERROR;
    stream->state = nullptr;
    const bool compress = (flags & VEX_STREAM_NO_COMPRESSION) == 0;
    if (compress && stream->zalgorithm > VEX_STREAM_ALGORITHM_DEFLATE)
        return VEX_FAIL(EINVAL, VEX_STREAM_DATA_ERROR,
                        "compression algorithm is not valid,  c->zalgorithm = %d ",
                        stream->zalgorithm);
    auto writer = vex::crypto::tryNew<StreamWriter>();
    if (writer == nullptr) return VEX_STREAM_MEMORY_ERROR;
    int result = writer->configure(*stream, flags);
    if (writer->lacksWorkMemory())
        return VEX_STREAM_OK;  // the closed stream tells at the next call
    if (result == VEX_STREAM_OK) result = writer->begin(key, cipherType);
    if (result == VEX_STREAM_OK) stream->state = writer.release();
    return result;
}

int dcpEncryptReset(c_stream_t *stream, const VexKey &key, unsigned char cipherType) {
    StreamWriter *const writer = vex::crypto::contextOf<StreamWriter>(stream);
    if (writer == nullptr) return VEX_STREAM_PARAMETER_ERROR;
    vex::crypto::restart(stream);
    int result = writer->reset();
    if (result == VEX_STREAM_OK) result = writer->begin(key, cipherType);
    if (result != VEX_STREAM_OK) writer->failure = result;
    return result;
}

int dcpEncryptEnd(c_stream_t *stream) {
    return vex::crypto::endStream<StreamWriter>(stream);
}
