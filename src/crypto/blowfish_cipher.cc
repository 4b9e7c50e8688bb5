#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

#include <vex/blowfish.h>
#include <vex/cipher.h>

#include "log/report.h"

namespace {

constexpr int kBlock = 8;

}  // namespace

BlowfishCipher::BlowfishCipher()
    : Cipher(VEX_CIPHER_BLOWFISH, true), state_(nullptr), held_{}, held_count_(0) {}

BlowfishCipher::~BlowfishCipher() {
    BlowfishCipher::Free();
}

int BlowfishCipher::GetBlockSize() const {
    return kBlock;
}
int BlowfishCipher::GetPaddingSize() const {
    return kBlock;
}
int BlowfishCipher::GetAcUsed() const {
    return held_count_;
}

/// A zeroed state in place of what an earlier Init left.
bool BlowfishCipher::renewState() {
    Free();
    state_ = static_cast<BlowfishContext *>(std::calloc(1, sizeof *state_));
    if (state_ != nullptr) return true;
    return VEX_FAIL_AS("Init", ENOMEM, ENOMEM, false, "could not allocate memory");
}

int BlowfishCipher::Init(int opMode, const VexKey &key, const unsigned char * /*iv*/) {
    opMode_ = opMode;
    if (!renewState()) return 0;
    return BlowfishInit(state_, reinterpret_cast<const unsigned char *>(&key), VEX_KEY_SIZE);
}

int BlowfishCipher::InitSession(int opMode, const VexKey &key, const unsigned char * /*iv*/) {
    opMode_ = opMode;
    if (!renewState()) return 0;
    return BlowfishInitCBC(state_, reinterpret_cast<const char *>(&key), VEX_KEY_SIZE,
                           opMode != 0 ? 1 : 0);
}

int BlowfishCipher::UpdateAligned(const unsigned char *in, int length, unsigned char *out) {
    return opMode_ == 0 ? BlowfishEncode(state_, in, out, length)
                        : BlowfishDecode(state_, in, out, length);
}

int BlowfishCipher::Update(const void *in, int length, void *out) {
    if (in == nullptr || out == nullptr || length < 0)
        return VEX_FAIL(EINVAL, -1, "invalid arguments");
    const auto *from = static_cast<const unsigned char *>(in);
    auto *to = static_cast<unsigned char *>(out);
    if (held_count_ + static_cast<int64_t>(length) < kBlock) {
        std::memcpy(held_ + held_count_, from, static_cast<size_t>(length));
        held_count_ += length;
        return 0;
    }
    if (held_count_ > 0) return updateHeld(from, length, to);
    const int tail = length % kBlock, whole = length - tail;
    // in place, the whole blocks do not reach the tail
    if (whole > 0 && UpdateAligned(from, whole, to) < 0)
        return VEX_FAIL(errno, -1, "UpdateAligned failed");
    std::memcpy(held_, from + whole, static_cast<size_t>(tail));
    held_count_ = tail;
    return whole;
}

/// With bytes held back, output runs ahead of the input it comes from by their count. In place it
/// would run over input not yet read, so the first block and the tail are set aside while the
/// middle is moved.
int BlowfishCipher::updateHeld(const unsigned char *in, int length, unsigned char *out) {
    const int taken = kBlock - held_count_, rest = length - taken;
    const int tail = rest % kBlock, whole = rest - tail;
    unsigned char first[kBlock], last[kBlock];
    std::memcpy(first, held_, static_cast<size_t>(held_count_));
    std::memcpy(first + held_count_, in, static_cast<size_t>(taken));
    std::memcpy(last, in + taken + whole, static_cast<size_t>(tail));
    if (UpdateAligned(first, kBlock, first) < 0 ||
        (whole > 0 && UpdateAligned(in + taken, whole, out + kBlock) < 0))
        return VEX_FAIL_AS("Update", errno, errno, -1, "UpdateAligned failed");
    std::memcpy(out, first, kBlock);
    std::memcpy(held_, last, static_cast<size_t>(tail));
    held_count_ = tail;
    return kBlock + whole;
}

int BlowfishCipher::Final(void *out, unsigned *padding) {
    if (out == nullptr) return VEX_FAIL(EINVAL, -1, "invalid argument");
    const int held = held_count_;
    if (padding != nullptr) *padding = held > 0 ? static_cast<unsigned>(kBlock - held) : 0;
    if (held == 0) return 0;
    if (UpdateAligned(held_, held, static_cast<unsigned char *>(out)) < 0)
        return VEX_FAIL(errno, -1, "UpdateAligned failed");
    held_count_ = 0;
    return kBlock;
}

void BlowfishCipher::Free() {
    if (state_ != nullptr) OPENSSL_cleanse(state_, sizeof *state_);
    std::free(state_);
    state_ = nullptr;
    OPENSSL_cleanse(held_, sizeof held_);
    held_count_ = 0;
}
