// Conversions between UTF-8 and other character sets: ISO 8859-1 and ASCII by hand, all others by
// the C library.
#include <errno.h>
#include <iconv.h>
#include <langinfo.h>
#include <stdlib.h>

#include <climits>
#include <cstring>

#include <vex/encoding.h>

#include "base/unique_ptr.h"
#include "text/utf8.h"

using namespace vex::text;

namespace {

/// A conversion that the C library opened; empty with errno EINVAL for a name that it does not
/// know.
class Converter {
public:
    Converter(const char *from, const char *to) : handle_(iconv_open(to, from)) {}
    ~Converter() {
        if (good()) (void)iconv_close(handle_);  // closing a good converter cannot fail
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    // NOLINTNEXTLINE(performance-no-int-to-ptr): how iconv tells a failure
    bool good() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

    /// Converts all of @p in and the way back to the initial shift state; the bytes written, or -1
    /// with EILSEQ or ENOBUFS and the place.
    ssize_t run(const char *in, size_t n, char *out, size_t size) {
        char *from = const_cast<char *>(in), *to = out;
        size_t left = n, room = size;
        if (iconv(handle_, &from, &left, &to, &room) == kFailed ||
            iconv(handle_, nullptr, nullptr, &to, &room) == kFailed)
            return failAt(errno == E2BIG ? ENOBUFS : EILSEQ, n - left);
        return to - out;
    }

private:
    static constexpr size_t kFailed = static_cast<size_t>(-1);
    iconv_t handle_;
};

/// Converts UTF-8 into one byte a character; @p toByte gives the byte, or -1 for none.
template <typename ToByte>
ssize_t toBytes(const char *utf8, char *out, size_t size, ToByte toByte) {
    if (utf8 == nullptr || out == nullptr || size == 0) return failAt(EINVAL, 0);
    const auto *const bytes = reinterpret_cast<const uint8_t *>(utf8);
    const size_t length = std::strlen(utf8);
    size_t at = 0, written = 0;
    int err = 0;
    while (at < length && err == 0) {
        uint32_t character = 0;
        const size_t used = decodeCharacter(bytes + at, length - at, &character);
        const int byte = used == 0 ? -1 : toByte(character);
        if (byte < 0) {
            err = EILSEQ;
        } else if (written + 1 >= size) {
            err = ENOBUFS;
        } else {
            out[written++] = static_cast<char>(byte);
            at += used;
        }
    }
    out[written] = '\0';
    return err != 0 ? failAt(err, at) : static_cast<ssize_t>(written);
}

}  // namespace

ssize_t vex_utf8_to_latin1(const char *utf8, char *out, size_t size) {
    return toBytes(utf8, out, size,
                   [](uint32_t c) { return c <= 0xff ? static_cast<int>(c) : -1; });
}

ssize_t vex_to_7bit(const char *utf8, char *out, size_t size) {
    return toBytes(utf8, out, size,
                   [](uint32_t c) { return c < 0x80 ? static_cast<int>(c) : '?'; });
}

ssize_t vex_latin1_to_utf8(const char *latin1, char *out, size_t size) {
    if (latin1 == nullptr || out == nullptr || size == 0) return failAt(EINVAL, 0);
    size_t at = 0, written = 0;
    for (; latin1[at] != '\0'; ++at) {
        char bytes[4];
        const size_t length = encodeCharacter(static_cast<uint8_t>(latin1[at]), bytes);
        if (length >= size - written) break;
        std::memcpy(out + written, bytes, length);
        written += length;
    }
    out[written] = '\0';
    return latin1[at] == '\0' ? static_cast<ssize_t>(written) : failAt(ENOBUFS, at);
}

ssize_t vex_iconv(const char *from, const char *to, const char *in, size_t n, char *out,
                  size_t size) {
    if (from == nullptr || to == nullptr || (in == nullptr && n > 0) || out == nullptr)
        return failAt(EINVAL, 0);
    Converter converter(from, to);
    return converter.good() ? converter.run(in, n, out, size) : failAt(errno, 0);
}

char *strtoutf8_malloced(const char *text) {
    if (text == nullptr) return (void)failAt(EINVAL, 0), nullptr;
    const size_t length = std::strlen(text);
    if (vex_utf8_valid(text, length) != 0) return strdup(text);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the header asks for a locale that does not change
    Converter converter(nl_langinfo(CODESET), "UTF-8");
    // every character takes at most four bytes, and no charset has more characters than bytes
    vex::UniqueMalloc<char> result(static_cast<char *>(malloc(4 * length + 1)));
    if (!converter.good() || !result) return nullptr;
    const ssize_t size = converter.run(text, length, result.get(), 4 * length);
    if (size < 0) return nullptr;
    result.get()[size] = '\0';
    return result.release();
}
