// The key store: a text file of random keys, one of them the current one, and a checksum file
// beside it.
#ifndef VEX_CRYPTO_KEY_STORE_H
#define VEX_CRYPTO_KEY_STORE_H

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vex::crypto {

/// What one hexadecimal digit can name; writers stop at VEX_KEY_STORE_MOST_KEYS.
constexpr unsigned kMostKeys = 16;
constexpr unsigned kKeyWords = 8;
/// Digits of a key text and the terminator.
constexpr size_t kKeyTextSize = kKeyWords * 8 + 1;

/// A store in memory, wiped at the end.
struct KeyStore {
    uint32_t count = 0;
    uint32_t index = 0;
    uint32_t keys[kMostKeys][kKeyWords] = {};

    KeyStore() = default;
    KeyStore(const KeyStore &) = delete;
    KeyStore &operator=(const KeyStore &) = delete;
    ~KeyStore() { OPENSSL_cleanse(this, sizeof *this); }
};

/// The content of a key file, wiped at the end. The largest one takes 2460 bytes.
struct KeyFileText {
    char bytes[4096];
    size_t size = 0;

    KeyFileText() = default;
    KeyFileText(const KeyFileText &) = delete;
    KeyFileText &operator=(const KeyFileText &) = delete;
    ~KeyFileText() { OPENSSL_cleanse(this, sizeof *this); }
    std::string_view view() const { return {bytes, size}; }
};

std::string checksumFileOf(const char *key_file);
/// CRC-32 as in zlib and ISO 3309.
uint32_t checksumOf(std::string_view text);

/// Reads and checks a store. 0; a VEX_KEY_STORE_ code after one error line; -1 without memory.
/// @p crc receives the checksum of the key file.
int readKeyStore(const char *key_file, KeyStore *store, uint32_t *crc);

/// readKeyStore, for the text of the current key and its index.
int currentKey(const char *key_file, char (&text)[kKeyTextSize], unsigned *index);

}  // namespace vex::crypto

#endif
