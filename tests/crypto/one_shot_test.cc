// The functions over whole buffers, the data key, and every function when memory or random bytes
// run out.

#include "crypto/streams.h"

constexpr uint64_t kWindow = 0x20000;

static std::string seal(const std::string &data, unsigned long flags, unsigned char cipher) {
    std::string out(data.size() * 2 + 200, '\0');
    const long size =
        dcpEncryptDataToBuffer(testKey(), cipher, bytesOf(data), data.size(), bytesOf(out), out.size(), flags);
    out.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return out;
}

static unsigned unseal(
    const std::string &sealed, unsigned char cipher, std::string *out, const VexKey &key = testKey()) {
    return dcpDecryptDataToBuffer(key, cipher, bytesOf(sealed), static_cast<unsigned>(sealed.size()), bytesOf(*out),
        static_cast<unsigned>(out->size()));
}

static std::string unsealGrowing(const std::string &sealed, unsigned char cipher, unsigned initial = 0) {
    auto length = static_cast<unsigned>(sealed.size());
    unsigned char *const data = dcpDecryptData(testKey(), cipher, bytesOf(sealed), &length, nullptr, initial);
    std::string result = data == nullptr ? "null" : std::string(reinterpret_cast<char *>(data), length);
    free(data);
    return result;
}

TEST(OneShot, RoundTripsInEveryShapeWithExactRoom) {
    const std::string data = testData(5000);
    for (const auto &shape : kShapes) {
        SCOPED_TRACE(shape.name);
        const std::string sealed = seal(data, shape.flags, shape.cipher);
        std::string out(data.size(), '\0');
        // Blowfish pads: its data may need a copy, not more room
        EXPECT_EQ(data.size(), unseal(sealed, shape.cipher, &out));
        EXPECT_EQ(data, out);
        for (const unsigned initial : {0U, 1U, 8U, 4999U, 5000U})
            EXPECT_EQ(data, unsealGrowing(sealed, shape.cipher, initial));
    }
}

TEST(OneShot, TellsTooLittleRoomAndBadArguments) {
    const std::string data(1000, 'r'), sealed = seal(data, 2, 1);
    std::string out(1200, '\0'), small(10, '\0');
    const auto encrypt = [&](unsigned long n, unsigned long room, unsigned char cipher = 3) {
        return dcpEncryptDataToBuffer(testKey(), cipher, bytesOf(data), n, bytesOf(out), room, 2);
    };
    EXPECT_FAILS(ENOBUFS, -1, encrypt(1000, 1149));
    EXPECT_EQ(1058, encrypt(1000, 1150));
    EXPECT_FAILS_WITH(
        "34 dcpEncryptDataToBuffer: Encryption error (more than one call can take)", -1, encrypt(1UL << 32, 1UL << 33));
    EXPECT_FAILS_WITH(
        "22 Invalid cipher type 9\n22 dcpEncryptDataToBuffer: Could not initialize encryption (stream error)", -1,
        encrypt(1000, 1150, 9));
    EXPECT_FAILS_WITH("105 <stream>: decryption error (buffer error)", UINT_MAX, unseal(sealed, 1, &small));
    const std::string arguments = "invalid argument specified [Internal Error]";
    EXPECT_FAILS_LOGGING("1144 dcpEncryptDataToBuffer: " + arguments, EINVAL, -1, encrypt(0, 1150));
    EXPECT_FAILS_LOGGING("1120 " + arguments, EINVAL, UINT_MAX, unseal("", 1, &small));
    EXPECT_FAILS_LOGGING("<stream>: decryption error (invalid or missing key)", EKEYREJECTED, UINT_MAX,
        unseal(sealed, 1, &small, testKey(2)));
    EXPECT_FAILS_LOGGING("decryption error (buffer error)", EBADMSG, "null", unsealGrowing(sealed.substr(0, 100), 1));
}

TEST(OneShot, CopiesStreamsInTheClearWithoutLookingFurther) {
    const std::string stream = magic(0x4001, kWindow) + block("abcd") + block("efgh", 99) + trailer(8);
    // bytes of it, room, what comes out
    for (const auto &row : table(3, "58|100|abcdefgh|58|6|abcdef|14|100||21|100||24|100|ab|38|100|abcdefgh|")) {
        const std::vector<unsigned char> input(stream.begin(), stream.begin() + std::stol(row[0]));
        std::vector<unsigned char> out(std::stoul(row[1]));
        const unsigned n = dcpDecryptDataToBuffer(testKey(), 0, input.data(), static_cast<unsigned>(input.size()),
            out.data(), static_cast<unsigned>(out.size()));
        EXPECT_EQ(row[2], std::string(out.begin(), out.begin() + n)) << row[0];
    }
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
    EXPECT_THAT(log.lines(0xff), ElementsAre(MatchesRegex("plugin generated data key:[0-9a-f]{8} ")));
    const std::unique_ptr<Cipher> ctr(Cipher::NewCipher(3));
    ASSERT_EQ(1, ctr->Init(1, VexKey(derive(32, nullptr).data()), nullptr));
    ctr->Decrypt(cipher.data(), static_cast<int>(text.size()), true, cipher.data(), nullptr);
    EXPECT_EQ(text + 'x', cipher);
    EXPECT_FAILS(EINVAL, -1, dcpGetDecrptKeyFromSeed(cipher.data(), 33, nullptr));
}

TEST(Streams, SurviveEveryFailureOfMemoryAndRandomness) {
    const std::vector<std::string> calls{"malloc", "calloc", "realloc", "new", "RAND_bytes"};
    const std::string data = testData(300000), sealed = seal(data, 2, 0);
    std::string out(800000, '\0');
    LogCapture log;
    for (const auto &shape : kShapes) {
        SCOPED_TRACE(shape.name);
        const std::string good = writeStream(shape, data).bytes;
        const unsigned runs = forEachFault(calls, ENOMEM, [&](const FaultScope &fault) {
            EXPECT_EQ(fault.fired(), writeStream(shape, data, 40000).result < 0);
            if (fault.fired()) return;
            EXPECT_EQ(fault.fired(), readStream(good, shape.cipher, 40000, 40000).result < 0);
        });
        EXPECT_GE(runs, 3U);
    }
    EXPECT_THAT(log.lines(), Contains(StartsWith("90 Could not allocate 131072 bytes (dcpEncryptInit at line ")));
    const unsigned runs = forEachFault(calls, ENOMEM, [&](const FaultScope &fault) {
        const long n = dcpEncryptDataToBuffer(testKey(), 0, bytesOf(data), data.size(), bytesOf(out), out.size(), 0);
        auto length = static_cast<unsigned>(sealed.size());
        unsigned char *const whole = dcpDecryptData(testKey(), 0, bytesOf(sealed), &length, nullptr, 1000);
        EXPECT_EQ(fault.fired(), n < 0 || whole == nullptr);
        free(whole);
    });
    EXPECT_GE(runs, 6U);
}
