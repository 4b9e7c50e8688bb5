// One harness for all stream tests: shapes of streams, drivers that cut input and output into
// pieces, hand-made streams.
#ifndef VEXTEST_CRYPTO_STREAMS_H
#define VEXTEST_CRYPTO_STREAMS_H

#include <openssl/evp.h>

#include "base/endian.h"
#include "support/test.h"

namespace vextest {

inline VexKey testKey(unsigned char first = 1) {
    unsigned char bytes[VEX_KEY_SIZE];
    for (auto &byte : bytes) byte = first++;
    return VexKey(bytes);
}

/// @p n bytes, half of them compressible.
inline std::string testData(size_t n) {
    std::string data = testNoise(n);
    for (size_t at = 0; at < n; at += 30 + data[at] % 16) {
        const size_t run = std::min<size_t>(n - at, static_cast<unsigned char>(data[at]) % 64);
        data.replace(at, run, run, static_cast<char>('a' + run % 4));
        at += run;
    }
    return data;
}

struct Shape {
    const char *name;
    unsigned long flags;
    unsigned char cipher;
};
/// Every action with every cipher and compressor that goes with it.
// clang-format off
inline constexpr Shape kShapes[] = {
    {"lzo blowfish", 0, 0}, {"lzo cfb", 0, 1}, {"lzo ofb", 0, 2}, {"lzo ctr", 0, 3},
    {"deflate blowfish", 0x40, 0}, {"deflate cfb", 0x40, 1}, {"deflate ofb", 0x40, 2}, {"deflate ctr", 0x40, 3},
    {"blowfish", 2, 0}, {"cfb", 2, 1}, {"ofb", 2, 2}, {"ctr", 2, 3}, {"lzo", 4, 0}, {"deflate", 0x44, 0}, {"clear", 6, 0},
};
// clang-format on

struct Outcome {
    int result = 0;
    std::string bytes;
};

inline const unsigned char *bytesOf(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}
inline unsigned char *bytesOf(std::string &text) { return reinterpret_cast<unsigned char *>(text.data()); }

/// Drives an open stream with @p in_piece bytes of input and @p out_piece bytes of room at a time.
/// Each buffer is just as large as is said, so that the address sanitizer sees one byte too many.
template <typename Call>
Outcome drive(c_stream_t *stream, const std::string &in, size_t in_piece, size_t out_piece, Call call) {
    Outcome outcome;
    size_t at = 0;
    for (int idle = 0; idle < 3;) {
        std::optional<FaultPause> ours(std::in_place);  // faults are meant for the library
        const std::string piece = in.substr(at, in_piece);
        const std::vector<char> input(piece.begin(), piece.end());
        std::vector<unsigned char> room(out_piece);
        stream->next_in = reinterpret_cast<const unsigned char *>(input.data());
        stream->avail_in = static_cast<uint32_t>(input.size());
        stream->next_out = room.data();
        stream->avail_out = static_cast<uint32_t>(out_piece);
        ours.reset();
        outcome.result = call(stream, at + input.size() == in.size());
        ours.emplace();
        const size_t taken = input.size() - stream->avail_in, made = out_piece - stream->avail_out;
        at += taken;
        outcome.bytes.append(reinterpret_cast<char *>(room.data()), made);
        if (outcome.result != 0) return outcome;
        idle = taken + made > 0 ? 0 : idle + 1;
    }
    outcome.result = 99;  // no progress: a hang
    return outcome;
}

/// @p used: the stream has served before, with another key, and was left in the middle.
inline Outcome writeStream(const Shape &shape, const std::string &data, size_t out_piece = 1 << 20,
    c_stream_t stream = {}, bool used = false) {
    int result = dcpEncryptInit(&stream, shape.flags, testKey(used ? 9 : 1), shape.cipher);
    if (used) {
        drive(&stream, data, data.size(), out_piece, [](c_stream_t *s, bool) { return dcpEncrypt(s), 1; });
        result = dcpEncryptReset(&stream, testKey(), shape.cipher);
    }
    if (result != 0) return {result, {}};
    Outcome outcome = drive(&stream, data, data.size(), out_piece, [](c_stream_t *s, bool) { return dcpEncrypt(s); });
    dcpEncryptEnd(&stream);
    return outcome;
}

inline Outcome readStream(const std::string &bytes, unsigned char cipher, size_t in_piece = SIZE_MAX / 2,
    size_t out_piece = 1 << 20, const VexKey &key = testKey(), bool used = false) {
    c_stream_t stream{};
    int result = dcpDecryptInit(&stream, used ? testKey(9) : key, cipher);
    if (used) {
        drive(&stream, bytes, in_piece, out_piece, [](c_stream_t *s, bool) { return dcpDecrypt(s, 0), 1; });
        result = dcpDecryptReset(&stream, key, cipher);
    }
    if (result != 0) return {result, {}};
    Outcome outcome =
        drive(&stream, bytes, in_piece, out_piece, [](c_stream_t *s, bool last) { return dcpDecrypt(s, last); });
    dcpDecryptEnd(&stream);
    return outcome;
}

/// @p in through one of OpenSSL's stream modes with testKey() in one go.
inline std::string evp(const EVP_CIPHER *cipher, bool encrypt, const unsigned char *iv, const std::string &in) {
    static constexpr unsigned char kZero[16] = {};
    const VexKey key = testKey();
    std::string out(in.size(), '\0');
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    int length = 0;
    EVP_CipherInit_ex(
        context, cipher, nullptr, reinterpret_cast<const unsigned char *>(&key), iv != nullptr ? iv : kZero, encrypt);
    EVP_CipherUpdate(context, bytesOf(out), &length, bytesOf(in), static_cast<int>(in.size()));
    EVP_CIPHER_CTX_free(context);
    return out;
}

// Streams put together by hand.
inline std::string magic(int flags, uint64_t value) {
    std::string bytes(VEX_MAGIC_SIZE, '\0');
    vexMagicMake(flags, bytes.data(), VEX_MAGIC_SIZE, value);
    return bytes;
}
inline std::string words(std::initializer_list<uint32_t> values) {
    std::string bytes;
    for (const uint32_t value : values)
        for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}
inline std::string block(const std::string &payload, uint32_t extra = 0) {
    return words({static_cast<uint32_t>(payload.size()), extra}) + payload;
}
inline std::string trailer(uint32_t total, uint32_t extra = 0) { return words({0xffffffff, extra, 0, 0, total}); }

}  // namespace vextest

#endif
