#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>

#include "base/hex.h"
#include "support/test.h"

using Bytes = std::vector<unsigned char>;
static Bytes fromHex(const std::string &text) {
    Bytes bytes(text.size() / 2);
    EXPECT_EQ(text.size(), vex::hexDecode(text.data(), bytes.size(), bytes.data()));
    return bytes;
}

static BlowfishContext stateFor(const Bytes &key) {
    BlowfishContext state{};
    EXPECT_EQ(1, BlowfishInit(&state, key.data(), key.size()));
    return state;
}

TEST(Blowfish, ChainsAndPadsAsThePublishedVectorDoes) {
    BlowfishContext state = stateFor(fromHex("0123456789ABCDEFF0E1D2C3B4A59687"));
    state.chain[0] = 0xFEDCBA98;
    state.chain[1] = 0x76543210;
    char text[32] = "7654321 Now is the time for ";
    EXPECT_EQ(32, BlowfishEncodeCBC(&state, text, text, 29));
    EXPECT_EQ(fromHex("6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC"), Bytes(text, text + 32));
    EXPECT_EQ(1, BlowfishTest(&state));
}

/// What OpenSSL enciphers to.
static Bytes openSsl(bool chained, const Bytes &key, const Bytes &in) {
    BF_KEY schedule;
    BF_set_key(&schedule, static_cast<int>(key.size()), key.data());
    Bytes out(in.size());
    unsigned char vector[8] = {};
    if (chained) BF_cbc_encrypt(in.data(), out.data(), static_cast<long>(in.size()), &schedule, vector, BF_ENCRYPT);
    for (size_t at = 0; !chained && at < in.size(); at += 8) BF_ecb_encrypt(&in[at], &out[at], &schedule, BF_ENCRYPT);
    return out;
}

TEST(Blowfish, AgreesWithOpenSslForAnyKeyAndLengthInPlaceAndOverlapping) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
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
            const Bytes cipher = openSsl(chained, key, plain);
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
    EXPECT_FAILS_LOGGING(
        "14 BlowfishInitCBC: BlowfishInit failed to initialize", EINVAL, 0, BlowfishInitCBC(&state, "key", 0, 1));
    BlowfishInitCBC(&state, "key", 3, 1);
    EXPECT_FAILS_LOGGING("0 BlowfishEncode: Invalid mode: 2", EINVAL, -1, BlowfishEncode(&state, block, block, 8));
    BlowfishInitCBC(&state, "key", 3, 2);
    EXPECT_FAILS_LOGGING("0 BlowfishDecode: Invalid mode: 1", EINVAL, -1, BlowfishDecode(&state, block, block, 8));
}
