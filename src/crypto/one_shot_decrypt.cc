#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/crypt_stream.h>
#include <vex/log.h>
#include <vex/magic.h>

#include "base/endian.h"
#include "base/errno_guard.h"
#include "base/unique_ptr.h"
#include "crypto/one_shot.h"
#include "crypto/stream_context.h"
#include "log/report.h"

namespace {

using vex::crypto::kBlockHeaderSize;
using vex::crypto::reportFailure;

constexpr auto kFailed = static_cast<unsigned>(-1);
constexpr int kClear = VEX_MAGIC_STREAMABLE_V2 | VEX_MAGIC_SIMPLE;
constexpr uint64_t kMostRoom = UINT32_MAX - 7;  // a multiple of 8

class OpenReader {
public:
    explicit OpenReader(c_stream_t *stream) : stream_(stream) {}
    ~OpenReader() {
        const vex::ErrnoGuard keep;
        (void)dcpDecryptEnd(stream_);  // the stream is open
    }
    OpenReader(const OpenReader &) = delete;
    OpenReader &operator=(const OpenReader &) = delete;

private:
    c_stream_t *stream_;
};

/// Copies the payloads of a stream in the clear, as far as there is input and room.
unsigned copyClear(const unsigned char *in, size_t left, unsigned char *out, size_t room) {
    in += VEX_MAGIC_SIZE;
    left -= VEX_MAGIC_SIZE;
    size_t copied = 0;
    while (left >= kBlockHeaderSize && copied < room) {
        const uint32_t length = vex::loadBig32(in);
        if (length == vex::crypto::kTrailerMark) break;
        in += kBlockHeaderSize;
        left -= kBlockHeaderSize;
        const size_t there = std::min<size_t>(length, left);
        const size_t count = std::min(there, room - copied);
        std::memcpy(out + copied, in, count);
        copied += count;
        in += there;
        left -= there;
    }
    return static_cast<unsigned>(copied);
}

void traceCompleted(const c_stream_t &stream) {
    if (TraceOn())
        __Trace("<stream>: decrypt completed, %lu bytes input, %lu bytes output)", stream.total_in,
                stream.total_out);
}

/// The first room for the data of an input of @p n bytes.
uint32_t initialRoom(uint32_t n) {
    constexpr uint32_t kLeast = 32768, kSmall = 1 << 20, kLarge = 8 << 20;
    if (n <= kSmall) return std::max(3 * n, kLeast);
    if (n <= kLarge) return 2 * n;
    return n > UINT32_MAX - kLarge ? kLeast : n + kLarge;
}

/// How much more room the data may take, from what the input has given so far.
uint64_t addedRoom(const c_stream_t &stream, uint64_t size) {
    if (stream.avail_in == 0 || stream.total_in == 0) return size;
    return std::max(size, stream.total_out / stream.total_in * stream.avail_in);
}

using Buffer = vex::UniqueMalloc<unsigned char>;

/// Makes the buffer larger and points the stream behind what it holds; false when there is no more
/// memory.
bool growBuffer(c_stream_t *stream, Buffer *buffer, uint32_t *size) {
    const uint64_t wanted = (*size + addedRoom(*stream, *size) + 7) & ~uint64_t{7};
    const auto larger = static_cast<uint32_t>(std::min(wanted, kMostRoom));
    if (TraceOn())
        __Trace("%s: resizing output buffer from %u to %u bytes", "dcpDecryptData", *size, larger);
    void *const moved = larger > *size ? std::realloc(buffer->get(), larger) : nullptr;
    if (moved == nullptr) {
        vex::log::allocationFailure(larger, "dcpDecryptData");
        return false;
    }
    (void)buffer->release();
    buffer->reset(static_cast<unsigned char *>(moved));
    stream->next_out = buffer->get() + stream->total_out;
    stream->avail_out = larger - static_cast<uint32_t>(stream->total_out);
    *size = larger;
    return true;
}

/// Drives the open stream to its end; false when it failed, which is logged.
bool decryptGrowing(c_stream_t *stream, Buffer *buffer, uint32_t size) {
    int flush = 0;
    for (;;) {
        errno = 0;
        const int result = dcpDecrypt(stream, flush);
        if (result == VEX_STREAM_END) return true;
        if (result < 0) {
            reportFailure(result, "decryption error (%s)", dcpCryptError(result));
            return false;
        }
        if (stream->avail_in == 0 && stream->avail_out > 0)
            flush = 1;
        else if (!growBuffer(stream, buffer, &size))
            return false;
    }
}

}  // namespace

unsigned dcpDecryptDataToBuffer(const VexKey &key, unsigned char cipherType,
                                const unsigned char *in, unsigned inLength, unsigned char *out,
                                unsigned outLength) {
    if (in == nullptr || inLength == 0 || out == nullptr || outLength == 0) {
        WarningA(1120, "invalid argument specified [Internal Error]");
        errno = EINVAL;
        return kFailed;
    }
    const auto magic_room = static_cast<int>(std::min<unsigned>(inLength, VEX_MAGIC_SIZE));
    if (vexMagicDecode(nullptr, in, magic_room, nullptr) == kClear)
        return copyClear(in, inLength, out, outLength);

    c_stream_t stream = vex::crypto::streamOver(in, inLength, out, outLength);
    errno = 0;
    int result = dcpDecryptInit(&stream, key, cipherType);
    if (result != VEX_STREAM_OK) {
        reportFailure(result, "<stream>: could not initialize decryption (%s)",
                      dcpCryptError(result));
        return kFailed;
    }
    const OpenReader reader(&stream);
    errno = 0;  // an unknown cipher is no failure yet
    result = vex::crypto::settle(dcpDecrypt(&stream, 1));
    if (result != VEX_STREAM_END) {
        reportFailure(result, "<stream>: decryption error (%s)", dcpCryptError(result));
        return kFailed;
    }
    traceCompleted(stream);
    return static_cast<unsigned>(stream.total_out);
}

unsigned char *dcpDecryptData(const VexKey &key, unsigned char cipherType, const unsigned char *in,
                              unsigned *length, unsigned * /*reserved*/, unsigned initialSize) {
    if (in == nullptr || length == nullptr) {
        WarningA(1120, "invalid argument specified [Internal Error]");
        errno = EINVAL;
        return nullptr;
    }
    c_stream_t stream = vex::crypto::streamOver(in, *length, nullptr, 0);
    errno = 0;
    const int result = dcpDecryptInit(&stream, key, cipherType);
    if (result != VEX_STREAM_OK) {
        reportFailure(result, "could not initialize decryption (%s)", dcpCryptError(result));
        return nullptr;
    }
    const OpenReader reader(&stream);
    const uint32_t size = initialSize != 0 ? initialSize : initialRoom(*length);
    Buffer buffer(static_cast<unsigned char *>(std::malloc(size)));
    if (buffer == nullptr) {
        vex::log::allocationFailure(size, __func__);
        return nullptr;
    }
    if (TraceOn())
        __Trace("%s: %u bytes input, initial output buffer is %u bytes", __func__, *length, size);
    stream.next_out = buffer.get();
    stream.avail_out = size;
    if (!decryptGrowing(&stream, &buffer, size)) return nullptr;
    traceCompleted(stream);
    *length = static_cast<unsigned>(stream.total_out);
    return buffer.release();
}
