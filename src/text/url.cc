#include <errno.h>

#include <cstring>

#include <vex/encoding.h>

#include "base/ascii.h"
#include "text/utf8.h"

using vex::text::failAt;

namespace {

bool unreserved(char c) {
    return vex::ascii::isAlpha(c) || vex::ascii::isDigit(c) ||
           (c != '\0' && std::strchr("-._~", c) != nullptr);
}

/// The byte behind a '%'; -1 when no two digits stand there or they give a NUL.
int escapedByte(const char *digits) {
    const int high = vex::ascii::hexValue(digits[0]);
    const int low = high < 0 ? -1 : vex::ascii::hexValue(digits[1]);
    return low < 0 || (high | low) == 0 ? -1 : high << 4 | low;
}

}  // namespace

ssize_t UrlEncode(const char *src, char *dest, size_t size) {
    if (src == nullptr || dest == nullptr || size == 0) return failAt(EINVAL, 0);
    size_t written = 0;
    const char *from = src;
    for (; *from != '\0'; ++from) {
        const size_t length = unreserved(*from) ? 1 : 3;
        if (length >= size - written) break;
        dest[written] = *from;
        if (length == 3) {
            const auto byte = static_cast<unsigned char>(*from);
            dest[written] = '%';
            dest[written + 1] = "0123456789ABCDEF"[byte >> 4];
            dest[written + 2] = "0123456789ABCDEF"[byte & 15];
        }
        written += length;
    }
    dest[written] = '\0';
    if (*from == '\0') return static_cast<ssize_t>(written);
    return failAt(ENOBUFS, static_cast<size_t>(from - src));
}

ssize_t UrlDecode(const char *src, char *dest, size_t size) {
    if (src == nullptr || dest == nullptr || size == 0) return failAt(EINVAL, 0);
    size_t written = 0;
    const char *from = src;
    int err = 0;
    while (*from != '\0' && err == 0) {
        const bool escaped = *from == '%';
        const int byte = escaped ? escapedByte(from + 1) : static_cast<unsigned char>(*from);
        if (byte < 0) {
            err = EINVAL;
        } else if (written + 1 >= size) {
            err = ENOBUFS;
        } else {
            dest[written++] = static_cast<char>(byte);
            from += escaped ? 3 : 1;
        }
    }
    dest[written] = '\0';
    return err == 0 ? static_cast<ssize_t>(written) : failAt(err, static_cast<size_t>(from - src));
}
