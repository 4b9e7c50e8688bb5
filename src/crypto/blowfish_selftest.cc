#include <cstring>

#include <vex/blowfish.h>

namespace {

constexpr char kText[] = "This is a Blowfish test string\n";
constexpr int kTextLength = sizeof kText - 1;

/// The vector of the published reference code: blocks are compared as bytes, so byte order is
/// tested too.
bool knownAnswer(BlowfishContext *state) {
    static constexpr unsigned char kPlain[8] = {0, 0, 0, 1, 0, 0, 0, 2};
    static constexpr unsigned char kCipher[8] = {0xdf, 0x33, 0x3f, 0xd2, 0x30, 0xa7, 0x1b, 0xb4};
    unsigned char block[8];
    return BlowfishInit(state, reinterpret_cast<const unsigned char *>("TESTKEY"), 7) == 1 &&
           BlowfishEncodeECB(state, kPlain, block, 8) == 8 && std::memcmp(block, kCipher, 8) == 0 &&
           BlowfishDecodeECB(state, block, block, 8) == 8 && std::memcmp(block, kPlain, 8) == 0;
}

bool sameText(const unsigned char *text) {
    return std::memcmp(text, kText, kTextLength) == 0 && text[kTextLength] == 0;
}

bool roundTripEcb(BlowfishContext *state) {
    unsigned char text[kTextLength + 1];
    const int length = BlowfishEncodeECB(state, kText, text, kTextLength);
    return length == kTextLength + 1 && !sameText(text) &&
           BlowfishDecodeECB(state, text, text, length) == length && sameText(text);
}

bool roundTripCbc(BlowfishContext *state) {
    unsigned char text[kTextLength + 1];
    if (BlowfishInitCBC(state, "TESTKEY", 7, 0) != 1) return false;
    const int length = BlowfishEncode(state, kText, text, kTextLength);
    return length == kTextLength + 1 && !sameText(text) &&
           BlowfishInitCBC(state, "TESTKEY", 7, 1) == 1 &&
           BlowfishDecode(state, text, text, length) == length && sameText(text);
}

}  // namespace

int BlowfishTest(BlowfishContext *state) {
    return state != nullptr && knownAnswer(state) && roundTripEcb(state) && roundTripCbc(state) ? 1
                                                                                                : 0;
}
