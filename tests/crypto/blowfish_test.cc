#include <openssl/evp.h>
#include <openssl/provider.h>

#include <vex/blowfish.h>

#include "base/hex.h"
#include "support/test.h"

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
    for (const auto &row :
        vextest::table(3,
            "0000000000000000|0000000000000000|4EF997456198DD78|FFFFFFFFFFFFFFFF|FFFFFFFFFFFFFFFF|51866FD5B85ECB8A|"
            "3000000000000000|1000000000000001|7D856F9A613063F2|1111111111111111|1111111111111111|2466DD878B963C9D|"
            "0123456789ABCDEF|1111111111111111|61F9C3802281B096|1111111111111111|0123456789ABCDEF|7D0CC630AFDA1EC7|"
            "FEDCBA9876543210|0123456789ABCDEF|0ACEAB0FC6A0A28D|7CA110454A1A6E57|01A1D6D039776742|59C68245EB05282B|"
            "0131D9619DC1376E|5CD54CA83DEF57DA|B1B8CC0B250F09A0|07A1133E4A0B2686|0248D43806F67172|1730E5778BEA1DA4|")) {
        BlowfishContext state = stateFor(fromHex(row[0]));
        Bytes block(8);
        EXPECT_EQ(8, BlowfishEncodeECB(&state, fromHex(row[1]).data(), block.data(), 8));
        EXPECT_EQ(fromHex(row[2]), block);
        EXPECT_EQ(8, BlowfishDecodeECB(&state, block.data(), block.data(), 8));
        EXPECT_EQ(fromHex(row[1]), block);
    }
    BlowfishContext state = stateFor(fromHex("0123456789ABCDEFF0E1D2C3B4A59687"));
    state.chain[0] = 0xFEDCBA98;
    state.chain[1] = 0x76543210;
    char text[32] = "7654321 Now is the time for ";
    EXPECT_EQ(32, BlowfishEncodeCBC(&state, text, text, 29));
    EXPECT_EQ(fromHex("6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC"), Bytes(text, text + 32));
    EXPECT_EQ(1, BlowfishTest(&state));
}

/// What OpenSSL enciphers to.
Bytes openSsl(const char *mode, const Bytes &key, const Bytes &in) {
    static const std::unique_ptr<OSSL_LIB_CTX, decltype(&OSSL_LIB_CTX_free)> library(
        OSSL_LIB_CTX_new(), OSSL_LIB_CTX_free);
    static OSSL_PROVIDER *const legacy = OSSL_PROVIDER_load(library.get(), "legacy");
    EXPECT_NE(nullptr, legacy);
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    const std::unique_ptr<EVP_CIPHER, decltype(&EVP_CIPHER_free)> cipher(
        EVP_CIPHER_fetch(library.get(), mode, nullptr), EVP_CIPHER_free);
    static constexpr unsigned char kIv[8] = {};
    EVP_EncryptInit_ex2(context.get(), cipher.get(), nullptr, nullptr, nullptr);
    EVP_CIPHER_CTX_set_key_length(context.get(), static_cast<int>(key.size()));
    EVP_EncryptInit_ex2(context.get(), nullptr, key.data(), kIv, nullptr);
    Bytes out(in.size() + 8);
    int length = 0;
    EXPECT_EQ(1, EVP_EncryptUpdate(context.get(), out.data(), &length, in.data(), static_cast<int>(in.size())));
    out.resize(in.size());
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
            SCOPED_TRACE((chained ? "CBC " : "ECB ") + std::to_string(blocks) + " key " + std::to_string(key.size()));
            BlowfishContext encoder = stateFor(key), decoder = encoder;
            const char *const text = reinterpret_cast<char *>(key.data());
            if (chained) BlowfishInitCBC(&encoder, text, key.size(), 0), BlowfishInitCBC(&decoder, text, key.size(), 1);
            const Bytes cipher = openSsl(chained ? "BF-CBC" : "BF-ECB", key, plain);
            Bytes out(plain.size() + 3), back(cipher);
            // the chain goes on from call to call, and input overlaps its output by less than a block
            std::copy(plain.begin(), plain.end(), out.begin() + 3);
            BlowfishEncode(&encoder, out.data() + 3, out.data(), first);
            EXPECT_EQ(
                length - first, BlowfishEncode(&encoder, plain.data() + first, out.data() + first, length - first));
            out.resize(plain.size());
            EXPECT_EQ(cipher, out);
            EXPECT_EQ(first, BlowfishDecode(&decoder, back.data(), back.data(), first));
            BlowfishDecode(&decoder, cipher.data() + first, back.data() + first, length - first);
            EXPECT_EQ(plain, back);
        }
    }
}

TEST(Blowfish, KeepsToItsMode) {
    BlowfishContext state{};
    char block[8] = {};
    vextest::LogCapture log;
    BlowfishInitCBC(&state, "key", 3, 1);
    errno = ENOENT;
    EXPECT_EQ(-1, BlowfishEncode(&state, block, block, 8));
    EXPECT_EQ(EINVAL, errno);
    BlowfishInitCBC(&state, "key", 3, 2);
    EXPECT_EQ(-1, BlowfishDecode(&state, block, block, 8));
    EXPECT_EQ(-1, BlowfishDecode(nullptr, block, block, 8));
    EXPECT_EQ(0, BlowfishInitCBC(&state, "key", 0, 1));
    EXPECT_EQ(
        "2 BlowfishEncode: Invalid mode: 2\n22 BlowfishDecode: Invalid mode: 1\n"
        "22 BlowfishDecode: Invalid parameter: Null context\n"
        "14 BlowfishInitCBC: BlowfishInit failed to initialize",
        log.text());
}

}  // namespace
