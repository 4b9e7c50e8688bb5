#include <gmock/gmock.h>

#include <memory>
#include <random>
#include <string>

#include <vex/blowfish.h>
#include <vex/cipher.h>

#include "crypto/streams.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using vextest::bytesOf;
using vextest::testKey;

std::unique_ptr<Cipher> made(int type) {
    return std::unique_ptr<Cipher>(Cipher::NewCipher(type));
}

const EVP_CIPHER *const kModes[] = {nullptr, EVP_aes_256_cfb128(), EVP_aes_256_ofb(), EVP_aes_256_ctr()};

std::string expected(int type, bool session, const std::string &plain) {
    if (type != 0) return vextest::evp(kModes[type], true, nullptr, plain);
    const VexKey key = testKey();
    BlowfishContext state{};
    BlowfishInitCBC(&state, reinterpret_cast<const char *>(&key), 32, 0);
    if (!session) state.mode = VEX_BLOWFISH_ECB;
    std::string out(plain.size() + 8, '\0');
    out.resize(static_cast<size_t>(BlowfishEncode(&state, plain.data(), out.data(), static_cast<int>(plain.size()))));
    return out;
}

TEST(Ciphers, GiveTheSameBytesHoweverTheInputIsCutAndInPlace) {
    static const struct {
        const char *name;
        int header, block, padding;
    } kTypes[] = {
        {"Blowfish", 8, 8, 8}, {"AES-256-CFB", 8, 16, 1}, {"AES-256-OFB", 8, 16, 1}, {"AES-256-CTR", 16, 16, 1}};
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    const std::string plain = vextest::testData(301);
    for (int type = 0; type < 4; ++type) {
        for (const bool session : {false, true}) {
            SCOPED_TRACE(std::string(kTypes[type].name) + (session ? " session" : ""));
            const std::string want = expected(type, session, plain);
            auto cipher = made(type), decipher = made(type);
            EXPECT_STREQ(kTypes[type].name, cipher->GetDescription());
            EXPECT_EQ(kTypes[type].header, cipher->GetHeaderSize());
            EXPECT_EQ(kTypes[type].block, cipher->GetBlockSize());
            EXPECT_EQ(kTypes[type].padding, cipher->GetPaddingSize());
            for (int round = 0; round < 50; ++round) {
                for (auto *one : {&cipher, &decipher}) {
                    const int mode = one == &cipher ? 0 : 1;
                    ASSERT_EQ(1, session ? (*one)->InitSession(mode, testKey(), nullptr)
                                         : (*one)->Init(mode, testKey(), nullptr));
                }
                std::string bytes = plain + std::string(16, '\0');
                size_t in = 0, out = 0;
                while (in < plain.size()) {
                    const size_t piece = std::min<size_t>(1 + random() % (round + 1), plain.size() - in);
                    // in place: the output never overtakes the input
                    const std::string copy = bytes.substr(in, piece);
                    const bool apart = random() % 2 == 0;
                    const int made_now = cipher->Update(
                        apart ? copy.data() : bytes.data() + in, static_cast<int>(piece), bytes.data() + out);
                    ASSERT_GE(made_now, 0);
                    in += piece;
                    out += static_cast<size_t>(made_now);
                    ASSERT_EQ(static_cast<int>(in - out), cipher->GetAcUsed());
                }
                unsigned padding = 99;
                out += static_cast<size_t>(cipher->Final(bytes.data() + out, &padding));
                EXPECT_EQ(type == 0 ? 3U : 0U, padding);
                bytes.resize(out);
                ASSERT_EQ(want, bytes);
                ASSERT_EQ(static_cast<int>(out),
                    decipher->Decrypt(bytes.data(), static_cast<int>(out), true, bytes.data(), &padding));
                EXPECT_EQ(plain, bytes.substr(0, plain.size()));
            }
            cipher->Free();
        }
    }
}

TEST(Ciphers, RefuseBadArgumentsWithOneLineEach) {
    vextest::LogCapture log;
    EXPECT_EQ(nullptr, Cipher::NewCipher(4));
    EXPECT_EQ(nullptr, Cipher::NewCipher(-1));
    EXPECT_STREQ("Unknown", Cipher::GetCipherDescription(256));
    char block[16] = {};
    for (const int type : {0, 1}) {
        auto cipher = made(type);
        ASSERT_EQ(1, cipher->Init(0, testKey(), nullptr));
        EXPECT_EQ(0, cipher->Update(block, 0, block));
        EXPECT_EQ(-1, cipher->Update(nullptr, 0, block));
        EXPECT_EQ(-1, cipher->Update(block, -1, block));
        EXPECT_EQ(-1, cipher->Final(nullptr, nullptr));
        EXPECT_EQ(-1, cipher->Process(block, 1, false, nullptr, nullptr));
        EXPECT_EQ(EINVAL, errno);
    }
    BlowfishCipher unready;
    EXPECT_EQ(-1, unready.Update(block, 8, block));
    EXPECT_THAT(
        log.lines(), testing::ElementsAre("22 Invalid cipher type 4", "22 Invalid cipher type -1",
                         "22 Update: invalid arguments", "22 Update: invalid arguments", "22 Final: invalid argument",
                         "22 Update: invalid arguments", "22 Process: Update failed for Blowfish(0)",
                         "22 Update: invalid arguments", "22 Update: invalid arguments", "22 Final: invalid arguments",
                         "22 Update: invalid arguments", "22 Process: Update failed for AES-256-CFB(0)",
                         "22 BlowfishEncode: Invalid parameter: Null context", "22 Update: UpdateAligned failed"));
}

TEST(VexKey, HoldsThirtyTwoBytesAndATerminator) {
    const VexKey key = testKey();
    char buffer[33] = "unchanged";
    EXPECT_FALSE(key.CopyToBuffer(buffer, 32));
    EXPECT_STREQ("unchanged", buffer);
    EXPECT_TRUE(key.CopyToBuffer(buffer, 33));
    EXPECT_EQ(0, key.Compare(buffer));
    EXPECT_EQ('\0', buffer[32]);
    EXPECT_GT(0, VexKey::Zero().Compare(buffer));
    VexKey random;
    for (int i = 0; i < 200; ++i) {
        random.NewKey(nullptr).CopyToBuffer(buffer, sizeof buffer);
        ASSERT_EQ(32U, std::char_traits<char>::length(buffer)) << "a zero byte";
    }
    random.AssignZero();
    EXPECT_EQ(0, random.Compare(&VexKey::Zero()));
}

TEST(Ciphers, VectorsAreDrawnAndFailWithTheRandomSource) {
    for (int type = 0; type < 4; ++type) {
        auto cipher = made(type);
        std::string iv(17, 'x');
        EXPECT_EQ(0, cipher->makeIv(vextest::bytesOf(iv)));
        const auto size = static_cast<size_t>(cipher->GetHeaderSize());
        EXPECT_EQ(std::string(17 - size, 'x'), iv.substr(size));
        EXPECT_EQ(size == 8, iv.substr(0, 4) == iv.substr(4, 4));
        vextest::LogCapture log;
        vextest::FaultScope fault("RAND_bytes", 1, EIO);
        EXPECT_EQ(-1, cipher->makeIv(vextest::bytesOf(iv)));
        EXPECT_EQ(1U, log.lines().size());
    }
}

}  // namespace
