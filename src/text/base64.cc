#include <errno.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>

#include <vex/encoding.h>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kNoDigit = 0xff;

constexpr std::array<uint8_t, 256> makeValues() {
    std::array<uint8_t, 256> values{};
    for (auto &value : values) value = kNoDigit;
    for (uint8_t i = 0; i < 64; ++i) values[static_cast<uint8_t>(kAlphabet[i])] = i;
    return values;
}
constexpr auto kValues = makeValues();

int failWith(int err) {
    errno = err;
    return -1;
}

/// The four characters of up to three bytes; missing bytes become padding.
void encodeGroup(const uint8_t *from, size_t bytes, char *to) {
    const uint32_t group = static_cast<uint32_t>(from[0]) << 16 |
                           (bytes > 1 ? static_cast<uint32_t>(from[1]) << 8 : 0U) |
                           (bytes > 2 ? static_cast<uint32_t>(from[2]) : 0U);
    to[0] = kAlphabet[group >> 18];
    to[1] = kAlphabet[group >> 12 & 63];
    to[2] = bytes > 1 ? kAlphabet[group >> 6 & 63] : '=';
    to[3] = bytes > 2 ? kAlphabet[group & 63] : '=';
}

/// The bytes of four characters, of which the last @p padding are taken as zero; false for a
/// character outside the alphabet and for bits that no byte takes up.
bool decodeGroup(const char *from, size_t padding, uint8_t *to) {
    uint32_t group = 0;
    for (size_t i = 0; i < 4; ++i) {
        const uint8_t value = i < 4 - padding ? kValues[static_cast<uint8_t>(from[i])] : uint8_t{0};
        if (value == kNoDigit) return false;
        group = group << 6 | value;
    }
    if ((group & ((1U << (8 * padding)) - 1)) != 0) return false;
    for (size_t i = 0; i < 3 - padding; ++i) to[i] = static_cast<uint8_t>(group >> (16 - 8 * i));
    return true;
}

}  // namespace

int Base64Encode(const void *src, unsigned length, char *dest, unsigned dest_length) {
    if ((src == nullptr && length > 0) || dest == nullptr) return failWith(EINVAL);
    const uint64_t text_length = (uint64_t{length} + 2) / 3 * 4;
    if (text_length > INT_MAX) return failWith(ERANGE);
    if (text_length >= dest_length) return failWith(ENOBUFS);
    const auto *from = static_cast<const uint8_t *>(src);
    for (size_t left = length; left > 0; dest += 4) {
        const size_t bytes = left < 3 ? left : 3;
        encodeGroup(from, bytes, dest);
        from += bytes;
        left -= bytes;
    }
    *dest = '\0';
    return static_cast<int>(text_length);
}

int Base64Decode(const char *src, void *dest, unsigned dest_length) {
    if (src == nullptr || (dest == nullptr && dest_length > 0)) return failWith(EINVAL);
    const size_t text_length = std::strlen(src);
    if (text_length % 4 != 0) return failWith(EINVAL);
    if (text_length == 0) return 0;
    const size_t padding = src[text_length - 1] != '=' ? 0 : src[text_length - 2] != '=' ? 1 : 2;
    const size_t size = text_length / 4 * 3 - padding;
    if (size > INT_MAX) return failWith(ERANGE);
    if (size > dest_length) return failWith(ENOBUFS);
    auto *to = static_cast<uint8_t *>(dest);
    for (size_t at = 0; at < text_length; at += 4, to += 3) {
        const bool last = at + 4 == text_length;
        if (!decodeGroup(src + at, last ? padding : 0, to)) return failWith(EINVAL);
    }
    return static_cast<int>(size);
}
