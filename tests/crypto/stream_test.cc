// Writer and reader against each other and against hand-made bytes.
#include <zlib.h>

#include "crypto/deflate_block.h"
#include "crypto/streams.h"

namespace {

constexpr uint64_t kWindow = 0x20000, kLzoWindow = 0x23000;
const Shape kClear{"clear", 6, 0};

struct Parsed {
    std::string init, payloads, trailer;
    std::vector<uint32_t> lengths, extras;
};

Parsed parse(const std::string &bytes, size_t init) {
    Parsed p{bytes.substr(14, init), "", "", {}, {}};
    size_t at = 14 + init;
    for (; vex::loadBig32(&bytes.at(at)) != 0xffffffff; at += 8 + p.lengths.back()) {
        p.lengths.push_back(vex::loadBig32(&bytes.at(at)));
        p.extras.push_back(vex::loadBig32(&bytes.at(at + 4)));
        p.payloads += bytes.substr(at + 8, p.lengths.back());
    }
    p.trailer = bytes.substr(at);
    return p;
}

TEST(StreamFormat, IsPinnedByHandMadeBytes) {
    EXPECT_EQ(magic(0x4001, kWindow) + block("hello") + trailer(5), writeStream(kClear, "hello").bytes);
    EXPECT_EQ(magic(0x4001, kWindow) + trailer(0), writeStream(kClear, "").bytes);
    EXPECT_EQ(magic(0x4020, kLzoWindow) + block(std::string("\0\0\0\3abc", 7)) + trailer(3),
        writeStream({"lzo", 4, 0}, "abc").bytes);
    const std::string data = testData(200000);
    const Parsed clear = parse(writeStream(kClear, data).bytes, 0);
    EXPECT_THAT(clear.lengths, ElementsAre(131064U, 68936U));
    EXPECT_EQ(data, clear.payloads);

    const EVP_CIPHER *const modes[] = {EVP_aes_256_cfb128(), EVP_aes_256_ofb(), EVP_aes_256_ctr()};
    for (unsigned char type = 1; type <= 3; ++type) {
        const bool ctr = type == 3;
        const Parsed p = parse(writeStream({"", 2, type}, data).bytes, ctr ? 16 : 8);
        EXPECT_THAT(p.extras, testing::Each(0U));
        // one run of the cipher through the check and all blocks
        const std::string plain =
            evp(modes[type - 1], false, ctr ? bytesOf(p.init) : nullptr, ctr ? p.payloads : p.init + p.payloads);
        EXPECT_TRUE(ctr || plain.substr(0, 4) == plain.substr(4, 4));
        EXPECT_TRUE(plain.substr(ctr ? 0 : 8) == data);
    }
    const Parsed fish = parse(writeStream({"", 2, 0}, data.substr(0, 13)).bytes, 8);
    char plain[24];
    BlowfishCipher cipher;
    cipher.Init(1, testKey(), nullptr);
    ASSERT_EQ(24, cipher.Decrypt((fish.init + fish.payloads).data(), 24, true, plain, nullptr));
    EXPECT_EQ(std::string(plain, 4), std::string(plain + 4, 4));
    EXPECT_EQ(data.substr(0, 13) + std::string(3, '\0'), std::string(plain + 8, 16));
    EXPECT_THAT(fish.extras, ElementsAre(3U));
    EXPECT_EQ(trailer(13, 3), fish.trailer);
}

TEST(StreamFormat, DeflateStoresWhatWouldOutgrowItsBlock) {
    const std::string noise = testNoise(140000);
    z_stream z{};
    ASSERT_EQ(Z_OK, deflateInit2(&z, 5, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY));
    std::string payload(noise.size() + 15, '\0');  // three stored blocks; zlib would make five
    EXPECT_EQ(static_cast<int64_t>(payload.size()),
        vex::crypto::deflateBlock(&z, bytesOf(noise), noise.size(), bytesOf(payload), payload.size()));
    deflateEnd(&z);
    EXPECT_TRUE(noise == readStream(magic(0x4010, 1 << 18) + block(payload) + trailer(140000), 0).bytes);
}

TEST(Streams, RoundTripInEveryShapeWindowLevelAndPieceNewOrReset) {
    const std::string data = testData(300001);
    for (const auto &shape : kShapes) {
        SCOPED_TRACE(shape.name);
        for (uint16_t level = 0; level <= ((shape.flags & 0x40) != 0 ? 10 : 16); ++level) {
            c_stream_t settings{};
            settings.zlevel = level;
            settings.zwindow = std::array<uint16_t, 3>{0, 12, 20}[level % 3];
            const size_t room = std::array{7777UL, 131072UL, 1UL << 20}[level / 3 % 3];
            const std::string want = data.substr(0, settings.zwindow == 12 ? 30000 : data.size());
            const Outcome read =
                readStream(writeStream(shape, want, room, settings).bytes, shape.cipher, room * 2 / 3, room);
            ASSERT_EQ(1, read.result) << level;
            ASSERT_TRUE(want == read.bytes) << level;
        }
        for (size_t piece = 1; piece <= 64; ++piece) {
            const std::string want = data.substr(0, 200 + piece);
            const Outcome written = writeStream(shape, want, piece, {}, piece % 2 == 0);
            for (const size_t room : {1UL, piece, 65 - piece}) {
                const Outcome read = readStream(written.bytes, shape.cipher, piece, room, testKey(), room % 2 == 0);
                ASSERT_EQ(1, read.result) << piece << ' ' << room;
                ASSERT_EQ(want, read.bytes);
            }
        }
        // room for just the data is enough to see the end
        EXPECT_EQ(1, readStream(writeStream(shape, data).bytes, shape.cipher, SIZE_MAX / 2, data.size()).result);
    }
}

TEST(Streams, DamageEndsCleanlyOrInWellFormedOutput) {
    const std::string data = testData(90);
    for (const auto &shape : kShapes) {
        SCOPED_TRACE(shape.name);
        LogCapture log;
        const std::string good = writeStream(shape, data).bytes;
        const Outcome wrong_key = readStream(good, shape.cipher, 1000, 1000, testKey(2));
        EXPECT_TRUE(wrong_key.result == -31 || (shape.flags & 4) != 0 || shape.cipher == 3);
        for (size_t n = 0; n < good.size(); ++n) {
            const Outcome cut = readStream(good.substr(0, n), shape.cipher);
            ASSERT_LT(cut.result, 0) << n;
            ASSERT_EQ(data.substr(0, cut.bytes.size()), cut.bytes) << n;
        }
        for (size_t bit = 0; bit < good.size() * 8; ++bit) {
            std::string bad = good;
            bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
            for (const size_t piece : {1UL, 1000UL}) {
                const Outcome read = readStream(bad, shape.cipher, piece, piece);
                ASSERT_LE(read.result, 1) << "hang at bit " << bit;
                ASSERT_LE(read.bytes.size(), 70000U);
            }
        }
    }
}

TEST(StreamReader, JudgesHandMadeStreams) {
    const std::string chunk("\0\0\0\2ab", 6), packed("\x80\0\0\5\x16hello\x11\0\0", 13), full(4088, 'x');
    const auto clear = [](uint64_t value = kWindow) { return magic(0x4001, value); };
    const auto lzo = [] { return magic(0x4020, kLzoWindow); };
    // clang-format off
    const struct { const char *name; std::string bytes; int result; std::string data; } kRows[] = {
        {"two blocks and an empty one", clear() + block("ab") + block("") + block("cd", 7) + trailer(4), 1, "abcd"},
        {"bytes behind the end", clear() + block("ab") + trailer(2) + "next", 1, "ab"},
        {"wrong total", clear() + block("ab") + trailer(3), -3, "ab"},
        {"older layout", magic(0x0401, 0) + block("ab") + words({0xffffffff, 0, 0, 2}), 1, "ab"},
        {"older still", magic(0x0001, 0) + block("ab") + words({0xffffffff, 0, 0, 2}), 1, "ab"},
        {"trailer's extra word is not judged", clear() + block("ab") + trailer(2, 77), 1, "ab"},
        {"extra word of 8", clear() + block("ab", 8) + trailer(2), -1, ""},
        {"full window", clear(4096) + block(full) + trailer(4088), 1, full},
        {"beyond the window", clear(4096) + block(full + "x") + trailer(4089), -1, ""},
        {"no window", clear(0) + block(std::string(32760, 'x')) + trailer(32760), 1, std::string(32760, 'x')},
        {"beyond no window", clear(0) + block(std::string(32761, 'x')) + trailer(32761), -1, ""},
        {"implausible window", clear(2281705473) + trailer(0), -3, ""},
        {"huge block that does not come", clear(2281705472) + words({2281705000, 0}) + "ab", -5, "ab"},
        {"not a stream", "VEY " + (clear() + trailer(0)).substr(4), -3, ""},
        {"no flags", magic(0, kWindow) + trailer(0), -3, ""},
        {"plug-in", magic(0x4004, kWindow) + block("ab") + trailer(2), -3, ""},
        {"RSA", magic(0x4101, kWindow) + block("ab") + trailer(2), -3, ""},
        {"unused flags", magic(0x6cc1, kWindow) + block("ab") + trailer(2), 1, "ab"},
        {"several chunks", lzo() + block(chunk + packed + packed + chunk) + trailer(14), 1, "abhellohelloab"},
        {"LZO before deflate", magic(0x4030, kLzoWindow) + block(packed) + trailer(5), 1, "hello"},
        {"length of one too many", lzo() + block("\x80" + std::string("\0\0\x06", 3) + packed.substr(4)) + trailer(6), -3, ""},
        {"chunk of 16 that holds 5", lzo() + block("\x80" + std::string("\0\0\x10", 3) + packed.substr(4)) + trailer(16), -3, ""},
        {"stored chunk cut", lzo() + block(chunk.substr(0, 5)) + trailer(2), -3, ""},
        {"rest behind a chunk", lzo() + block(chunk + "abc") + trailer(2), -3, "ab"},
        {"2 GiB from a few bytes", lzo() + block(std::string("\xff\xff\xff\xff\x16", 5)) + trailer(2), -3, ""},
        {"deflate with a tail", magic(0x4010, kWindow) + block(std::string("\x4b\x4c\x4a\x06\0x", 6)) + trailer(3), -3, "abc"},
        {"deflate", magic(0x4010, kWindow) + block(std::string("\x4b\x4c\x4a\x06\0", 5)) + trailer(3), 1, "abc"},
        {"damaged deflate", magic(0x4010, kWindow) + block("\xff") + trailer(0), -3, ""},
    };
    // clang-format on
    for (const auto &row : kRows) {
        for (const size_t piece : {1UL, 5UL, 1UL << 17}) {
            SCOPED_TRACE(std::string(row.name) + " by " + std::to_string(piece));
            const Outcome read = readStream(row.bytes, 3, piece, piece);
            EXPECT_EQ(row.result, read.result);
            EXPECT_TRUE(row.data == read.bytes) << read.bytes.size();
        }
    }
}

TEST(StreamReader, AcceptsForeignBlowfishPaddingBehindChunks) {
    std::string foreign = writeStream({"", 0, 0}, std::string(50, 'a')).bytes;
    char *const length = foreign.data() + 14 + 8;
    vex::storeBig32(length + 4, 0);  // the padding is there, the extra word says none
    EXPECT_EQ(std::string(50, 'a'), readStream(foreign, 0).bytes);
    vex::storeBig32(length, vex::loadBig32(length) - 1);
    EXPECT_EQ(-3, readStream(foreign, 0).result);
}

TEST(StreamReader, StaysAtItsEndAndFailsForGood) {
    const std::string bytes = magic(0x4001, kWindow) + block("ab") + trailer(2) + "tail";
    c_stream_t stream{};
    unsigned char room[8];
    unsigned short action = 9;
    const auto feed = [&](const std::string &in, int flush) {
        stream.next_in = bytesOf(in);
        stream.avail_in = static_cast<uint32_t>(in.size());
        stream.next_out = room;
        stream.avail_out = sizeof room;
        return dcpDecrypt(&stream, flush);
    };
    const auto reset = [&] { EXPECT_EQ(0, dcpDecryptReset(&stream, testKey(), 0)); };
    reset();  // opens it
    EXPECT_EQ(1, feed(bytes, 0));
    EXPECT_EQ(4U, stream.avail_in);
    EXPECT_EQ(1, feed("more", 0));
    EXPECT_EQ(4U, stream.avail_in);
    EXPECT_EQ(3, dcpGetCryptoAction(&stream, &action) + action);
    reset();
    EXPECT_EQ(-1, feed(magic(0x4001, kWindow) + block("ab", 8), 0));
    EXPECT_STREQ("Bad message", dcpCryptError(-1));
    EXPECT_STREQ("internal error: unknown error value 77", dcpCryptError(77));
    EXPECT_EQ(-1, feed(bytes, 0));
    reset();
    EXPECT_EQ(0, feed(bytes.substr(0, 20), 0));
    EXPECT_EQ(-5, feed("", 1));
    // a context is only good for its own side
    EXPECT_EQ(-4, dcpEncrypt(&stream) + dcpEncryptEnd(&stream));
    EXPECT_EQ(0, dcpDecryptEnd(&stream));
    EXPECT_EQ(-4, dcpDecryptEnd(&stream) + feed(bytes, 0));
}

TEST(StreamWriter, ChecksItsSettings) {
    // flags, level, window, algorithm, cipher; the result, or the flags and the window of the header
    using Row = std::tuple<unsigned long, uint16_t, uint16_t, uint16_t, unsigned char, int, uint64_t>;
    static const Row kRows[] = {{0, 0, 0, 0, 3, 0x5222, kLzoWindow}, {0x40, 0, 0, 0, 0, 0x5212, kWindow},
        {0x44, 0, 0, 1, 0, 0x4020, kLzoWindow}, {4, 10, 31, 2, 0, 0x4010, 0x80000000},
        {4, 16, 31, 1, 0, 0x4020, 2281705472}, {4, 16, 12, 1, 0, 0x4020, 8192}, {0x44, 1, 12, 0, 0, 0x4010, 4096},
        {6, 99, 0, 9, 77, 0x4001, kWindow}, {4, 17, 0, 0, 0, -2, 0}, {0x44, 11, 0, 0, 0, -2, 0},
        {4, 0, 11, 0, 0, -2, 0}, {0x44, 0, 32, 0, 0, -2, 0}, {6, 0, 3, 0, 0, -2, 0}, {0, 0, 0, 3, 0, -3, 0},
        {2, 0, 0, 0, 4, -2, 0}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(PrintToString(row));
        const auto &[flags, level, window, algorithm, cipher, result, size] = row;
        LogCapture log;
        c_stream_t stream{};
        stream.zlevel = level, stream.zwindow = window, stream.zalgorithm = algorithm;
        const int opened = dcpEncryptInit(&stream, flags, testKey(), cipher);
        EXPECT_EQ(std::min(result, 0), opened);
        const char *const line = "22 dcpEncryptInit: compression algorithm is not valid,  c->zalgorithm = 3 ";
        EXPECT_TRUE(opened != -3 || log.text() == line) << log.text();
        EXPECT_EQ(opened == 0, stream.state != nullptr);
        if (opened != 0) continue;
        unsigned char header[14];
        stream.next_out = header;
        stream.avail_out = sizeof header;
        EXPECT_EQ(0, dcpEncrypt(&stream));
        uint64_t told = 0;
        EXPECT_EQ(result, vexMagicFromBuffer(header, &told));
        EXPECT_EQ(size, told);
        EXPECT_EQ(-5, dcpEncrypt(&stream)) << "no room";
        EXPECT_EQ(0, dcpEncryptEnd(&stream) + stream.zlevel + stream.zwindow + stream.zalgorithm);
    }
}

TEST(StreamWriter, EndsWithItsInputAndCanBeTopped) {
    const std::string data = testData(150000);
    c_stream_t stream{};
    std::string out(200000, '\0');
    ASSERT_EQ(0, dcpEncryptInit(&stream, 6, testKey(), 0));
    stream.next_in = bytesOf(data);
    stream.next_out = bytesOf(out);
    const auto write = [&](uint32_t more, uint32_t room) {
        stream.avail_in += more;
        stream.avail_out = room;
        return dcpEncrypt(&stream);
    };
    EXPECT_EQ(0, write(140000, 15)) << "the header, and one byte of the first block";
    EXPECT_EQ(131064U + 15, stream.total_in + stream.total_out);
    EXPECT_EQ(0, write(10000, 150000 + 16 - 2)) << "the trailer has no room";
    EXPECT_EQ(0, write(0, 20));
    EXPECT_EQ(1, write(0, 1));
    EXPECT_EQ(150050U, stream.total_out);
    EXPECT_EQ(1, write(0, 1));
    EXPECT_EQ(-5, write(1, 1)) << "input behind the end";
    EXPECT_TRUE(data == readStream(out.substr(0, 150050), 0).bytes);
    stream.next_in = nullptr;
    EXPECT_EQ(-2, dcpEncrypt(&stream));
    EXPECT_EQ(0, dcpEncryptEnd(&stream));
    EXPECT_EQ(-2, dcpEncryptReset(&stream, testKey(), 0));
}

}  // namespace
