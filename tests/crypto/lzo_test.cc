#include "crypto/lzo_chunk.h"
#include "crypto/lzo_encoder.h"
#include "crypto/streams.h"

using Bytes = std::vector<unsigned char>;
/// Encodes with room for exactly the worst case, decodes and compares, with more bytes behind the encoded ones, which
/// it returns.
static Bytes roundTrip(unsigned bits, const std::string &data) {
    Bytes out(vex::crypto::lzoWorstCase(data.size())), back(data.size());
    std::vector<uint16_t> work(vex::crypto::lzoEncoderMemory(bits) / 2, 0xffff);
    const Bytes exact(data.begin(), data.end());
    out.resize(vex::crypto::lzoEncode(bits, exact.data(), data.size(), out.data(), work.data()));
    Bytes more(out);
    more.resize(out.size() + 7, 0x21);
    size_t used = 0;
    EXPECT_TRUE(vex::crypto::lzoDecompress(more.data(), more.size(), back.data(), data.size(), &used));
    EXPECT_EQ(out.size(), used);
    EXPECT_EQ(exact, back);
    return out;
}

/// Literal runs and matches of every length around the encodings' limits, at every kind of
/// distance.
static std::string edgeCases() {
    const std::string noise = testNoise(300000);
    size_t used = 70000;
    std::string data = noise.substr(0, used);
    for (const size_t distance :
        {1, 7, 8, 2047, 2048, 2049, 16383, 16384, 16385, 32768, 49150, 49151, 49152, 65535, 65536, 65537})
        for (const size_t length : {3, 4, 8, 9, 10, 33, 34, 263, 264, 265, 288, 289, 519, 600})
            for (const size_t run : {0, 1, 2, 3, 4, 17, 18, 19, 273, 274}) {
                for (size_t i = 0; i < length; ++i) data += data[data.size() - distance];
                data += noise.substr(used, run);
                used += run;
            }
    return data;
}

TEST(Lzo, DecodesAtEveryLevelAndFindsTheEnd) {
    const std::string real = readFile("/proc/self/exe").substr(0, 200000), edges = edgeCases(), zeros(300000, '\0'),
                      mixed = testData(150000);
    for (unsigned bits = vex::crypto::kLzoLowestBits; bits <= vex::crypto::kLzoHighestBits; ++bits) {
        SCOPED_TRACE(bits);
        for (const std::string *data : {&real, &edges, &zeros, &mixed}) roundTrip(bits, *data);
        for (size_t n = 0; n < 300; ++n) {
            roundTrip(bits, mixed.substr(0, n));
            roundTrip(bits, zeros.substr(0, n));
        }
        for (const size_t first : {237, 238, 239, 273, 274, 5000})
            roundTrip(bits, real.substr(100000, first) + zeros.substr(0, 60));
        EXPECT_LT(roundTrip(bits, zeros).size(), 1300U) << "a fresh table must not name position 0 of the input itself";
    }
}

TEST(LzoChunks, AreStoredWhenTheyDoNotShrinkOrSamplesTellSo) {
    const std::string noise = testNoise(60000), text(40000, 't');
    Bytes out(vex::crypto::lzoWorstCase(100000)), work(vex::crypto::lzoWorkMemory(14));
    const auto compress = [&](const std::string &data) {
        return vex::crypto::lzoCompress(14, bytesOf(data), data.size(), out.data(), work.data());
    };
    EXPECT_EQ(0U, compress(noise));
    EXPECT_GT(500U, compress(text));
    EXPECT_LT(0U, compress(noise + text)) << "without parameters every block is tried";
    EXPECT_EQ(1, adaptive_compression_init(90, 100, 1000) + adaptive_compression_init(0, 0, 0));
    EXPECT_LT(0U, compress(noise + text)) << "the last sample shrinks";
    EXPECT_LT(0U, compress(text + noise)) << "the first sample shrinks";
    EXPECT_EQ(0U, compress(noise.substr(0, 30000) + text + noise.substr(30000))) << "neither does";
    EXPECT_LT(0U, compress(noise.substr(0, 900) + text.substr(0, 8000) + noise.substr(900, 900)))
        << "the sample is too small to decide";
}
