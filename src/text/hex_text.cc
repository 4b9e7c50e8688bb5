#include <errno.h>

#include <climits>
#include <cstring>

#include <vex/encoding.h>

#include "base/hex.h"

namespace {

int failWith(int err) {
    errno = err;
    return -1;
}

}  // namespace

int HexEncode(const void *src, unsigned length, char *dest, unsigned dest_length) {
    if ((src == nullptr && length > 0) || dest == nullptr) return failWith(EINVAL);
    const size_t text_length = 2 * size_t{length};
    if (text_length > INT_MAX) return failWith(ERANGE);
    if (text_length >= dest_length) return failWith(ENOBUFS);
    vex::hexEncode(src, length, dest);
    dest[text_length] = '\0';
    return static_cast<int>(text_length);
}

int HexDecode(const char *src, void *dest, unsigned dest_length) {
    if (src == nullptr || (dest == nullptr && dest_length > 0)) return failWith(EINVAL);
    const size_t text_length = std::strlen(src), size = text_length / 2;
    if (text_length % 2 != 0) return failWith(EINVAL);
    if (size > INT_MAX) return failWith(ERANGE);
    if (size > dest_length) return failWith(ENOBUFS);
    if (vex::hexDecode(src, size, dest) != text_length) return failWith(EINVAL);
    return static_cast<int>(size);
}
