// The reader's context: a machine that gathers one element of the stream after the other, magic
// header, initialisation block, block header, payload, trailer, each over as many calls as it
// takes. A payload that is all there is used where it lies and deciphered or decompressed straight
// into the output when that has room; the window holds what is not.
#ifndef VEX_CRYPTO_STREAM_READER_H
#define VEX_CRYPTO_STREAM_READER_H

#include <zlib.h>

#include <vex/magic.h>

#include "base/unique_ptr.h"
#include "crypto/stream_context.h"

namespace vex::crypto {

class StreamReader : public crypt_ctx_t {
public:
    static constexpr Kind kKind = Kind::kReader;

    StreamReader() : crypt_ctx_t(kKind) {}
    ~StreamReader();
    StreamReader(const StreamReader &) = delete;
    StreamReader &operator=(const StreamReader &) = delete;

    /// Takes key and cipher for a stream that is about to begin, and forgets any other; false
    /// without memory.
    bool begin(const VexKey &key, unsigned char cipher_type);
    /// Reads as far as input and room go; a code of the stream functions.
    int read(c_stream_t *stream, bool flush);

private:
    enum class Stage { kMagic, kKeyCheck, kVector, kBlockHeader, kPayload, kBlock, kTrailer, kEnd };
    /// What a step found; negative numbers are codes of the stream functions.
    enum Step { kGoOn = 0, kNeedInput = 1, kNeedRoom = 2 };

    struct Growing {
        UniqueMalloc<unsigned char> bytes;
        size_t size = 0;
        bool grow(size_t to, bool keep);
    };

    int step();
    // stream_reader_header.cc
    int readMagic();
    int openDecompressor();
    int startCipher();
    int checkKey();
    int readVector();
    // stream_reader.cc
    bool gather(size_t count);
    int readBlockHeader();
    int gatherPayload();
    int readTrailer();
    int cutShort();
    int finish() const;
    void take(size_t count);
    void produced(size_t count);
    int keepRest();
    // stream_reader_block.cc
    int openBlock(const unsigned char *payload, size_t size, bool borrowed);
    int openEnciphered(const unsigned char *payload, size_t size);
    int blockStep();
    bool copyPlain();
    int inflateStep();
    int chunkStep();
    int decodeChunk(size_t length);
    bool deliverDecoded();
    bool onlyPaddingLeft() const;

    bool pads() const { return encrypts() && cipher_->GetPaddingSize() > 1; }

    c_stream_t *stream_ = nullptr;  ///< set while a call lasts
    Stage stage_ = Stage::kMagic;
    VexKey key_;
    std::unique_ptr<Cipher> cipher_;
    uint16_t flags_ = 0;
    uint64_t capacity_ = 0;  ///< the most bytes of a block's payload
    uint64_t delivered_ = 0;
    uint64_t announced_ = 0;  ///< the trailer's total

    unsigned char small_[kInitialVector];  ///< the element being gathered, unless it is a payload
    size_t small_count_ = 0;
    Growing window_;
    size_t payload_size_ = 0, payload_have_ = 0;
    uint32_t extra_ = 0;  ///< padding of the current block
    bool cut_short_ = false;

    // the block being delivered: what is not yet decoded, in the window or still in the caller's
    // input
    const unsigned char *data_ = nullptr;
    size_t left_ = 0;
    bool borrowed_ = false;
    size_t plain_left_ = 0;      ///< of that, bytes to be delivered as they stand
    bool deflated_ = false;      ///< the stream's blocks are
    bool inflate_open_ = false;  ///< z_ must be ended
    bool inflating_ = false;     ///< the block's end has not been seen; z_ may hold output back
    z_stream z_{};
    Growing decoded_;  ///< an LZO chunk's data for which the output had no room
    size_t decoded_at_ = 0, decoded_left_ = 0;
};

}  // namespace vex::crypto

#endif
