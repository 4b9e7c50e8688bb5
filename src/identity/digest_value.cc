// Digests as values: written forms, order, the digest of empty data.
#include <errno.h>

#include <cstring>

#include <vex/digest.h>
#include <vex/log.h>

#include "base/ascii.h"
#include "base/endian.h"
#include "base/hex.h"
#include "identity/digest_family.h"
#include "log/report.h"

using vex::identity::Md5;
using vex::identity::Sha256;

namespace {

/// Reads the digits of a digest; false after reporting the first character that is none.
template <typename Family>
bool readDigits(const char *who, void *digest, const char *text) {
    const size_t good = vex::hexDecode(text, Family::kSize, digest);
    if (good == Family::kTextSize) return true;
    const int place = good % 2 == 0 ? 1 : 2;
    if constexpr (Family::kQuotesInput)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "c%d is a non-digit found. [%.*s]", place,
                           static_cast<int>(Family::kTextSize), text);
    return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "c%d is a non-digit found", place);
}

template <typename Family>
size_t serializedSize(bool binary) {
    return binary ? Family::kSize : Family::kTextSize;
}

template <typename Family>
size_t serialize(const char *who, void *buffer, size_t size, const void *digest, bool binary) {
    const size_t needed = serializedSize<Family>(binary);
    if (buffer == nullptr || digest == nullptr || size < needed)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, size_t{0}, "invalid NULL parameter");
    if (binary) {
        memcpy(buffer, digest, needed);
        return needed;
    }
    char *const text = static_cast<char *>(buffer);
    vex::hexEncode(digest, Family::kSize, text);
    if (size > needed) text[needed] = '\0';
    return needed;
}

template <typename Family>
size_t deserialize(const char *who, void *digest, const void *buffer, size_t size, bool binary) {
    const size_t needed = serializedSize<Family>(binary);
    if (digest == nullptr || buffer == nullptr || size < needed)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, size_t{0}, "invalid NULL parameter");
    if (!binary)
        return readDigits<Family>(who, digest, static_cast<const char *>(buffer)) ? needed : 0;
    memcpy(digest, buffer, needed);
    return needed;
}

/// @p Serialize is the family's public function, which reports what it meets under its own name
/// first.
template <typename Family, auto Serialize>
char *toString(const char *who, const void *digest, char *buffer, size_t size) {
    if (buffer != nullptr && size <= Family::kTextSize)
        return VEX_FAIL_AS(who, ENOBUFS, ENOBUFS, nullptr, "buffer too small for %s",
                           Family::kName);
    if (Serialize(buffer, size, digest, false) == 0)
        return VEX_FAIL_AS(who, errno, errno, nullptr, "failed to serialize %s", Family::kName);
    return buffer;
}

template <typename Family, auto Deserialize>
unsigned char *fromString(const char *who, const char *text, void *digest) {
    if (text == nullptr || digest == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    // a text that ends early shows a NUL where a digit belongs
    char digits[Family::kTextSize] = {};
    memcpy(digits, text, strnlen(text, sizeof digits));
    if (Deserialize(digest, digits, sizeof digits, false) == 0)
        return VEX_FAIL_AS(who, errno, errno, nullptr, "failed to deserialize %s", Family::kName);
    return static_cast<unsigned char *>(digest);
}

template <typename Family>
void *fill(const char *who, void *digest, int byte) {
    if (digest == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    return memset(digest, byte, Family::kSize);
}

/// Adds @p step, 1 or -1, and carries while a byte comes out as @p wrapped.
template <typename Family>
void *count(const char *who, void *digest, int step, unsigned char wrapped) {
    if (digest == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    auto *const bytes = static_cast<unsigned char *>(digest);
    for (size_t i = Family::kSize; i-- > 0;) {
        bytes[i] = static_cast<unsigned char>(bytes[i] + step);
        if (bytes[i] != wrapped) break;
    }
    return digest;
}

template <typename Family>
bool isEmptyText(const char *fp) {
    const char *expected = Family::kEmptyText;
    for (; *expected != '\0'; ++expected, ++fp)
        if (vex::ascii::toLower(*fp) != *expected) return false;
    return *fp == '\0';
}

template <typename Family>
void validateOrExit(const char *who, const char *fp) {
    if (fp == nullptr) ErrorExitA(EINVAL, "%s: invalid NULL parameter", who);
    const size_t length = strlen(fp);
    if (length != Family::kTextSize)
        ErrorExitA(EINVAL, "%s is not a valid FP, it has %u instead of %u characters", fp,
                   static_cast<unsigned>(length), static_cast<unsigned>(Family::kTextSize));
    for (const char *c = fp; *c != '\0'; ++c)
        if (vex::ascii::hexValue(*c) < 0 || vex::ascii::isUpper(*c))
            ErrorExitA(EINVAL, "%s is not a valid FP, %c is not in the range [0-9a-f]", fp, *c);
}

uint32_t hash32(const char *who, const void *digest) {
    if (digest == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, 0U, "invalid NULL parameter");
    return vex::loadBig32(digest);
}

}  // namespace

const unsigned char md5_empty_digest[16] = {0xd4, 0x1d, 0x8c, 0xd9, 0x8f, 0x00, 0xb2, 0x04,
                                            0xe9, 0x80, 0x09, 0x98, 0xec, 0xf8, 0x42, 0x7e};
const unsigned char sha256_empty_digest[32] = {
    0xc6, 0x72, 0xb8, 0xd1, 0xef, 0x56, 0xed, 0x28, 0xab, 0x87, 0xc3, 0x62, 0x2c, 0x51, 0x14, 0x06,
    0x9b, 0xdd, 0x3a, 0xd7, 0xb8, 0xf9, 0x73, 0x74, 0x98, 0xd0, 0xc0, 0x1e, 0xce, 0xf0, 0x96, 0x7a};

size_t MD5DigestSerializedSize(bool binary) {
    return serializedSize<Md5>(binary);
}
size_t SHA256DigestSerializedSize(bool binary) {
    return serializedSize<Sha256>(binary);
}

size_t MD5DigestSerialize(void *buffer, size_t size, const void *digest, bool binary) {
    return serialize<Md5>(__func__, buffer, size, digest, binary);
}
size_t SHA256DigestSerialize(void *buffer, size_t size, const void *digest, bool binary) {
    return serialize<Sha256>(__func__, buffer, size, digest, binary);
}

size_t MD5DigestDeserialize(void *digest, const void *buffer, size_t size, bool binary) {
    return deserialize<Md5>(__func__, digest, buffer, size, binary);
}
size_t SHA256DigestDeserialize(void *digest, const void *buffer, size_t size, bool binary) {
    return deserialize<Sha256>(__func__, digest, buffer, size, binary);
}

char *MD5DigestToString_r(const void *digest, char *buffer, size_t size) {
    return toString<Md5, MD5DigestSerialize>(__func__, digest, buffer, size);
}
char *MD5DigestToString(const void *digest) {
    static char text[Md5::kTextSize + 1];
    return MD5DigestToString_r(digest, text, sizeof text);
}
char *SHA256DigestToString_r(const void *digest, char *buffer, size_t size) {
    return toString<Sha256, SHA256DigestSerialize>(__func__, digest, buffer, size);
}

unsigned char *MD5StringToDigest_r(const char *text, void *digest) {
    return fromString<Md5, MD5DigestDeserialize>(__func__, text, digest);
}
unsigned char *MD5StringToDigest(const char *text) {
    static unsigned char digest[Md5::kSize];
    return MD5StringToDigest_r(text, digest);
}
unsigned char *SHA256StringToDigest_r(const char *text, void *digest) {
    return fromString<Sha256, SHA256DigestDeserialize>(__func__, text, digest);
}
unsigned char *SHA256StringToDigest(const char *text) {
    static unsigned char digest[Sha256::kSize];
    return SHA256StringToDigest_r(text, digest);
}

uint32_t MD5DigestHash32(const void *digest) {
    return hash32(__func__, digest);
}
uint32_t SHA256DigestHash32(const void *digest) {
    return hash32(__func__, digest);
}

void *MD5DigestInitMinimum(void *digest) {
    return fill<Md5>(__func__, digest, 0x00);
}
void *MD5DigestInitMaximum(void *digest) {
    return fill<Md5>(__func__, digest, 0xff);
}
void *SHA256DigestInitMinimum(void *digest) {
    return fill<Sha256>(__func__, digest, 0x00);
}
void *SHA256DigestInitMaximum(void *digest) {
    return fill<Sha256>(__func__, digest, 0xff);
}

void *MD5DigestIncrement(void *digest) {
    return count<Md5>(__func__, digest, 1, 0x00);
}
void *MD5DigestDecrement(void *digest) {
    return count<Md5>(__func__, digest, -1, 0xff);
}
void *SHA256DigestIncrement(void *digest) {
    return count<Sha256>(__func__, digest, 1, 0x00);
}
void *SHA256DigestDecrement(void *digest) {
    return count<Sha256>(__func__, digest, -1, 0xff);
}

const unsigned char *MD5EmptyDigest(void) {
    return md5_empty_digest;
}
const unsigned char *SHA256EmptyDigest(void) {
    return sha256_empty_digest;
}

int MD5IsEmptyDigest(const void *digest) {
    return digest != nullptr && memcmp(digest, md5_empty_digest, Md5::kSize) == 0 ? 1 : 0;
}
int SHA256IsEmptyDigest(const void *digest) {
    return digest != nullptr && memcmp(digest, sha256_empty_digest, Sha256::kSize) == 0 ? 1 : 0;
}

int MD5IsEmptyFP(const char *fp) {
    return fp != nullptr && isEmptyText<Md5>(fp) ? 1 : 0;
}
int SHA256IsEmptyFP(const char *fp) {
    return fp != nullptr && isEmptyText<Sha256>(fp) ? 1 : 0;
}

void MD5ValidateAndExitOnError(const char *fp) {
    validateOrExit<Md5>(__func__, fp);
}
void SHA256ValidateAndExitOnError(const char *fp) {
    validateOrExit<Sha256>(__func__, fp);
}
