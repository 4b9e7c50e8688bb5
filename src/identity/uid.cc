#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <climits>

#include <vex/io.h>
#include <vex/random.h>
#include <vex/uid.h>

#include "base/hex.h"
#include "log/report.h"

namespace {

constexpr unsigned kVersion = 1;
constexpr size_t kSize = sizeof(VexUID);
constexpr size_t kTextSize = 2 * kSize;

/// 1 for what counts as version 1, else byte 0 as it stands. Of the variant's two bits only 0x40 is
/// looked at.
unsigned versionOf(const VexUID &uid) {
    const bool random_uuid = uid.bytes[6] >> 4 == 4 && (uid.bytes[8] & 0x40) == 0;
    return random_uuid ? kVersion : uid.bytes[0];
}

bool valid(const VexUID *uid) {
    return uid != nullptr && versionOf(*uid) == kVersion;
}

/// Reads the identifier of a buffer that is long enough; false after reporting a character that is
/// no digit.
bool decode(const char *who, VexUID *uid, const void *buffer, bool binary) {
    if (binary) {
        memcpy(uid, buffer, kSize);
        return true;
    }
    if (vex::hexDecode(static_cast<const char *>(buffer), kSize, uid->bytes) == kTextSize)
        return true;
    return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "input contained invalid character");
}

}  // namespace

size_t VexUIDSize(void) {
    return kSize;
}

VexUID *VexUIDInit(VexUID *uid) {
    if (uid == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    // all of it: what is left of a UUID would still be valid with byte 0 cleared alone
    *uid = VexUID{};
    return uid;
}

VexUID *VexUIDNew(void) {
    auto *uid = static_cast<VexUID *>(malloc(kSize));
    if (uid == nullptr) return VEX_FAIL(ENOMEM, nullptr, "could not allocate memory");
    return VexUIDInit(uid);
}

void VexUIDDelete(VexUID **uid) {
    if (uid == nullptr) return VEX_FAIL(EINVAL, void(), "invalid NULL parameter");
    free(*uid);
    *uid = nullptr;
}

VexUID *VexUIDGenerate(VexUID *uid, unsigned version) {
    if (uid == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (version == 0) return VEX_FAIL(EINVAL, nullptr, "invalid UID");
    if (version != kVersion) return VEX_FAIL(EINVAL, nullptr, "unhandled version case");
    VexUID drawn;
    if (RandomGetBytes(&drawn, kSize) != 0) return nullptr;
    drawn.bytes[0] = kVersion;
    *uid = drawn;
    return uid;
}

unsigned VexUIDVersionGet(const VexUID *uid) {
    if (uid == nullptr) return VEX_FAIL(EINVAL, 0U, "invalid NULL parameter");
    const unsigned version = versionOf(*uid);
    if (version > kVersion) return VEX_FAIL(EINVAL, 0U, "unhandled version case");
    return version;
}

int VexUIDValidate(const VexUID *uid) {
    if (uid == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    const unsigned version = versionOf(*uid);
    if (version == 0) return VEX_FAIL(EINVAL, 0, "invalid UID");
    if (version != kVersion) return VEX_FAIL(EINVAL, 0, "unhandled version case");
    return 1;
}

VexUID *VexUIDInitCopy(VexUID *dest, const VexUID *src) {
    if (dest == nullptr || src == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (!valid(src)) return VEX_FAIL(EINVAL, nullptr, "invalid UID");
    *dest = *src;
    return dest;
}

size_t VexUIDSerializedSize(const VexUID *uid, bool binary) {
    if (!valid(uid)) return VEX_FAIL(EINVAL, size_t{0}, "invalid UID");
    return binary ? kSize : kTextSize;
}

size_t VexUIDSerialize(void *buffer, size_t size, const VexUID *uid, bool binary) {
    if (!valid(uid)) return VEX_FAIL(EINVAL, size_t{0}, "invalid UID");
    const size_t needed = binary ? kSize : kTextSize;
    if (buffer == nullptr || size < needed)
        return VEX_FAIL(EINVAL, size_t{0}, "insufficient buffer");
    if (binary) {
        memcpy(buffer, uid, kSize);
        return needed;
    }
    char *const text = static_cast<char *>(buffer);
    vex::hexEncode(uid->bytes, kSize, text);
    if (size > needed) text[needed] = '\0';
    return needed;
}

size_t VexUIDDeserialize(VexUID *uid, const void *buffer, size_t size, bool binary) {
    if (uid == nullptr || buffer == nullptr || size < 2)
        return VEX_FAIL(EINVAL, size_t{0}, "invalid NULL parameter");
    const size_t needed = binary ? kSize : kTextSize;
    if (size < needed)
        return VEX_FAIL(EINVAL, size_t{0}, "insufficient buffer%s", binary ? " for binary" : "");
    VexUID read;
    if (!decode(__func__, &read, buffer, binary)) return 0;
    const unsigned version = versionOf(read);
    if (version == 0) return VEX_FAIL(EINVAL, size_t{0}, "invalid UID");
    if (version != kVersion) {
        errno = EINVAL;
        return 0;
    }
    *uid = read;
    return needed;
}

VexUID *VexUIDInitFromFile(VexUID *uid, FILE *file, bool binary, size_t *consumed) {
    if (uid == nullptr || file == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    char form[kTextSize];
    const size_t size = binary ? kSize : kTextSize;
    if (safe_fread(form, 1, size, file) != size)
        return VEX_FAIL(feof(file) != 0 ? ENODATA : errno, nullptr, "could not read from file");
    if (VexUIDDeserialize(uid, form, size, binary) == 0) return nullptr;
    if (consumed != nullptr) *consumed = size;
    return uid;
}

// Valid identifiers are all of one version, so that their bytes alone decide.

int VexUIDEqual(const VexUID *a, const VexUID *b) {
    if (!valid(a) || !valid(b)) return VEX_FAIL(EINVAL, -1, "invalid UID");
    return memcmp(a, b, kSize) == 0 ? 1 : 0;
}

int VexUIDCompare(const VexUID *a, const VexUID *b) {
    if (!valid(a) || !valid(b)) return VEX_FAIL(EINVAL, INT_MAX, "invalid UID");
    const int order = memcmp(a, b, kSize);
    return (order > 0) - (order < 0);
}
