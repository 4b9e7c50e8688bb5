#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <random>
#include <string>
#include <vector>

#include <vex/blowfish.h>

#include "base/hex.h"
#include "support/log_capture.h"
#include "support/seed.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes fromHex(const std::string &text) {
    Bytes bytes(text.size() / 2);
    EXPECT_EQ(text.size(), vex::hexDecode(text.data(), bytes.size(), bytes.data()));
    return bytes;
}

BlowfishContext stateFor(const Bytes &key) {
    BlowfishContext state{};
    EXPECT_EQ(1, BlowfishInit(&state, key.data(), key.size()));
    return state;
}

TEST(Blowfish, MatchesThePublishedVectors) {
    // clang-format off
    static const struct { const char *key, *plain, *cipher; } kRows[] = {
        {"0000000000000000", "0000000000000000", "4EF997456198DD78"},
        {"FFFFFFFFFFFFFFFF", "FFFFFFFFFFFFFFFF", "51866FD5B85ECB8A"},
        {"3000000000000000", "1000000000000001", "7D856F9A613063F2"},
        {"1111111111111111", "1111111111111111", "2466DD878B963C9D"},
        {"0123456789ABCDEF", "1111111111111111", "61F9C3802281B096"},
        {"1111111111111111", "0123456789ABCDEF", "7D0CC630AFDA1EC7"},
        {"FEDCBA9876543210", "0123456789ABCDEF", "0ACEAB0FC6A0A28D"},
        {"7CA110454A1A6E57", "01A1D6D039776742", "59C68245EB05282B"},
        {"0131D9619DC1376E", "5CD54CA83DEF57DA", "B1B8CC0B250F09A0"},
        {"07A1133E4A0B2686", "0248D43806F67172", "1730E5778BEA1DA4"},
    };
    // clang-format on
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.cipher);
        BlowfishContext state = stateFor(fromHex(row.key));
        Bytes block(8);
        EXPECT_EQ(8, BlowfishEncodeECB(&state, fromHex(row.plain).data(), block.data(), 8));
        EXPECT_EQ(fromHex(row.cipher), block);
        EXPECT_EQ(8, BlowfishDecodeECB(&state, block.data(), block.data(), 8));
        EXPECT_EQ(fromHex(row.plain), block);
    }
    BlowfishContext state = stateFor(fromHex("0123456789ABCDEFF0E1D2C3B4A59687"));
    state.chain[0] = 0xFEDCBA98;
    state.chain[1] = 0x76543210;
    char text[32] = "7654321 Now is the time for ";
    EXPECT_EQ(32, BlowfishEncodeCBC(&state, text, text, 29));
    EXPECT_EQ(fromHex("6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC"), Bytes(text, text + 32));
    EXPECT_EQ(1, BlowfishTest(&state));
    EXPECT_EQ(0, BlowfishTest(nullptr));
}

Bytes openSsl(const char *mode, bool encrypt, const Bytes &key, const Bytes &in) {
    static const std::unique_ptr<OSSL_LIB_CTX, decltype(&OSSL_LIB_CTX_free)> library(
        OSSL_LIB_CTX_new(), OSSL_LIB_CTX_free);
    static OSSL_PROVIDER *const legacy = OSSL_PROVIDER_load(library.get(), "legacy");
    EXPECT_NE(nullptr, legacy);
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    const std::unique_ptr<EVP_CIPHER, decltype(&EVP_CIPHER_free)> cipher(
        EVP_CIPHER_fetch(library.get(), mode, nullptr), EVP_CIPHER_free);
    static constexpr unsigned char kIv[8] = {};
    EVP_CipherInit_ex2(context.get(), cipher.get(), nullptr, nullptr, encrypt, nullptr);
    EVP_CIPHER_CTX_set_key_length(context.get(), static_cast<int>(key.size()));
    EVP_CipherInit_ex2(context.get(), nullptr, key.data(), kIv, encrypt, nullptr);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    Bytes out(in.size() + 8);
    int length = 0;
    EXPECT_EQ(1, EVP_CipherUpdate(context.get(), out.data(), &length, in.data(), static_cast<int>(in.size())));
    out.resize(static_cast<size_t>(length));
    return out;
}

TEST(Blowfish, AgreesWithOpenSslForAnyKeyAndLengthInPlaceAndOverlapping) {
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    for (size_t blocks = 0; blocks < 40; ++blocks) {
        Bytes key(1 + random() % 56), plain(blocks * 8);
        for (auto *bytes : {&key, &plain})
            for (auto &byte : *bytes) byte = static_cast<unsigned char>(random());
        const int length = static_cast<int>(plain.size()), first = static_cast<int>(blocks / 2 * 8);
        for (const bool chained : {false, true}) {
            const char *const mode = chained ? "BF-CBC" : "BF-ECB";
            SCOPED_TRACE(
                std::string(mode) + " blocks " + std::to_string(blocks) + " key " + std::to_string(key.size()));
            BlowfishContext encoder = stateFor(key), decoder = encoder;
            if (chained) {
                BlowfishInitCBC(&encoder, reinterpret_cast<char *>(key.data()), key.size(), 0);
                BlowfishInitCBC(&decoder, reinterpret_cast<char *>(key.data()), key.size(), 1);
            }
            const Bytes cipher = openSsl(mode, true, key, plain);
            Bytes out(plain.size() + 3), back(cipher);
            // the chain goes on from call to call, and input that overlaps its output by less than
            // a block
            std::copy(plain.begin(), plain.end(), out.begin() + 3);
            EXPECT_EQ(length, BlowfishEncode(&encoder, out.data() + 3, out.data(), first) +
                                  BlowfishEncode(&encoder, plain.data() + first, out.data() + first, length - first));
            out.resize(plain.size());
            EXPECT_EQ(cipher, out);
            EXPECT_EQ(first, BlowfishDecode(&decoder, back.data(), back.data(), first));
            EXPECT_EQ(
                length - first, BlowfishDecode(&decoder, cipher.data() + first, back.data() + first, length - first));
            EXPECT_EQ(plain, back);
        }
    }
}

TEST(Blowfish, PadsWithZerosAndKeepsToItsMode) {
    static const struct { int length, padded; } kRows[] = {{0, 0}, {1, 8}, {8, 8}, {9, 16}};
    for (const auto &row : kRows) EXPECT_EQ(row.padded, BlowfishGetOutputLength(row.length));
    BlowfishContext state = stateFor(Bytes(32, 7));
    const std::string text = "This is a Blowfish test string\n";
    char out[33] = {}, back[33] = {};
    out[32] = 'x';
    EXPECT_EQ(32, BlowfishEncodeECB(&state, text.data(), out, 31));
    EXPECT_EQ('x', out[32]);
    EXPECT_EQ(32, BlowfishDecodeECB(&state, out, back, 32));
    EXPECT_EQ(text + std::string(2, '\0'), std::string(back, 33));

    vextest::LogCapture log;
    EXPECT_EQ(1, BlowfishInitCBC(&state, "key", 3, 1));
    errno = ENOENT;
    EXPECT_EQ(-1, BlowfishEncode(&state, text.data(), out, 8));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(1, BlowfishInitCBC(&state, "key", 3, 2));
    EXPECT_EQ(-1, BlowfishDecode(&state, text.data(), out, 8));
    EXPECT_EQ(-1, BlowfishDecode(nullptr, text.data(), out, 8));
    EXPECT_EQ(0, BlowfishInitCBC(&state, "key", 0, 1));
    EXPECT_THAT(
        log.lines(), testing::ElementsAre("2 BlowfishEncode: Invalid mode: 2", "22 BlowfishDecode: Invalid mode: 1",
                         "22 BlowfishDecode: Invalid parameter: Null context",
                         "14 BlowfishInitCBC: BlowfishInit failed to initialize"));
}

}  // namespace
