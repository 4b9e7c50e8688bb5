// The functions over whole buffers, the data key, and every function when memory or random bytes
// run out.
#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

#include "crypto/streams.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/table.h"

namespace {

using testing::ElementsAre;
using vextest::bytesOf;
using vextest::LogCapture;
using vextest::Made;
using vextest::testData;
using vextest::testKey;

constexpr uint64_t kWindow = 0x20000;

std::string seal(const std::string &data, unsigned long flags, unsigned char cipher) {
    std::string out(data.size() * 2 + 200, '\0');
    const long size =
        dcpEncryptDataToBuffer(testKey(), cipher, bytesOf(data), data.size(), bytesOf(out), out.size(), flags);
    out.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return out;
}

unsigned open(const std::string &sealed, unsigned char cipher, std::string *out, const VexKey &key = testKey()) {
    return dcpDecryptDataToBuffer(key, cipher, bytesOf(sealed), static_cast<unsigned>(sealed.size()), bytesOf(*out),
        static_cast<unsigned>(out->size()));
}

std::string openGrowing(const std::string &sealed, unsigned char cipher, unsigned initial = 0) {
    auto length = static_cast<unsigned>(sealed.size());
    unsigned char *const data = dcpDecryptData(testKey(), cipher, bytesOf(sealed), &length, nullptr, initial);
    std::string result = data == nullptr ? "null" : std::string(reinterpret_cast<char *>(data), length);
    free(data);
    return result;
}

TEST(OneShot, RoundTripsInEveryShapeWithExactRoom) {
    const std::string data = testData(5000);
    for (const auto &shape : vextest::kShapes) {
        SCOPED_TRACE(shape.name);
        const std::string sealed = seal(data, shape.flags, shape.cipher);
        std::string out(data.size(), '\0');
        // Blowfish pads: its data may need a copy, not more room
        EXPECT_EQ(data.size(), open(sealed, shape.cipher, &out));
        EXPECT_EQ(data, out);
        for (const unsigned initial : {0U, 1U, 8U, 4999U, 5000U})
            EXPECT_EQ(data, openGrowing(sealed, shape.cipher, initial));
    }
}

TEST(OneShot, TellsTooLittleRoomAndBadArguments) {
    const std::string data(1000, 'r');
    unsigned char out[1200];
    LogCapture log;
    const auto encrypt = [&](const void *in, unsigned long n, unsigned long room) {
        errno = 0;
        return dcpEncryptDataToBuffer(testKey(), 3, static_cast<const unsigned char *>(in), n, out, room, 2);
    };
    EXPECT_EQ(-1, encrypt(data.data(), 1000, 1149));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_EQ(1058, encrypt(data.data(), 1000, 1150));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
    EXPECT_EQ(-1, encrypt(data.data(), 0, 1150));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, encrypt(data.data(), uint64_t{1} << 32, uint64_t{1} << 33));
    EXPECT_EQ(ERANGE, errno);
    EXPECT_EQ(-1, dcpEncryptDataToBuffer(testKey(), 9, bytesOf(data), 1000, out, 1150, 2));
    std::string small(10, '\0');
    const std::string sealed = seal(data, 2, 1);
    EXPECT_EQ(UINT_MAX, dcpDecryptDataToBuffer(testKey(), 1, nullptr, 1, out, 1));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(UINT_MAX, open(sealed, 1, &small));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_EQ(UINT_MAX, open(sealed, 1, &small, testKey(2)));
    EXPECT_EQ(EKEYREJECTED, errno);
    EXPECT_EQ(UINT_MAX, open("short", 1, &small));
    unsigned length = 5;
    EXPECT_EQ(nullptr, dcpDecryptData(testKey(), 1, nullptr, &length, nullptr, 0));
    EXPECT_EQ("null", openGrowing(sealed.substr(0, 100), 1));
    EXPECT_EQ(EBADMSG, errno);
    EXPECT_THAT(log.lines(),
        ElementsAre("1144 dcpEncryptDataToBuffer: invalid argument specified [Internal Error]",
            "34 dcpEncryptDataToBuffer: Encryption error (more than one call can take)", "22 Invalid cipher type 9",
            "22 dcpEncryptDataToBuffer: Could not initialize encryption (stream error)",
            "1120 invalid argument specified [Internal Error]", "105 <stream>: decryption error (buffer error)",
            "<stream>: decryption error (invalid or missing key)", "61 vexMagicDecode: insufficient header buffer",
            "<stream>: decryption error (buffer error)", "1120 invalid argument specified [Internal Error]",
            "decryption error (buffer error)"));
}

TEST(OneShot, CopiesStreamsInTheClearWithoutLookingFurther) {
    const std::string stream = Made(0x4001, kWindow).block("abcd").block("efgh", 99).trailer(8).bytes;
    // bytes of it, room, what comes out
    for (const auto &row :
        vextest::table(3, "58|100|abcdefgh|58|6|abcdef|14|100||21|100||24|100|ab|38|100|abcdefgh|")) {
        const std::vector<unsigned char> input(stream.begin(), stream.begin() + std::stol(row[0]));
        std::vector<unsigned char> out(std::stoul(row[1]));
        const unsigned n = dcpDecryptDataToBuffer(testKey(), 0, input.data(), static_cast<unsigned>(input.size()),
            out.data(), static_cast<unsigned>(out.size()));
        EXPECT_EQ(row[2], std::string(out.begin(), out.begin() + n)) << row[0];
    }
}

TEST(OneShot, GuessesTheFirstRoomAndTracesItsGrowth) {
    LogCapture log(LogCapture::kAll);
    const std::string packed = seal(std::string(200000, 'z'), 4, 0), input = std::to_string(packed.size());
    EXPECT_EQ(200000U, openGrowing(packed, 0).size());
    EXPECT_EQ("", openGrowing(Made(0x4001, kWindow).trailer(0).bytes, 0));
    const std::vector<std::string> traces = log.lines(VEX_LOG_TRACE);
    ASSERT_GE(traces.size(), 3U);
    EXPECT_EQ("dcpDecryptData: " + input + " bytes input, initial output buffer is 32768 bytes", traces[0]);
    EXPECT_THAT(traces[1], testing::StartsWith("dcpDecryptData: resizing output buffer from 32768 to "));
    EXPECT_THAT(
        traces, testing::Contains("<stream>: decrypt completed, " + input + " bytes input, 200000 bytes output)"));
}

TEST(DataKey, ComesFromTheSeedAndStaysOutOfTheTrace) {
    const auto derive = [](unsigned long length, const char *seed) {
        std::string key(33, '\0');
        EXPECT_EQ(0, dcpGetDecrptKeyFromSeed(key.data(), length, seed));
        return key;
    };
    EXPECT_EQ(derive(32, "seed").substr(0, 7) + std::string(26, '\0'), derive(7, "seed"));
    EXPECT_NE(derive(32, "seed"), derive(32, "sees"));
    EXPECT_EQ(derive(32, std::string(255, 's').c_str()), derive(32, std::string(300, 's').c_str()));

    const std::string text = "attack at dawn, again and again";
    std::string cipher(text.size() + 1, 'x');
    LogCapture log(LogCapture::kAll);
    EXPECT_EQ(0, dcpEncodeText(text.c_str(), cipher.data()));
    EXPECT_EQ('x', cipher.back());
    const std::unique_ptr<Cipher> ctr(Cipher::NewCipher(3));
    ASSERT_EQ(1, ctr->Init(1, VexKey(derive(32, nullptr).data()), nullptr));
    ctr->Decrypt(cipher.data(), static_cast<int>(text.size()), true, cipher.data(), nullptr);
    EXPECT_EQ(text + 'x', cipher);
    EXPECT_THAT(log.lines(0xff), ElementsAre(testing::MatchesRegex("plugin generated data key:[0-9a-f]{8} ")));
    char key[33];
    EXPECT_EQ(-1, dcpGetDecrptKeyFromSeed(nullptr, 32, nullptr));
    EXPECT_EQ(-1, dcpGetDecrptKeyFromSeed(key, 33, nullptr));
    EXPECT_EQ(-1, dcpEncodeText(nullptr, key));
    EXPECT_EQ(-1, dcpEncodeText("x", nullptr));
    EXPECT_EQ(
        "22 dcpGetDecrptKeyFromSeed, The input param data_key is NULL\n22 dcpGetDecrptKeyFromSeed, The data_key "
        "generate fails\n22 dcpEncodeText, the input param: plain_text is NULL\n"
        "22 dcpEncodeText, the output param: encode_text is NULL",
        log.text());
}

TEST(Streams, SurviveEveryFailureOfMemoryAndRandomness) {
    const std::vector<std::string> calls{"malloc", "calloc", "realloc", "new", "RAND_bytes"};
    const std::string data = testData(300000), sealed = seal(data, 2, 0);
    std::string out(800000, '\0');
    LogCapture log;
    for (const auto &shape : vextest::kShapes) {
        SCOPED_TRACE(shape.name);
        const std::string good = vextest::writeStream(shape, data).bytes;
        const unsigned runs = vextest::forEachFault(calls, ENOMEM, [&](const vextest::FaultScope &fault) {
            EXPECT_EQ(fault.fired(), vextest::writeStream(shape, data, 40000).result < 0);
            if (fault.fired()) return;
            EXPECT_EQ(fault.fired(), vextest::readStream(good, shape.cipher, 40000, 40000).result < 0);
        });
        EXPECT_GE(runs, 3U);
    }
    const unsigned runs = vextest::forEachFault(calls, ENOMEM, [&](const vextest::FaultScope &fault) {
        const long n = dcpEncryptDataToBuffer(testKey(), 0, bytesOf(data), data.size(), bytesOf(out), out.size(), 0);
        auto length = static_cast<unsigned>(sealed.size());
        unsigned char *const whole = dcpDecryptData(testKey(), 0, bytesOf(sealed), &length, nullptr, 1000);
        EXPECT_EQ(fault.fired(), n < 0 || whole == nullptr);
        free(whole);
    });
    EXPECT_GE(runs, 6U);
}

TEST(Streams, LzoWithoutWorkMemoryIsClosedAndSaysSoLater) {
    LogCapture log;
    c_stream_t stream{};
    vextest::FaultScope fault("malloc", 1, ENOMEM);
    EXPECT_EQ(0, dcpEncryptInit(&stream, 4, testKey(), 0));
    EXPECT_EQ(nullptr, stream.state);
    unsigned char room[64];
    stream.next_out = room;
    stream.avail_out = sizeof room;
    EXPECT_EQ(-2, dcpEncrypt(&stream));
    EXPECT_THAT(
        log.lines(), ElementsAre(testing::StartsWith("90 Could not allocate 131072 bytes (dcpEncryptInit at line ")));
}

}  // namespace
