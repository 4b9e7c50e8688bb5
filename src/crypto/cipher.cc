#include <openssl/evp.h>

#include <atomic>
#include <cstring>

#include <vex/cipher.h>
#include <vex/log.h>
#include <vex/random.h>

#include "log/report.h"

namespace {

// informative only; atomic so that concurrent creation is no data race
std::atomic<int32_t> next_id{0};

}  // namespace

Cipher::Cipher(int type, bool useIv8)
    : id_(next_id.fetch_add(1, std::memory_order_relaxed)),
      opMode_(0),
      type_(type),
      useIv8_(useIv8) {}

Cipher::~Cipher() = default;

int Cipher::GetBlockSize() const {
    return 16;
}
int Cipher::GetPaddingSize() const {
    return 1;
}
int Cipher::GetAcUsed() const {
    return 0;
}
int Cipher::GetType() const {
    return type_;
}
int Cipher::GetOpMode() const {
    return opMode_;
}
bool Cipher::UseIv8() const {
    return useIv8_;
}
int Cipher::GetHeaderSize() const {
    return useIv8_ ? 8 : GetBlockSize();
}
const char *Cipher::GetDescription() const {
    return GetCipherDescription(type_);
}

int Cipher::InitSession(int opMode, const VexKey &key, const unsigned char *iv) {
    return Init(opMode, key, iv);
}

int Cipher::makeIv(unsigned char *iv) {
    if (!useIv8_) return RandomGetBytes(iv, static_cast<size_t>(GetBlockSize()));
    const int result = RandomGetBytes(iv, 4);
    std::memcpy(iv + 4, iv, 4);
    return result;
}

int Cipher::Process(const void *in, int length, bool final, void *out, unsigned *padding) {
    const int written = Update(in, length, out);
    if (written < 0)
        return VEX_FAIL(errno, -1, "Update failed for %s(%d)", GetDescription(), opMode_);
    if (!final) return written;
    const int last = Final(static_cast<unsigned char *>(out) + written, padding);
    if (last < 0) return VEX_FAIL(errno, -1, "Final failed for %s(%d)", GetDescription(), opMode_);
    return written + last;
}

int Cipher::Encrypt(const void *in, int length, bool final, void *out, unsigned *padding) {
    return Process(in, length, final, out, padding);
}

int Cipher::Decrypt(const void *in, int length, bool final, void *out, unsigned *padding) {
    return Process(in, length, final, out, padding);
}

Cipher *Cipher::NewCipher(int type) {
    return vex::guard<Cipher *>(__func__, nullptr, [type]() -> Cipher * {
        switch (type) {
            case VEX_CIPHER_BLOWFISH:
                return new BlowfishCipher;
            case VEX_CIPHER_AES_256_CFB:
                return new AESCipher(type, EVP_aes_256_cfb128(), true);
            case VEX_CIPHER_AES_256_OFB:
                return new AESCipher(type, EVP_aes_256_ofb(), true);
            case VEX_CIPHER_AES_256_CTR:
                return new AESCipher(type, EVP_aes_256_ctr(), false);
            default:
                ErrorA(EINVAL, "Invalid cipher type %d", type);
                errno = EINVAL;
                return nullptr;
        }
    });
}

const char *Cipher::GetCipherDescription(int type) {
    static constexpr const char *kNames[] = {"Blowfish", "AES-256-CFB", "AES-256-OFB",
                                             "AES-256-CTR"};
    return type >= 0 && type <= VEX_CIPHER_AES_256_CTR ? kNames[type] : "Unknown";
}
