// Bounded copies, escapes and unsigned numbers.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <vex/text.h>

#include "base/ascii.h"
#include "log/report.h"

namespace {

template <typename Char>
using Traits = std::char_traits<Char>;

/// The length of a text, but no more than @p most.
template <typename Char>
size_t boundedLength(const Char *text, size_t most) {
    const Char *const end = Traits<Char>::find(text, most, Char{});
    return end == nullptr ? most : static_cast<size_t>(end - text);
}

/// Copies what fits; the length, or -1 with ENOBUFS when that is not all.
template <typename Char>
ssize_t copyBounded(Char *dst, size_t room, const Char *src) {
    const size_t length = Traits<Char>::length(src);
    const bool fits = length < room;
    const size_t copied = fits ? length : room - 1;
    Traits<Char>::copy(dst, src, copied);
    dst[copied] = Char{};
    if (fits) return static_cast<ssize_t>(length);
    errno = ENOBUFS;
    return -1;
}

template <typename Char>
ssize_t copy(const char *who, Char *dst, size_t size, const Char *src) {
    if (dst == nullptr || src == nullptr || size == 0)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    return copyBounded(dst, size, src);
}

template <typename Char>
ssize_t append(const char *who, Char *dst, size_t size, const Char *src) {
    if (dst == nullptr || src == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    const size_t head = boundedLength(dst, size);
    if (head == size)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "text is not terminated inside its buffer");
    const ssize_t added = copyBounded(dst + head, size - head, src);
    return added < 0 ? -1 : static_cast<ssize_t>(head) + added;
}

/// The letter behind the backslash of an escaped character, or NUL.
char escapeOf(char c) {
    switch (c) {
        case '\n':
            return 'n';
        case '\t':
            return 't';
        case '\r':
            return 'r';
        case '"':
        case '\\':
            return c;
        default:
            return '\0';
    }
}

}  // namespace

ssize_t vex_strcpy(char *dst, size_t size, const char *src) {
    return copy(__func__, dst, size, src);
}

ssize_t vex_strcat(char *dst, size_t size, const char *src) {
    return append(__func__, dst, size, src);
}

ssize_t vex_wcscpy(wchar_t *dst, size_t size, const wchar_t *src) {
    return copy(__func__, dst, size, src);
}

ssize_t vex_wcscat(wchar_t *dst, size_t size, const wchar_t *src) {
    return append(__func__, dst, size, src);
}

char *strcpy_esc(char *dst, size_t size, const char *src) {
    if (dst == nullptr || src == nullptr || size == 0)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    const char *const last = dst + size - 1;
    char *to = dst;
    for (; *src != '\0'; ++src) {
        const char escape = escapeOf(*src);
        if (last - to < (escape != '\0' ? 2 : 1)) break;
        if (escape != '\0') *to++ = '\\';
        *to++ = escape != '\0' ? escape : *src;
    }
    *to = '\0';
    if (*src == '\0') return dst;
    errno = ENOBUFS;
    return nullptr;
}

unsigned long long vex_strtoull(const char *text, char **end, int base) {
    if (end != nullptr) *end = const_cast<char *>(text);
    if (text == nullptr) return VEX_FAIL(EINVAL, 0ULL, "invalid NULL parameter");
    const char *first = text;
    while (vex::ascii::isSpace(*first)) ++first;
    if (*first == '+' || *first == '-') {
        errno = EINVAL;
        return 0;
    }
    errno = 0;
    return strtoull(text, end, base);
}
