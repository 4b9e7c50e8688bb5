// Computing digests. OpenSSL's low-level contexts cost no allocation and no lookup, which counts
// for the short records that are fingerprinted by the million; FIPS mode forbids them, so that EVP
// takes their place there.
#define OPENSSL_SUPPRESS_DEPRECATED

#include <errno.h>
#include <fcntl.h>

#include <cstring>

#include <vex/digest.h>
#include <vex/io.h>
#include <vex/log.h>

#include "base/eintr.h"
#include "base/hex.h"
#include "base/unique_fd.h"
#include "identity/digest_family.h"
#include "log/report.h"

namespace {

using vex::identity::Md5;
using vex::identity::Sha256;

constexpr size_t kChunk = 32768;

// the initial hash value of SHA-512/256; all else is SHA-512
constexpr SHA_LONG64 kSha512_256Start[8] = {
    0x22312194FC2BF72C, 0x9F555FA3C84C64C2, 0x2393B86B6F53B151, 0x963877195940EABD,
    0x96283EE2A88EFFE3, 0xBE5E1E2553863992, 0x2B0199FC2C85B8AA, 0x0EB72DDC81C52CA2};

bool fipsMode() {
    return EVP_default_properties_is_fips_enabled(nullptr) == 1;
}

/// Warns that MD5 is not to be had; false then.
bool md5Allowed(const char *who) {
    if (!fipsMode()) return true;
    WarningA(-1, "%s should not be used in FIPS mode", who);
    return false;
}

bool present(const char *who, const void *context) {
    return context != nullptr || VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
}

void update(SHA256Context *context, const void *data, size_t length) {
    if (context->evp != nullptr)
        EVP_DigestUpdate(context->evp, data, length);
    else if (context->state.md_len != 0)
        SHA512_Update(&context->state, data, length);
}

/// False, after reporting, when FIPS mode offers nothing to compute with.
bool start(SHA256Context *context) {
    context->evp = nullptr;
    if (!fipsMode()) {
        SHA512_Init(&context->state);
        memcpy(context->state.h, kSha512_256Start, sizeof kSha512_256Start);
        return true;
    }
    context->state = SHA512_CTX{};  // without a digest length, so that it never yields one
    context->evp = EVP_MD_CTX_new();
    if (context->evp != nullptr && EVP_DigestInit_ex(context->evp, EVP_sha512_256(), nullptr) == 1)
        return true;
    EVP_MD_CTX_free(context->evp);
    context->evp = nullptr;
    InfoA(-1, "SHA256Initialize: SHA512NULL");
    errno = EIO;
    return false;
}

/// False when nothing can be computed: one digest for all data would be worse than none.
bool hash(const void *data, size_t length, SHA256Context *context) {
    if (!start(context)) return false;
    update(context, data, length);
    SHA256Finalize(context);
    return true;
}

/// Asks for FIPS mode once; the question costs half as much as the digest of a short record.
bool hash(const void *data, size_t length, MD5Context *context) {
    if (!fipsMode()) {
        MD5_Init(&context->state);
        MD5_Update(&context->state, data, length);
        MD5_Final(context->digest, &context->state);
        return true;
    }
    *context = MD5Context{};  // no stack bytes may become a digest
    MD5Initialize(context);
    MD5Append(context, data, 0);
    MD5Finalize(context);
    return true;
}

template <typename Family>
bool fits(const char *who, const void *input, const char *buffer, size_t size) {
    if (input != nullptr && buffer != nullptr && size > Family::kTextSize) return true;
    return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
}

template <typename Family>
char *print(const unsigned char *digest, char *buffer) {
    vex::hexEncode(digest, Family::kSize, buffer);
    buffer[Family::kTextSize] = '\0';
    return buffer;
}

template <typename Family>
char *fromData(const char *who, const void *data, uint64_t length, char *buffer, size_t size) {
    if (!fits<Family>(who, data, buffer, size)) return nullptr;
    typename Family::Context context;
    if (!hash(data, length, &context)) return nullptr;
    return print<Family>(context.digest, buffer);
}

/// Hashes to the end of the file; -1 after a read error.
ssize_t hashFile(int fd, SHA256Context *context) {
    unsigned char chunk[kChunk];
    ssize_t got;
    while ((got = safe_read(fd, chunk, sizeof chunk)) > 0)
        SHA256Append(context, chunk, static_cast<uint32_t>(got));
    const int err = errno;
    SHA256Finalize(context);
    errno = err;
    return got;
}

}  // namespace

void MD5Initialize(MD5Context *context) {
    if (present(__func__, context) && md5Allowed(__func__)) MD5_Init(&context->state);
}

void MD5Append(MD5Context *context, const void *data, uint32_t length) {
    if (!present(__func__, context) || (length > 0 && !present(__func__, data))) return;
    if (md5Allowed(__func__)) MD5_Update(&context->state, data, length);
}

void MD5Finalize(MD5Context *context) {
    if (present(__func__, context) && md5Allowed(__func__))
        MD5_Final(context->digest, &context->state);
}

void SHA256Initialize(SHA256Context *context) {
    if (present(__func__, context)) (void)start(context);  // reported; the digest will be zeros
}

void SHA256Append(SHA256Context *context, const void *data, uint32_t length) {
    if (!present(__func__, context) || (length > 0 && !present(__func__, data))) return;
    update(context, data, length);
}

void SHA256Finalize(SHA256Context *context) {
    if (!present(__func__, context)) return;
    unsigned char digest[EVP_MAX_MD_SIZE] = {};
    if (context->evp != nullptr) {
        EVP_DigestFinal_ex(context->evp, digest, nullptr);
        EVP_MD_CTX_free(context->evp);
        context->evp = nullptr;
    } else if (context->state.md_len != 0) {
        SHA512_Final(digest, &context->state);
    }
    memcpy(context->digest, digest, sizeof context->digest);
}

char *MD5GetString_r(const MD5Context *context, char *buffer, size_t size) {
    return fits<Md5>(__func__, context, buffer, size) ? print<Md5>(context->digest, buffer)
                                                      : nullptr;
}

char *SHA256GetString_r(const SHA256Context *context, char *buffer, size_t size) {
    return fits<Sha256>(__func__, context, buffer, size) ? print<Sha256>(context->digest, buffer)
                                                         : nullptr;
}

char *MD5GetString(const MD5Context *context) {
    static char text[Md5::kTextSize + 1];
    return fits<Md5>(__func__, context, text, sizeof text) ? print<Md5>(context->digest, text)
                                                           : nullptr;
}

char *MD5FromData_r(const void *data, uint64_t length, char *buffer, size_t size) {
    return fromData<Md5>(__func__, data, length, buffer, size);
}

char *MD5FromData(const void *data, uint64_t length) {
    static char text[Md5::kTextSize + 1];
    return fromData<Md5>(__func__, data, length, text, sizeof text);
}

char *SHA256FromData_r(const void *data, uint64_t length, char *buffer, size_t size) {
    return fromData<Sha256>(__func__, data, length, buffer, size);
}

char *SHA256FromData(const void *data, uint64_t length) {
    static char text[Sha256::kTextSize + 1];
    return fromData<Sha256>(__func__, data, length, text, sizeof text);
}

void *MD5DigestFromData_r(const void *data, uint64_t length, void *digest) {
    if (data == nullptr || digest == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    MD5Context context;
    (void)hash(data, length, &context);  // always comes to an end
    return memcpy(digest, context.digest, sizeof context.digest);
}

char *__sha512_256FromFile(int fd, char *buffer, size_t size) {
    vex::UniqueFd file(fd);
    if (!fits<Sha256>(__func__, buffer, buffer, size)) return nullptr;
    SHA256Context context;
    if (!start(&context)) return nullptr;
    if (hashFile(fd, &context) < 0) return VEX_FAIL(errno, nullptr, "file read failed");
    return print<Sha256>(context.digest, buffer);
}

char *SHA256FromFile_r(const char *path, char *buffer, size_t size) {
    if (!fits<Sha256>(__func__, path, buffer, size)) return nullptr;
    const int fd = vex::retryOnEintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); });
    if (fd < 0) return VEX_FAIL(errno, nullptr, "failed to open file %s", path);
    return __sha512_256FromFile(fd, buffer, size);
}

char *SHA256FromFile(const char *path) {
    static char text[Sha256::kTextSize + 1];
    return SHA256FromFile_r(path, text, sizeof text);
}
