#include <errno.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <stdlib.h>

#include <random>
#include <string>
#include <utility>

#include <vex/encoding.h>

#include "support/faults.h"
#include "support/seed.h"
#include "support/table.h"

namespace {

class Encoding : public testing::Test {
protected:
    std::string randomBytes(size_t size) {
        std::string bytes(size, '\0');
        for (char &c : bytes) c = static_cast<char>(random_());
        return bytes;
    }
    std::mt19937 random_{static_cast<unsigned>(vextest::testSeed())};
};

TEST_F(Encoding, Base64AgreesWithOpenSslInExactRoomAndRefusesEveryDeviation) {
    for (unsigned size = 0; size < 200; ++size) {
        const std::string bytes = randomBytes(size);
        char ours[300], theirs[300], back[200];
        const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(theirs),
            reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(size));
        ASSERT_EQ(-1, Base64Encode(bytes.data(), size, ours, static_cast<unsigned>(length)));
        ASSERT_EQ(ENOBUFS, errno);
        ASSERT_EQ(length, Base64Encode(bytes.data(), size, ours, static_cast<unsigned>(length) + 1));
        ASSERT_STREQ(theirs, ours);
        ASSERT_EQ(static_cast<int>(size), Base64Decode(ours, back, size));
        ASSERT_EQ(bytes, std::string(back, size));
        ASSERT_EQ(size > 0 ? -1 : 0, Base64Decode(ours, back, size - (size > 0)));
    }
    char out[16];
    for (const char *text :
        {"Zg", "Zg=", "Zg==\n", "Z===", "====", "Zh==", "Zm9=", "Zm=v", "Zg==Zg==", "Zm8 ", "Zm8-", "Zm9v="}) {
        EXPECT_EQ(-1, Base64Decode(text, out, sizeof out)) << text;
        EXPECT_EQ(EINVAL, errno);
    }
}

TEST_F(Encoding, HexRoundTripsAndFindsEveryBadCharacter) {
    for (unsigned size = 0; size < 40; ++size) {
        const std::string bytes = randomBytes(size);
        char text[81], back[40];
        ASSERT_EQ(-1, HexEncode(bytes.data(), size, text, 2 * size));
        ASSERT_EQ(static_cast<int>(2 * size), HexEncode(bytes.data(), size, text, 2 * size + 1));
        for (unsigned i = 0; i < 2 * size; ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i / 2]);
            ASSERT_EQ("0123456789abcdef"[i % 2 == 0 ? byte >> 4 : byte & 15], text[i]);
            if (random_() % 2 == 0) text[i] = static_cast<char>(toupper(text[i]));
        }
        ASSERT_EQ(size > 0 ? -1 : 0, HexDecode(text, back, size - (size > 0)));
        ASSERT_EQ(static_cast<int>(size), HexDecode(text, back, size));
        ASSERT_EQ(bytes, std::string(back, size));
        for (unsigned i = 0; i < 2 * size; ++i) {
            for (const char bad : {'g', 'G', '/', ':', '@', '`', '\x80', '\0', '\xc1'}) {
                const char good = std::exchange(text[i], bad);
                ASSERT_EQ(bad == '\0' && i % 2 == 0 ? static_cast<int>(i / 2) : -1, HexDecode(text, back, size));
                text[i] = good;
            }
        }
    }
}

TEST_F(Encoding, Utf8IsWellFormedAsTheStandardSays) {
    for (const auto &row : vextest::table(2,
             "1|plain|1|\xc2\x80\xdf\xbf|1|\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80|"
             "1|\xf0\x90\x80\x80\xf4\x8f\xbf\xbf|0|\x80|0|\xc1\xbf|0|\xe0\x9f\xbf|0|\xed\xa0\x80|"
             "0|\xf0\x8f\xbf\xbf|0|\xf4\x90\x80\x80|0|\xf5\x80\x80\x80|0|\xe2\x82|0|\xc3(|0|\xff|"))
        EXPECT_EQ(row[0] == "1" ? 1 : 0, vex_utf8_valid(row[1].data(), row[1].size())) << row[1];
}

TEST_F(Encoding, EveryByteStringSurvivesTheWayThroughWideText) {
    for (int round = 0; round < 2000; ++round) {
        const std::string text = randomBytes(1 + random_() % 12).c_str();
        const auto length = static_cast<size_t>(vex_utf8_to_wcs(text.c_str(), nullptr, 0));
        std::wstring wide(length + 2, L'#');
        ASSERT_EQ(length, static_cast<size_t>(vex_utf8_to_wcs(text.c_str(), wide.data(), length + 1)));
        ASSERT_EQ(std::wstring({L'\0', L'#'}), wide.substr(length));
        char *back = vex_wcs_to_utf8_malloced(wide.data());
        ASSERT_STREQ(text.c_str(), back);
        free(back);
        if (length == 0) continue;
        ASSERT_EQ(-1, vex_utf8_to_wcs(text.c_str(), wide.data(), length));
        ASSERT_EQ(length - 1, wcslen(wide.c_str())) << "the head stays, terminated";
    }
    wchar_t wide[8];
    ASSERT_EQ(3, vex_utf8_to_wcs("\xe2\x82\xac\xff\xf0\x9f\x92\xbe", wide, 8));
    EXPECT_EQ(std::wstring(L"\x20ac\xdcff\x1f4be"), wide);
    for (const wchar_t bad : {0xd800, 0xdc7f, 0xdd00, 0xdfff, 0x110000}) {
        EXPECT_EQ(nullptr, vex_wcs_to_utf8_malloced(std::wstring(1, bad).c_str()));
        EXPECT_EQ(EILSEQ, errno);
    }
}

TEST_F(Encoding, TextIsCopiedOrConvertedToUtf8AndLackOfMemoryTold) {
    char *text = strtoutf8_malloced("gr\xc3\xbc\xc3\x9f");
    EXPECT_STREQ("gr\xc3\xbc\xc3\x9f", text);
    free(text);
    EXPECT_EQ(nullptr, strtoutf8_malloced("gr\xfc\xdf"));  // the C locale knows ASCII only
    EXPECT_EQ(EILSEQ, errno);
    vextest::FaultScope fault("malloc", 1, ENOMEM);
    EXPECT_EQ(nullptr, strtoutf8_malloced("gr\xfc\xdf"));
    EXPECT_EQ(ENOMEM, errno);
}

}  // namespace
