#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>

#include <vex/crypt_stream.h>
#include <vex/log.h>

#include "crypto/one_shot.h"
#include "log/report.h"

namespace vex::crypto {

c_stream_t streamOver(const unsigned char *in, size_t in_length, unsigned char *out,
                      size_t out_length) {
    c_stream_t stream{};
    stream.next_in = in;
    stream.avail_in = static_cast<uint32_t>(std::min<size_t>(in_length, UINT32_MAX));
    stream.next_out = out;
    stream.avail_out = static_cast<uint32_t>(std::min<size_t>(out_length, UINT32_MAX));
    return stream;
}

void reportFailure(int result, const char *format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    (void)vsnprintf(text, sizeof text, format, args);
    va_end(args);
    ErrorA(errno != 0 ? errno : -1, "%s", text);
    if (errno != 0) return;
    if (result == VEX_STREAM_PARAMETER_ERROR)
        errno = EINVAL;
    else if (result == VEX_STREAM_MEMORY_ERROR)
        errno = ENOMEM;
    else
        errno = result == VEX_STREAM_KEY_ERROR ? EKEYREJECTED : EBADMSG;
}

int settle(int result) {
    if (result != VEX_STREAM_OK) return result;
    errno = ENOBUFS;
    return VEX_STREAM_BUFFER_ERROR;
}

}  // namespace vex::crypto

namespace {

long encryptAll(c_stream_t *stream) {
    errno = 0;
    const int result = vex::crypto::settle(dcpEncrypt(stream));
    if (result == VEX_STREAM_END) return static_cast<long>(stream->total_out);
    vex::crypto::reportFailure(result, "%s: Encryption error (%s)", "dcpEncryptDataToBuffer",
                               dcpCryptError(result));
    return -1;
}

}  // namespace

long dcpEncryptDataToBuffer(const VexKey &key, unsigned char cipherType, const unsigned char *in,
                            unsigned long inLength, unsigned char *out, unsigned long outLength,
                            unsigned long flags) {
    if (in == nullptr || inLength == 0 || out == nullptr || outLength == 0)
        return VEX_FAIL_WARN_AS(__func__, 1144, EINVAL, -1L,
                                "invalid argument specified [Internal Error]");
    if (inLength > UINT32_MAX)
        return VEX_FAIL(ERANGE, -1L, "Encryption error (%s)", "more than one call can take");
    if (static_cast<double>(outLength) < static_cast<double>(inLength) * 1.05 + 100) {
        errno = ENOBUFS;
        return -1;
    }
    c_stream_t stream = vex::crypto::streamOver(in, inLength, out, outLength);
    errno = 0;
    const int opened = dcpEncryptInit(&stream, flags, key, cipherType);
    if (opened != VEX_STREAM_OK) {
        vex::crypto::reportFailure(opened, "%s: Could not initialize encryption (%s)", __func__,
                                   dcpCryptError(opened));
        return -1;
    }
    const long written = encryptAll(&stream);
    const int error = errno;
    (void)dcpEncryptEnd(&stream);  // absent when Init left the stream closed
    errno = error;
    return written;
}
