#include <openssl/crypto.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <vex/cipher.h>
#include <vex/encoding.h>
#include <vex/password.h>

#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

constexpr size_t kIvSize = 16;

}  // namespace

int PasswdEncrypt(const VexKey &key, const char *plain, char *dest, unsigned destLength) {
    if (plain == nullptr || dest == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const std::unique_ptr<Cipher> cipher(Cipher::NewCipher(VEX_CIPHER_AES_256_CTR));
    if (!cipher) return VEX_FAIL(errno, -1, "new encryption context failed");
    const size_t length = strlen(plain), size = kIvSize + length;
    if (destLength < 2 * size + 1)
        return VEX_FAIL(EINVAL, -1, "dest_len(%u) is too small", destLength);

    const vex::UniqueMalloc<unsigned char> bytes(static_cast<unsigned char *>(malloc(size)));
    if (!bytes) return VEX_FAIL(ENOMEM, -1, "could not allocate memory");
    unsigned char *const iv = bytes.get();
    if (cipher->makeIv(iv) != 0) return -1;
    if (cipher->Init(0, key, iv) != 1)
        return VEX_FAIL(errno, -1, "initializing encryption context failed");
    if (cipher->Encrypt(plain, static_cast<int>(length), true, iv + kIvSize, nullptr) < 0 ||
        HexEncode(iv, static_cast<unsigned>(size), dest, destLength) < 0)
        return VEX_FAIL(errno, -1, "encryption failed");
    return 0;
}

int PasswdDecrypt(const VexKey &key, const char *hex, char *dest, unsigned destLength) {
    if (hex == nullptr || dest == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const size_t digits = strlen(hex), size = digits / 2;
    if (digits % 2 != 0 || digits < 2 * kIvSize)
        return VEX_FAIL(EINVAL, -1, "wrong input length(%u)", static_cast<unsigned>(digits));
    if (digits > destLength) return VEX_FAIL(EINVAL, -1, "dest_len(%u) is too small", destLength);
    const std::unique_ptr<Cipher> cipher(Cipher::NewCipher(VEX_CIPHER_AES_256_CTR));
    if (!cipher) return VEX_FAIL(errno, -1, "new decryption context failed");

    const vex::UniqueMalloc<unsigned char> bytes(static_cast<unsigned char *>(malloc(size)));
    if (!bytes) return VEX_FAIL(ENOMEM, -1, "could not allocate memory");
    unsigned char *const iv = bytes.get();
    if (HexDecode(hex, iv, static_cast<unsigned>(size)) < 0)
        return VEX_FAIL(errno, -1, "decryption failed");
    if (cipher->Init(1, key, iv) != 1)
        return VEX_FAIL(errno, -1, "initializing decryption context failed");
    const int length =
        cipher->Decrypt(iv + kIvSize, static_cast<int>(size - kIvSize), true, dest, nullptr);
    if (length < 0) return VEX_FAIL(errno, -1, "decryption failed");
    dest[length] = '\0';
    return 0;
}
