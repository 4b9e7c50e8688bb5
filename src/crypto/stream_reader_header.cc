// What comes before the blocks: the magic header and the initialisation block.
#include <openssl/crypto.h>

#include <cstring>

#include "crypto/stream_reader.h"

namespace vex::crypto {
namespace {

constexpr uint64_t kOwnWindow = 32768;   // for streams whose header tells no usable size
constexpr uint64_t kLeastWindow = 4096;  // no writer makes a smaller one
// ways of encrypting that other programs undo: their ciphertext must not pass for data
constexpr int kForeign = VEX_MAGIC_PLUGIN | VEX_MAGIC_SKIPJACK | VEX_MAGIC_RSA;

uint16_t actionOf(int flags) {
    const bool compressed = (flags & (VEX_MAGIC_LZO | VEX_MAGIC_DEFLATE)) != 0;
    if ((flags & VEX_MAGIC_ENCRYPTED) != 0)
        return compressed ? VEX_STREAM_COMPRESS_ENCRYPT : VEX_STREAM_ENCRYPT;
    return compressed ? VEX_STREAM_COMPRESS : VEX_STREAM_CLEAR;
}

}  // namespace

StreamReader::~StreamReader() {
    if (inflate_open_) (void)inflateEnd(&z_);  // cannot fail on a valid stream
    OPENSSL_cleanse(&key_, sizeof key_);
}

bool StreamReader::begin(const VexKey &key, unsigned char cipher_type) {
    key_ = key;
    cipher_ = newCipher(cipher_type);
    failure = 0;
    action = VEX_STREAM_COMPRESS_ENCRYPT;
    stage_ = Stage::kMagic;
    delivered_ = announced_ = 0;
    small_count_ = 0;
    left_ = plain_left_ = decoded_left_ = 0;
    cut_short_ = deflated_ = inflating_ = false;
    return cipher_ != nullptr || errno != ENOMEM;
}

int StreamReader::readMagic() {
    uint64_t window = 0;
    const int flags = vexMagicDecode(nullptr, small_, VEX_MAGIC_SIZE, &window);
    if (flags < 1 || (flags & kForeign) != 0 || window > kLargestWindow)
        return VEX_STREAM_DATA_ERROR;
    flags_ = static_cast<uint16_t>(flags);
    capacity_ = (window < kLeastWindow ? kOwnWindow : window) - kBlockHeaderSize;
    action = actionOf(flags);
    const int result = openDecompressor();
    if (result != VEX_STREAM_OK) return result;
    if (encrypts()) return startCipher();
    stage_ = Stage::kBlockHeader;
    return kGoOn;
}

int StreamReader::openDecompressor() {
    const bool lzo = (flags_ & VEX_MAGIC_LZO) != 0;
    if (lzo) return lzo_compression_init();
    deflated_ = (flags_ & VEX_MAGIC_DEFLATE) != 0;
    if (!deflated_ || inflate_open_) return VEX_STREAM_OK;
    const int result = inflateInit2(&z_, -MAX_WBITS);
    inflate_open_ = result == Z_OK;
    return result;
}

int StreamReader::startCipher() {
    if (cipher_ == nullptr) return VEX_STREAM_KEY_ERROR;
    if (!cipher_->UseIv8()) {
        stage_ = Stage::kVector;
        return kGoOn;
    }
    if (cipher_->Init(1, key_, nullptr) != 1) return VEX_STREAM_KEY_ERROR;
    stage_ = (flags_ & VEX_MAGIC_KEY_CHECK) != 0 ? Stage::kKeyCheck : Stage::kBlockHeader;
    return kGoOn;
}

/// The writer enciphered the same 4 bytes twice.
int StreamReader::checkKey() {
    if (cipher_->Decrypt(small_, cipher_->GetHeaderSize(), false, small_, nullptr) < 0)
        return VEX_STREAM_DATA_ERROR;
    if (std::memcmp(small_, small_ + 4, 4) != 0) return VEX_STREAM_KEY_ERROR;
    stage_ = Stage::kBlockHeader;
    return kGoOn;
}

int StreamReader::readVector() {
    if (cipher_->Init(1, key_, small_) != 1) return VEX_STREAM_KEY_ERROR;
    stage_ = Stage::kBlockHeader;
    return kGoOn;
}

}  // namespace vex::crypto
