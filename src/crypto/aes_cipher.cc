#include <openssl/evp.h>

#include <new>

#include <vex/cipher.h>

#include "log/report.h"

namespace {

/// OpenSSL sets no errno for a cipher that was not set up.
int reason() {
    return errno != 0 ? errno : EINVAL;
}

}  // namespace

AESCipher::AESCipher(int type, const evp_cipher_st *cipher, bool useIv8)
    : Cipher(type, useIv8), cipher_(cipher), context_(EVP_CIPHER_CTX_new()) {
    if (context_ == nullptr) throw std::bad_alloc();
}

AESCipher::~AESCipher() {
    EVP_CIPHER_CTX_free(context_);
}

int AESCipher::Init(int opMode, const VexKey &key, const unsigned char *iv) {
    static constexpr unsigned char kZeroIv[16] = {};
    opMode_ = opMode;
    if (EVP_CipherInit(context_, cipher_, reinterpret_cast<const unsigned char *>(&key),
                       iv != nullptr ? iv : kZeroIv, opMode == 0 ? 1 : 0) != 1)
        return VEX_FAIL_AS(__func__, errno, reason(), 0, "EVP_CipherInit failed(%d)", opMode);
    return 1;
}

int AESCipher::Update(const void *in, int length, void *out) {
    if (in == nullptr || out == nullptr || length < 0)
        return VEX_FAIL(EINVAL, -1, "invalid arguments");
    int written = 0;
    if (EVP_CipherUpdate(context_, static_cast<unsigned char *>(out), &written,
                         static_cast<const unsigned char *>(in), length) != 1)
        return VEX_FAIL_AS(__func__, errno, reason(), -1, "EVP_CipherUpdate failed(%d)", opMode_);
    return written;
}

int AESCipher::Final(void *out, unsigned *padding) {
    if (out == nullptr) return VEX_FAIL(EINVAL, -1, "invalid arguments");
    int written = 0;
    if (EVP_CipherFinal_ex(context_, static_cast<unsigned char *>(out), &written) != 1)
        return VEX_FAIL_AS(__func__, errno, reason(), -1, "EVP_CipherFinal_ex failed(%d)", opMode_);
    if (padding != nullptr) *padding = 0;
    return written;
}

void AESCipher::Free() {
    EVP_CIPHER_CTX_reset(context_);
}
