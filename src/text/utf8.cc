// UTF-8: its check, and the way to wide characters and back.
#include "text/utf8.h"

#include <errno.h>
#include <stdlib.h>

#include <cstring>

#include <vex/encoding.h>

#include "text/utf8_blocks.h"

using namespace vex::text;

namespace {

thread_local size_t error_offset = 0;

/// How many characters valid UTF-8 holds.
size_t countCharacters(const uint8_t *bytes, size_t length) {
    size_t count = 0;
    for (size_t i = 0; i < length; ++i) count += continues(bytes[i]) ? 0 : 1;
    return count;
}

/// The bytes of a wide character or of a stray byte in its disguise; 0 when it has none.
size_t encodeWide(uint32_t c, char *to) {
    if (c >= kStrayByte + 0x80 && c <= kStrayByte + 0xff)
        return to[0] = static_cast<char>(c - kStrayByte), 1;
    return encodeCharacter(c, to);
}

/// Terminates what was converted; the length, or a failure when input was left.
template <typename Char>
ssize_t finish(Char *out, size_t size, size_t written, bool complete, size_t offset) {
    if (out != nullptr && size > 0) out[written] = Char{};
    if (complete && (out == nullptr || size > 0)) return static_cast<ssize_t>(written);
    return failAt(ENOBUFS, offset);
}

}  // namespace

namespace vex::text {

ssize_t failAt(int err, size_t offset) {
    error_offset = offset;
    errno = err;
    return -1;
}

}  // namespace vex::text

size_t vex_encoding_error_offset() {
    return error_offset;
}

int vex_utf8_valid(const char *text, size_t length) {
    if (text == nullptr && length > 0) return (void)failAt(EINVAL, 0), 0;
    const auto *const bytes = reinterpret_cast<const uint8_t *>(text);
    for (size_t at = checkBlocks(bytes, length); at < length;) {
        if (bytes[at] < 0x80) {
            at += asciiRun(bytes + at, length - at);
            continue;
        }
        uint32_t ignored;
        const size_t used = decodeCharacter(bytes + at, length - at, &ignored);
        if (used == 0) return (void)failAt(EILSEQ, at), 0;
        at += used;
    }
    return 1;
}

ssize_t vex_utf8_to_wcs(const char *text, wchar_t *out, size_t size) {
    if (text == nullptr) return failAt(EINVAL, 0);
    const auto *const bytes = reinterpret_cast<const uint8_t *>(text);
    const size_t length = std::strlen(text);
    const size_t room = out == nullptr ? SIZE_MAX : size > 0 ? size - 1 : 0;
    size_t at = 0, written = 0;
    if (vex_utf8_valid(text, length) != 0) {
        if (out == nullptr) return static_cast<ssize_t>(countCharacters(bytes, length));
        at = widenBlocks(bytes, length, out, room, &written);
    }
    for (; at < length && written < room; ++written) {
        uint32_t character;
        size_t used = decodeCharacter(bytes + at, length - at, &character);
        if (used == 0) character = kStrayByte + bytes[at], used = 1;
        if (out != nullptr) out[written] = static_cast<wchar_t>(character);
        at += used;
    }
    return finish(out, size, written, at == length, at);
}

ssize_t vex_wcs_to_utf8(const wchar_t *text, char *out, size_t size) {
    if (text == nullptr) return failAt(EINVAL, 0);
    const size_t room = out == nullptr ? SIZE_MAX : size > 0 ? size - 1 : 0;
    size_t at = 0, written = 0;
    for (; text[at] != L'\0'; ++at) {
        char bytes[4];
        const size_t length = encodeWide(static_cast<uint32_t>(text[at]), bytes);
        if (length == 0) {
            (void)finish(out, size, written, true, at);
            return failAt(EILSEQ, at);
        }
        if (length > room - written) break;
        if (out != nullptr) std::memcpy(out + written, bytes, length);
        written += length;
    }
    return finish(out, size, written, text[at] == L'\0', at);
}

wchar_t *vex_utf8_to_wcs_malloced(const char *text) {
    const ssize_t length = vex_utf8_to_wcs(text, nullptr, 0);
    if (length < 0) return nullptr;
    const size_t size = static_cast<size_t>(length) + 1;
    auto *const result = static_cast<wchar_t *>(malloc(size * sizeof(wchar_t)));
    if (result != nullptr) (void)vex_utf8_to_wcs(text, result, size);  // measured above
    return result;
}

char *vex_wcs_to_utf8_malloced(const wchar_t *text) {
    const ssize_t length = vex_wcs_to_utf8(text, nullptr, 0);
    if (length < 0) return nullptr;
    const size_t size = static_cast<size_t>(length) + 1;
    auto *const result = static_cast<char *>(malloc(size));
    if (result != nullptr) (void)vex_wcs_to_utf8(text, result, size);  // measured above
    return result;
}
