#include <errno.h>
#include <iconv.h>
#include <langinfo.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>

#include <vex/encoding.h>

#include "base/unique_ptr.h"

namespace {

// A byte that belongs to no character travels through wide text as this plus its value.
constexpr uint32_t kStrayByte = 0xdc00;
constexpr uint32_t kLastCharacter = 0x10ffff;

ssize_t failWith(int err) {
    errno = err;
    return -1;
}

/// The length of the well-formed character at the head of @p left bytes, and its number; 0 when
/// there is none.
size_t decodeCharacter(const uint8_t *at, size_t left, uint32_t *character) {
    const uint8_t lead = at[0];
    if (lead < 0x80) return *character = lead, 1;
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || length > left) return 0;
    uint32_t value = lead & (0xffU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((at[i] & 0xc0) != 0x80) return 0;
        value = value << 6 | (at[i] & 0x3fU);
    }
    static constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800,
                                          0x10000};  // below this the form is overlong
    if (value < kLeast[length] || value > kLastCharacter || (value >= 0xd800 && value <= 0xdfff))
        return 0;
    *character = value;
    return length;
}

/// The bytes of a wide character; 0 when it has none.
size_t encodeCharacter(uint32_t c, char *to) {
    if (c < 0x80) return to[0] = static_cast<char>(c), 1;
    if (c >= kStrayByte + 0x80 && c <= kStrayByte + 0xff)
        return to[0] = static_cast<char>(c - kStrayByte), 1;
    if (c > kLastCharacter || (c >= 0xd800 && c <= 0xdfff)) return 0;
    const size_t length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (size_t i = length - 1; i > 0; --i, c >>= 6) to[i] = static_cast<char>(0x80 | (c & 0x3f));
    to[0] = static_cast<char>((0xf00U >> length & 0xf0U) | c);
    return length;
}

/// The text in UTF-8 as the locale's character set reads it, or nullptr with errno.
vex::UniqueMalloc<char> convertFromLocale(const char *text) {
    // every character takes at most four bytes, and no charset has more characters than bytes
    const size_t size = std::strlen(text);
    vex::UniqueMalloc<char> result(static_cast<char *>(malloc(4 * size + 1)));
    if (!result) return nullptr;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the header asks for a locale that does not change
    const iconv_t converter = iconv_open("UTF-8", nl_langinfo(CODESET));
    // NOLINTNEXTLINE(performance-no-int-to-ptr): how iconv tells a failure
    if (converter == reinterpret_cast<iconv_t>(-1)) return nullptr;
    char *in = const_cast<char *>(text), *out = result.get();
    size_t in_left = size, out_left = 4 * size;
    const bool failed =
        iconv(converter, &in, &in_left, &out, &out_left) == static_cast<size_t>(-1) ||
        iconv(converter, nullptr, nullptr, &out, &out_left) == static_cast<size_t>(-1);
    (void)iconv_close(converter);  // closing a good converter cannot fail
    if (failed) {
        errno = EILSEQ;
        return nullptr;
    }
    *out = '\0';
    return result;
}

}  // namespace

int vex_utf8_valid(const char *text, size_t length) {
    if (length == 0) return 1;
    if (text == nullptr) return errno = EINVAL, 0;
    const auto *at = reinterpret_cast<const uint8_t *>(text);
    while (length > 0) {
        uint32_t ignored;
        const size_t used = decodeCharacter(at, length, &ignored);
        if (used == 0) return 0;
        at += used;
        length -= used;
    }
    return 1;
}

ssize_t vex_utf8_to_wcs(const char *text, wchar_t *out, size_t size) {
    if (text == nullptr) return failWith(EINVAL);
    const auto *at = reinterpret_cast<const uint8_t *>(text);
    size_t left = std::strlen(text), written = 0;
    while (left > 0) {
        uint32_t character = kStrayByte + *at;
        const size_t well_formed = decodeCharacter(at, left, &character);
        const size_t used = well_formed > 0 ? well_formed : 1;
        if (out != nullptr && written + 1 >= size) break;
        if (out != nullptr) out[written] = static_cast<wchar_t>(character);
        ++written;
        at += used;
        left -= used;
    }
    if (out != nullptr && size > 0) out[written] = L'\0';
    if (left > 0 || (out != nullptr && size == 0)) return failWith(ENOBUFS);
    return static_cast<ssize_t>(written);
}

ssize_t vex_wcs_to_utf8(const wchar_t *text, char *out, size_t size) {
    if (text == nullptr) return failWith(EINVAL);
    size_t written = 0;
    int err = out != nullptr && size == 0 ? ENOBUFS : 0;
    for (; *text != L'\0' && err == 0; ++text) {
        char bytes[4];
        const size_t length = encodeCharacter(static_cast<uint32_t>(*text), bytes);
        if (length == 0) {
            err = EILSEQ;
        } else if (out != nullptr && length >= size - written) {
            err = ENOBUFS;
        } else {
            if (out != nullptr) std::memcpy(out + written, bytes, length);
            written += length;
        }
    }
    if (out != nullptr && size > 0) out[written] = '\0';
    return err != 0 ? failWith(err) : static_cast<ssize_t>(written);
}

char *vex_wcs_to_utf8_malloced(const wchar_t *text) {
    const ssize_t length = vex_wcs_to_utf8(text, nullptr, 0);
    if (length < 0) return nullptr;
    const size_t size = static_cast<size_t>(length) + 1;
    auto *result = static_cast<char *>(malloc(size));
    if (result != nullptr) (void)vex_wcs_to_utf8(text, result, size);  // measured above
    return result;
}

char *strtoutf8_malloced(const char *text) {
    if (text == nullptr) return errno = EINVAL, nullptr;
    if (vex_utf8_valid(text, std::strlen(text)) != 0) return strdup(text);
    return convertFromLocale(text).release();
}
