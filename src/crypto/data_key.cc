#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include <vex/cipher.h>
#include <vex/crypt_stream.h>
#include <vex/digest.h>
#include <vex/log.h>

#include "base/hex.h"
#include "crypto/stream_context.h"
#include "log/report.h"

namespace {

constexpr size_t kKeyLength = 32;
constexpr size_t kMostSeed = 255;
constexpr size_t kFingerprintText = 65;  // 64 digits and the terminator

/// Put together at run time, so that neither text stands in the library's file as a whole.
std::string builtInText(const char *const (&pieces)[4]) {
    std::string text;
    for (const char *piece : pieces) text += piece;
    return text;
}

std::string builtInSeed() {
    return builtInText({"qM7", "-lumen.", "vex", "/data/4c1e"});
}
std::string builtInMessage() {
    return builtInText({"key", "-of-", "stored.", "texts#6"});
}

/// 32 bytes of key material; false when OpenSSL fails.
bool deriveKey(const char *seed, unsigned char *key) {
    std::string secret =
        seed != nullptr ? std::string(seed, strnlen(seed, kMostSeed)) : builtInSeed();
    const std::string message = builtInMessage();
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    const bool done = HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
                           reinterpret_cast<const unsigned char *>(message.data()), message.size(),
                           mac, &length) != nullptr;
    char text[kFingerprintText];
    const bool good = done && SHA256FromData_r(mac, length, text, sizeof text) != nullptr &&
                      vex::hexDecode(text, kKeyLength, key) == 2 * kKeyLength;
    OPENSSL_cleanse(secret.data(), secret.size());
    OPENSSL_cleanse(mac, sizeof mac);
    OPENSSL_cleanse(text, sizeof text);
    return good;
}

/// The trace names the key by its fingerprint: whoever reads a trace must not be able to use the
/// key.
void traceKey(const char *key) {
    char text[kFingerprintText];
    if (TraceOn() && SHA256FromData_r(key, kKeyLength, text, sizeof text) != nullptr)
        __Trace("plugin generated data key:%.8s \n", text);
}

int encipherText(const char *key, const char *plain, char *out) {
    static constexpr unsigned char kZeroIv[16] = {};
    const std::unique_ptr<Cipher> cipher(Cipher::NewCipher(VEX_CIPHER_AES_256_CTR));
    if (cipher == nullptr) return -1;
    VexKey vex_key(key);
    const bool good =
        cipher->Init(0, vex_key, kZeroIv) == 1 &&
        vex::crypto::processAll(cipher.get(), reinterpret_cast<const unsigned char *>(plain),
                                strlen(plain), true, reinterpret_cast<unsigned char *>(out),
                                nullptr) >= 0;
    OPENSSL_cleanse(&vex_key, sizeof vex_key);
    cipher->Free();
    return good ? 0 : -1;
}

}  // namespace

int dcpGetDecrptKeyFromSeed(char *dataKey, unsigned long length, const char *seed) {
    if (dataKey == nullptr || length == 0) {
        ErrorA(EINVAL, "%s, The input param data_key is NULL", __func__);
        errno = EINVAL;
        return -1;
    }
    return vex::guard(__func__, -1, [=]() {
        unsigned char key[kKeyLength];
        if (length > sizeof key || !deriveKey(seed, key)) {
            errno = length > sizeof key ? EINVAL : EIO;
            ErrorA(errno, "%s, The data_key generate fails", "dcpGetDecrptKeyFromSeed");
            return -1;
        }
        std::memcpy(dataKey, key, length);
        OPENSSL_cleanse(key, sizeof key);
        return 0;
    });
}

int dcpEncodeText(const char *plainText, char *encodeText) {
    if (plainText == nullptr || encodeText == nullptr) {
        ErrorA(EINVAL,
               plainText == nullptr ? "%s, the input param: plain_text is NULL"
                                    : "%s, the output param: encode_text is NULL",
               __func__);
        errno = EINVAL;
        return -1;
    }
    char key[kKeyLength];
    if (dcpGetDecrptKeyFromSeed(key, sizeof key, nullptr) != 0) {
        ErrorA(errno, "%s, get data_key fails", __func__);
        return -1;
    }
    traceKey(key);
    const int result = encipherText(key, plainText, encodeText);
    OPENSSL_cleanse(key, sizeof key);
    return result;
}
