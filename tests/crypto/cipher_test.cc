#include "crypto/streams.h"

constexpr const char *kNames[] = {"Blowfish", "AES-256-CFB", "AES-256-OFB", "AES-256-CTR"};

static std::unique_ptr<Cipher> made(int type) { return std::unique_ptr<Cipher>(Cipher::NewCipher(type)); }

static std::string expected(int type, bool session, const std::string &plain) {
    const EVP_CIPHER *const modes[] = {nullptr, EVP_aes_256_cfb128(), EVP_aes_256_ofb(), EVP_aes_256_ctr()};
    if (type != 0) return evp(modes[type], true, nullptr, plain);
    const VexKey key = testKey();
    BlowfishContext state{};
    BlowfishInitCBC(&state, reinterpret_cast<const char *>(&key), 32, 0);
    if (!session) state.mode = VEX_BLOWFISH_ECB;
    std::string out((plain.size() + 7) / 8 * 8, '\0');
    BlowfishEncode(&state, plain.data(), out.data(), static_cast<int>(plain.size()));
    return out;
}

/// Enciphers @p plain in random pieces of at most @p most bytes, sometimes in place.
static std::string inPieces(Cipher *cipher, const std::string &plain, unsigned most, std::mt19937 &random) {
    std::string bytes = plain + std::string(16, '\0');
    size_t in = 0, out = 0;
    while (in < plain.size()) {
        const size_t piece = std::min<size_t>(1 + random() % most, plain.size() - in);
        const std::string copy = bytes.substr(in, piece);  // in place, the output never overtakes the input
        const char *const from = random() % 2 == 0 ? copy.data() : bytes.data() + in;
        in += piece;
        out += static_cast<size_t>(cipher->Update(from, static_cast<int>(piece), bytes.data() + out));
        EXPECT_EQ(static_cast<int>(in - out), cipher->GetAcUsed());
    }
    unsigned padding = 99;
    out += static_cast<size_t>(cipher->Final(bytes.data() + out, &padding));
    EXPECT_EQ(out - in, padding);
    return bytes.substr(0, out);
}

TEST(Ciphers, GiveTheSameBytesHoweverTheInputIsCutAndInPlace) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    const std::string plain = testData(301);
    for (int type = 0; type < 4; ++type) {
        for (const bool session : {false, true}) {
            SCOPED_TRACE(std::string(kNames[type]) + (session ? " session" : ""));
            const auto cipher = made(type);
            EXPECT_STREQ(kNames[type], cipher->GetDescription());
            const auto begin = [&](int mode) {
                ASSERT_EQ(1,
                    session ? cipher->InitSession(mode, testKey(), nullptr) : cipher->Init(mode, testKey(), nullptr));
            };
            for (unsigned most = 1; most <= 50; ++most) {
                begin(0);
                std::string bytes = inPieces(cipher.get(), plain, most, random);
                ASSERT_EQ(expected(type, session, plain), bytes);
                begin(1);
                cipher->Decrypt(bytes.data(), static_cast<int>(bytes.size()), true, bytes.data(), nullptr);
                EXPECT_EQ(plain, bytes.substr(0, plain.size()));
            }
            cipher->Free();
        }
    }
}

TEST(Ciphers, RefuseBadArgumentsWithOneLineEach) {
    char block[16] = {};
    const auto fish = made(0), aes = made(1);
    ASSERT_EQ(2, fish->Init(0, testKey(), nullptr) + aes->Init(0, testKey(), nullptr));
    EXPECT_FAILS_WITH("22 Invalid cipher type 4", nullptr, Cipher::NewCipher(4));
    EXPECT_FAILS_WITH("22 Update: invalid arguments", -1, fish->Update(nullptr, 0, block));
    EXPECT_FAILS_WITH("22 Final: invalid arguments", -1, aes->Final(nullptr, nullptr));
    EXPECT_FAILS_WITH("22 Update: invalid arguments\n22 Process: Update failed for AES-256-CFB(0)", -1,
        aes->Process(block, -1, false, block, nullptr));
    aes->Free();
    EXPECT_FAILS_LOGGING("0 Update: EVP_CipherUpdate failed(0)", EINVAL, -1, aes->Update(block, 1, block));
    EXPECT_FAILS_WITH("22 BlowfishEncode: Invalid parameter: Null context\n22 Update: UpdateAligned failed", -1,
        BlowfishCipher().Update(block, 8, block));
}

TEST(VexKey, HoldsThirtyTwoBytesAndATerminator) {
    char buffer[33] = "unchanged";
    VexKey key;
    EXPECT_FALSE(key.CopyToBuffer(buffer, 32));
    for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(key.NewKey(nullptr).CopyToBuffer(buffer, 33));
        ASSERT_EQ(32U, strlen(buffer)) << "a random key holds no zero byte";
    }
    EXPECT_EQ(0, key.Compare(buffer));
}
