// The writer's context. A block goes straight into the caller's output when that has room for all
// of it; else it is framed in the window and delivered from there over as many calls as it takes.
#ifndef VEX_CRYPTO_STREAM_WRITER_H
#define VEX_CRYPTO_STREAM_WRITER_H

#include <zlib.h>

#include <vex/magic.h>

#include "base/unique_ptr.h"
#include "crypto/stream_context.h"

namespace vex::crypto {

class StreamWriter : public crypt_ctx_t {
public:
    static constexpr Kind kKind = Kind::kWriter;

    StreamWriter() : crypt_ctx_t(kKind) {}
    ~StreamWriter();
    StreamWriter(const StreamWriter &) = delete;
    StreamWriter &operator=(const StreamWriter &) = delete;

    /// Settles action, algorithm, level and window, and gets what they need; a code of the stream
    /// functions.
    int configure(const c_stream_t &stream, unsigned long flags);
    /// True when configure() failed for want of LZO's work memory.
    bool lacksWorkMemory() const { return lzo_level_ != 0 && lzo_work_ == nullptr; }
    /// Makes the cipher and the bytes that open the stream.
    int begin(const VexKey &key, unsigned char cipher_type);
    /// Forgets the stream that was being written; a code of zlib's.
    int reset();

    /// Moves pending bytes into the output; true when none is left.
    bool deliver(c_stream_t *stream);
    /// Turns the next input into a block, delivered as far as there is room.
    int writeBlock(c_stream_t *stream);
    /// Appends the trailer.
    void finish(c_stream_t *stream);
    bool finished() const { return finished_; }

private:
    /// Where a block's payload goes: into the output behind the room for its header, or into the
    /// window; nullptr when there is no memory for the window.
    struct Place {
        unsigned char *payload;
        bool direct;
    };

    bool compresses() const {
        return action == VEX_STREAM_COMPRESS_ENCRYPT || action == VEX_STREAM_COMPRESS;
    }
    int chooseLzo(const c_stream_t &stream);
    int chooseDeflate(const c_stream_t &stream);
    int makePrefix(const VexKey &key);

    size_t mostInput() const;
    unsigned char *windowPayload();
    Place placeFor(const c_stream_t &stream, size_t room);
    Place placeEnciphered(const c_stream_t &stream, size_t size);
    int64_t build(const c_stream_t &stream, size_t n, Place *place);
    int64_t buildPlain(const c_stream_t &stream, size_t n, Place *place);
    int64_t buildLzo(const c_stream_t &stream, size_t n, Place *place);
    int64_t storeChunk(const unsigned char *in, size_t n, unsigned char *payload);
    int64_t buildDeflate(const c_stream_t &stream, size_t n, Place *place);
    int64_t encipher(const unsigned char *in, size_t size, bool final, unsigned char *out);

    uint16_t magic_flags_ = 0;
    uint16_t level_ = 0;
    uint16_t lzo_level_ = 0;  ///< 0 without LZO
    uint16_t window_bits_ = 0;
    uint32_t window_size_ = 0;  ///< as announced in the magic header
    uint32_t capacity_ = 0;     ///< the most bytes of a block's payload
    uint32_t extra_ = 0;        ///< the last block's extra word: its padding
    bool finished_ = false;
    bool deflating_ = false;
    std::unique_ptr<Cipher> cipher_;
    z_stream z_{};
    UniqueMalloc<unsigned char> lzo_work_;
    UniqueMalloc<unsigned char> window_;  ///< allocated when first needed: header, payload, trailer
    unsigned char small_[VEX_MAGIC_SIZE + kInitialVector + kTrailerSize];  ///< prefix; trailer
    unsigned char *pending_ = small_;  ///< what is still to be delivered, in small_ or window_
    size_t pending_size_ = 0;
};

}  // namespace vex::crypto

#endif
