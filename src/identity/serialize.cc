#include <errno.h>
#include <string.h>

#include <algorithm>
#include <charconv>

#include <vex/io.h>
#include <vex/log.h>
#include <vex/serialize.h>

#include "base/endian.h"
#include "base/hex.h"
#include "log/report.h"

namespace {

// Of a text buffer no more than this is looked at, so that a caller may hand over the rest of a
// file.
constexpr size_t kMostText = 31;
constexpr size_t kMostDigitsInFile = 32;

void store(void *to, uint8_t value) {
    *static_cast<uint8_t *>(to) = value;
}
void store(void *to, uint16_t value) {
    vex::storeBig16(to, value);
}
void store(void *to, uint32_t value) {
    vex::storeBig32(to, value);
}
void store(void *to, uint64_t value) {
    vex::storeBig64(to, value);
}
void load(const void *from, uint8_t *value) {
    *value = *static_cast<const uint8_t *>(from);
}
void load(const void *from, uint16_t *value) {
    *value = vex::loadBig16(from);
}
void load(const void *from, uint32_t *value) {
    *value = vex::loadBig32(from);
}
void load(const void *from, uint64_t *value) {
    *value = vex::loadBig64(from);
}

size_t countDigits(uint64_t value) {
    size_t digits = 1;
    for (; value >= 10; value /= 10) ++digits;
    return digits;
}

template <typename Number>
size_t serializedSize(Number value, bool binary) {
    return binary ? sizeof value : countDigits(value);
}

/// A buffer that the form does not fit. Which widths report that differs between the two forms, and
/// callers' logs rely on it.
size_t tooShort(const char *who, bool reported) {
    errno = ENOBUFS;
    return !reported ? 0
                     : VEX_FAIL_AS(who, ENOBUFS, ENOBUFS, size_t{0},
                                   "incompatible bufsize and value size");
}

template <typename Number>
size_t serialize(const char *who, void *buffer, size_t size, Number value, bool binary) {
    if (buffer == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, size_t{0}, "invalid NULL parameter");
    if (binary) {
        if (size < sizeof value) return tooShort(who, sizeof value == 1);
        store(buffer, value);
        return sizeof value;
    }
    char *const text = static_cast<char *>(buffer), *const limit = text + size;
    const auto printed = std::to_chars(text, limit, value);
    if (printed.ec != std::errc()) {
        if (size > 0) *text = '\0';
        return tooShort(who, sizeof value > 1);
    }
    if (printed.ptr < limit) *printed.ptr = '\0';
    return static_cast<size_t>(printed.ptr - text);
}

/// The number at the head of a text; nullptr after reporting why there is none, else the end of its
/// digits.
template <typename Number>
const char *parseText(const char *who, const char *text, size_t size, Number *value) {
    uint64_t number = 0;
    const auto parsed = std::from_chars(text, text + std::min(size, kMostText), number);
    if (parsed.ec == std::errc::result_out_of_range)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr,
                           "had an error occur during vex_strtoull: %s", strerrordesc_np(ERANGE));
    if (parsed.ec != std::errc())
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "expected ptr and _buf to be equal");
    *value = static_cast<Number>(number);
    if (*value != number)
        return VEX_FAIL_AS(who, ERANGE, ERANGE, nullptr,
                           "value is too large to be expressed as a uint8_t: %lu", number);
    return parsed.ptr;
}

template <typename Number>
Number *deserialize(const char *who, Number *value, const void *buffer, size_t size, bool binary,
                    size_t *consumed) {
    if (value == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL pvalue");
    *value = 0;
    if (buffer == nullptr || size == 0)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "%s",
                           sizeof *value == 1 ? "invalid NULL buf or 0 buf size"
                                              : "invalid NULL buffer or empty buffer");
    size_t used = sizeof *value;
    if (binary) {
        if (size < used)
            return VEX_FAIL_AS(who, ENOBUFS, ENOBUFS, nullptr,
                               "incompatible bufsize and value size");
        load(buffer, value);
    } else {
        const char *const text = static_cast<const char *>(buffer);
        Number number = 0;
        const char *const end = parseText(who, text, size, &number);
        if (end == nullptr) return nullptr;
        *value = number;
        used = static_cast<size_t>(end - text);
    }
    if (consumed != nullptr) *consumed = used;
    return value;
}

/// Reads what deserialize() needs; false after reporting.
bool readForm(const char *who, FILE *file, size_t width, bool binary, char *form, size_t *size) {
    *size = width;
    if (binary ? safe_fread(form, 1, width, file) == width
               : fread_uint(file, form, kMostDigitsInFile, size) != nullptr)
        return true;
    const int err = feof(file) != 0 ? ENODATA : errno;
    errno = err;
    ErrorA(err, "%s (%u): unable to read file: %m", who, static_cast<unsigned>(__LINE__));
    errno = err;
    return false;
}

using Names = const char *const[2];  // the function itself, and the deserialiser it ends in

template <typename Number>
Number *fromFile(Names &who, Number *value, FILE *file, bool binary, size_t *consumed) {
    if (value == nullptr)
        return VEX_FAIL_AS(who[0], EINVAL, EINVAL, nullptr, "invalid NULL pvalue");
    *value = 0;
    if (file == nullptr) return VEX_FAIL_AS(who[0], EINVAL, EINVAL, nullptr, "invalid NULL file");
    char form[kMostDigitsInFile];
    size_t size = 0;
    if (!readForm(who[0], file, sizeof *value, binary, form, &size)) return nullptr;
    return deserialize(who[1], value, form, size, binary, consumed);
}

constexpr char kNoText[] = "invalid binary value -- not tested";

}  // namespace

size_t VexUint8SerializedSize(uint8_t value, bool binary) {
    return serializedSize(value, binary);
}
size_t VexUint16SerializedSize(uint16_t value, bool binary) {
    return serializedSize(value, binary);
}
size_t VexUint32SerializedSize(uint32_t value, bool binary) {
    return serializedSize(value, binary);
}
size_t VexUint64SerializedSize(uint64_t value, bool binary) {
    return serializedSize(value, binary);
}

size_t VexUint8Serialize(void *buffer, size_t size, uint8_t value, bool binary) {
    return serialize(__func__, buffer, size, value, binary);
}
size_t VexUint16Serialize(void *buffer, size_t size, uint16_t value, bool binary) {
    if (!binary) return VEX_FAIL(EINVAL, size_t{0}, "%s", kNoText);
    return serialize(__func__, buffer, size, value, binary);
}
size_t VexUint32Serialize(void *buffer, size_t size, uint32_t value, bool binary) {
    return serialize(__func__, buffer, size, value, binary);
}
size_t VexUint64Serialize(void *buffer, size_t size, uint64_t value, bool binary) {
    return serialize(__func__, buffer, size, value, binary);
}

uint8_t *VexUint8InitDeserialize(uint8_t *value, const void *buffer, size_t size, bool binary,
                                 size_t *consumed) {
    return deserialize(__func__, value, buffer, size, binary, consumed);
}
uint16_t *VexUint16InitDeserialize(uint16_t *value, const void *buffer, size_t size, bool binary,
                                   size_t *consumed) {
    if (!binary && value != nullptr) {
        *value = 0;
        return VEX_FAIL(EINVAL, nullptr, "%s", kNoText);
    }
    return deserialize(__func__, value, buffer, size, binary, consumed);
}
uint32_t *VexUint32InitDeserialize(uint32_t *value, const void *buffer, size_t size, bool binary,
                                   size_t *consumed) {
    return deserialize(__func__, value, buffer, size, binary, consumed);
}
uint64_t *VexUint64InitDeserialize(uint64_t *value, const void *buffer, size_t size, bool binary,
                                   size_t *consumed) {
    return deserialize(__func__, value, buffer, size, binary, consumed);
}

uint8_t *VexUint8InitFromFile(uint8_t *value, FILE *file, bool binary, size_t *consumed) {
    static Names kWho = {"VexUint8InitFromFile", "VexUint8InitDeserialize"};
    return fromFile(kWho, value, file, binary, consumed);
}
uint32_t *VexUint32InitFromFile(uint32_t *value, FILE *file, bool binary, size_t *consumed) {
    static Names kWho = {"VexUint32InitFromFile", "VexUint32InitDeserialize"};
    return fromFile(kWho, value, file, binary, consumed);
}
uint64_t *VexUint64InitFromFile(uint64_t *value, FILE *file, bool binary, size_t *consumed) {
    static Names kWho = {"VexUint64InitFromFile", "VexUint64InitDeserialize"};
    return fromFile(kWho, value, file, binary, consumed);
}

size_t VexBufToSerialize(char *out, size_t outSize, const void *in, size_t inSize) {
    if (out == nullptr || in == nullptr || inSize == 0 || outSize / 2 < inSize)
        return VEX_FAIL(EINVAL, size_t{0}, "invalid NULL parameter or bufsize too small");
    vex::hexEncode(in, inSize, out);
    if (outSize > 2 * inSize) out[2 * inSize] = '\0';
    return 2 * inSize;
}

size_t VexBufToDeserialize(void *out, size_t outSize, const char *in, size_t inSize) {
    if (out == nullptr || in == nullptr || inSize < 2 || outSize < inSize / 2)
        return VEX_FAIL(EINVAL, size_t{0}, "invalid NULL parameter or bufsize too small");
    const size_t size = inSize / 2, good = vex::hexDecode(in, size, out);
    if (good == 2 * size) return size;
    return VEX_FAIL(EINVAL, size_t{0}, "c%d is a non-digit found", good % 2 == 0 ? 1 : 2);
}
