// What writers and readers of crypt streams share.
#ifndef VEX_CRYPTO_STREAM_CONTEXT_H
#define VEX_CRYPTO_STREAM_CONTEXT_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include <vex/cipher.h>
#include <vex/crypt_stream.h>

struct crypt_ctx_t {
    enum class Kind : uint16_t { kWriter, kReader };

    explicit crypt_ctx_t(Kind which) : kind(which) {}

    bool encrypts() const {
        return action == VEX_STREAM_COMPRESS_ENCRYPT || action == VEX_STREAM_ENCRYPT;
    }

    Kind kind;  ///< keeps the functions of one side from the other's context
    uint16_t action = VEX_STREAM_COMPRESS_ENCRYPT;
    int failure = 0;  ///< the first negative result, given again by every later call
};

namespace vex::crypto {

inline constexpr size_t kBlockHeaderSize = 8;
inline constexpr size_t kTrailerSize = 20;
inline constexpr uint32_t kTrailerMark = 0xffffffff;
inline constexpr uint32_t kMostPadding = 7;
inline constexpr size_t kInitialVector = 16;  // the longest initialisation block
inline constexpr size_t kLzoChunkWord = 4;
inline constexpr uint32_t kLzoCompressed = 0x80000000;
// the largest window: LZO with 31 window bits
inline constexpr uint64_t kLargestWindow = 2281705472;

/// A new T, or nullptr with ENOMEM.
template <typename T>
std::unique_ptr<T> tryNew() {
    try {
        return std::make_unique<T>();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

/// The context behind a stream when it is of that side; nullptr when there is none.
template <typename Context>
Context *contextOf(c_stream_t *stream) {
    if (stream == nullptr || stream->state == nullptr || stream->state->kind != Context::kKind)
        return nullptr;
    return static_cast<Context *>(stream->state);
}

/// Ends a stream of that side: 0, or -2 when there is none.
template <typename Context>
int endStream(c_stream_t *stream) {
    const std::unique_ptr<Context> context(contextOf<Context>(stream));
    if (context == nullptr) return VEX_STREAM_PARAMETER_ERROR;
    stream->state = nullptr;
    stream->zlevel = stream->zwindow = stream->zalgorithm = 0;
    return VEX_STREAM_OK;
}

/// Forgets input, output and totals of a stream that is about to begin anew.
inline void restart(c_stream_t *stream) {
    stream->next_in = nullptr;
    stream->next_out = nullptr;
    stream->avail_in = stream->avail_out = 0;
    stream->total_in = stream->total_out = 0;
}

/// The cipher of a stream, or nullptr with errno.
inline std::unique_ptr<Cipher> newCipher(int type) {
    return std::unique_ptr<Cipher>(Cipher::NewCipher(type));
}

/// Cipher::Process for any length: the bytes written, or -1.
int64_t processAll(Cipher *cipher, const unsigned char *in, size_t length, bool final,
                   unsigned char *out, unsigned *padding);

}  // namespace vex::crypto

#endif
