// Passwords encrypted under the current key of a key store: "X", the key's index, "0000", then what
// PasswdEncrypt writes.
#include <openssl/crypto.h>
#include <stdio.h>

#include <cerrno>
#include <cstring>

#include <vex/digest.h>
#include <vex/log.h>
#include <vex/password.h>

#include "base/ascii.h"
#include "crypto/key_store.h"
#include "log/report.h"

using vex::crypto::kKeyTextSize;

namespace {

constexpr char kMark = 'X';
constexpr size_t kPrefixLength = 6;
constexpr size_t kTextLimit = 1024;
/// What 495 bytes, the longest password, become: longer than kTextLimit, yet to be read back.
constexpr size_t kLongestEncrypted = kPrefixLength + 2 * (16 + 495);

/// The current key of a store while it is needed.
struct CurrentKey {
    char text[kKeyTextSize] = {};
    unsigned index = 0;

    CurrentKey() = default;
    CurrentKey(const CurrentKey &) = delete;
    CurrentKey &operator=(const CurrentKey &) = delete;
    ~CurrentKey() { OPENSSL_cleanse(text, sizeof text); }
};

/// Names the key by its fingerprint: whoever reads the log can compare keys, not use them.
void warnPlain(const char *who, const CurrentKey &current) {
    char fingerprint[65] = "";
    (void)SHA256FromData_r(current.text, strlen(current.text), fingerprint, sizeof fingerprint);
    fingerprint[8] = '\0';
    WarningA(-1, "%s: key(%s) index(%d) does not encrypted.", who, fingerprint, 0);
}

bool isHex(const char *text) {
    while (vex::ascii::hexValue(*text) >= 0) ++text;
    return *text == '\0';
}

/// True for every key index: such a text is stored ciphertext, which messages may show.
bool looksEncrypted(const char *text) {
    return text[0] == kMark && vex::ascii::hexValue(text[1]) >= 0 &&
           strncmp(text + 2, "0000", 4) == 0 && isHex(text + kPrefixLength);
}

int copyText(const char *who, const char *src, char *dest, unsigned destLength) {
    const size_t size = strlen(src) + 1;
    if (size > destLength)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "dest_len(%u) is too small", destLength);
    memcpy(dest, src, size);
    return 0;
}

template <typename Cryption>
int withKey(const CurrentKey &current, Cryption cryption) {
    VexKey key(current.text);
    const int result = cryption(key);
    OPENSSL_cleanse(&key, sizeof key);
    return result;
}

}  // namespace

bool IsEncrypted(const char *text) {
    if (text == nullptr) return false;
    const size_t length = strlen(text);
    return length > kPrefixLength && length % 2 == 0 &&
           strncmp(text, "X00000", kPrefixLength) == 0 && isHex(text + kPrefixLength);
}

int EncryptPasswdWithKey(const char *keyFile, const char *src, char *dest, unsigned destLength) {
    if (keyFile == nullptr || src == nullptr || dest == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const size_t length = strlen(src);
    if (length > (kTextLimit - 1 - 32) / 2) {
        ErrorA(EINVAL, "the length(%d) of src is too long for %d.", static_cast<int>(length),
               static_cast<int>(kTextLimit));
        errno = EINVAL;
        return -1;
    }
    if (IsEncrypted(src)) {
        WarningA(0, "%s: index(%d), passwd(%s) encrypted already.", __func__, 0, src);
        return copyText(__func__, src, dest, destLength);
    }
    CurrentKey current;
    if (const int code = vex::crypto::currentKey(keyFile, current.text, &current.index); code != 0)
        return VEX_FAIL(errno, code, "can't get authentication key for type(%d).", 0);

    char text[2 * kTextLimit];
    // six characters: the index is one digit
    (void)snprintf(text, sizeof text, "%c%01x%04x", kMark, current.index & 0xf, 0);
    const int result = withKey(current, [&](const VexKey &key) {
        return PasswdEncrypt(key, src, text + kPrefixLength, sizeof text - kPrefixLength);
    });
    if (result != 0) return VEX_FAIL(errno, -1, "can't encrypt passwd for key index(%d).", 0);
    return copyText(__func__, text, dest, destLength);
}

int DecryptPasswdWithKey(const char *keyFile, const char *src, char *dest, unsigned destLength) {
    if (keyFile == nullptr || src == nullptr || dest == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const size_t length = strlen(src);
    if (length >= kTextLimit && (src[0] != kMark || length > kLongestEncrypted)) {
        ErrorA(EINVAL, "the length(%d) of encrypted passwd is over %d.", static_cast<int>(length),
               static_cast<int>(kTextLimit));
        errno = EINVAL;
        return -1;
    }
    CurrentKey current;
    if (const int code = vex::crypto::currentKey(keyFile, current.text, &current.index);
        code != 0) {
        ErrorA(errno, "can't get authentication key for type(%d).", 0);
        return code;
    }
    char prefix[kPrefixLength + 1];
    (void)snprintf(prefix, sizeof prefix, "%c%01X%04X", kMark, current.index & 0xf, 0);  // six, too
    if (src[0] != kMark) {
        warnPlain(__func__, current);
        return copyText(__func__, src, dest, destLength);
    }
    if (strncmp(src, prefix, kPrefixLength) != 0)
        // what is no stored ciphertext may be a password in the clear
        return VEX_FAIL(EINVAL, -1, "wrong encrypted header(%s), src(%s).", prefix,
                        looksEncrypted(src) ? src : "<not shown>");
    const int result = withKey(current, [&](const VexKey &key) {
        return PasswdDecrypt(key, src + kPrefixLength, dest, destLength);
    });
    if (result == 0) return 0;
    ErrorA(errno, "can't decrypt passwd for key index(%d).", 0);
    return -1;
}

int RetrieveAuthKey(char *key, const char *keyFile) {
    if (key == nullptr || keyFile == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    CurrentKey current;
    if (vex::crypto::currentKey(keyFile, current.text, &current.index) != 0) {
        ErrorA(errno, "can't get authentication key for type(%d).", 0);
        return -1;
    }
    memcpy(key, current.text, sizeof current.text);
    return 0;
}
