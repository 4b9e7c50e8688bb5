#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <stdlib.h>

#include <clocale>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <vex/encoding.h>

#include "support/faults.h"
#include "support/seed.h"
#include "support/table.h"

namespace {

std::string randomBytes(std::mt19937 &random, size_t size) {
    std::string bytes(size, '\0');
    for (char &c : bytes) c = static_cast<char>(random());
    return bytes;
}

TEST(Base64, PublishedVectorsFitExactlyAndNoTighter) {
    for (const auto &row :
        vextest::table(2, "||f|Zg==|fo|Zm8=|foo|Zm9v|foob|Zm9vYg==|fooba|Zm9vYmE=|foobar|Zm9vYmFy|")) {
        char buffer[16];
        const auto plain = static_cast<unsigned>(row[0].size());
        const auto text = static_cast<unsigned>(row[1].size());
        EXPECT_EQ(static_cast<int>(text), Base64Encode(row[0].data(), plain, buffer, text + 1));
        EXPECT_EQ(row[1], buffer);
        EXPECT_EQ(-1, Base64Encode(row[0].data(), plain, buffer, text));
        EXPECT_EQ(ENOBUFS, errno);
        EXPECT_EQ(static_cast<int>(plain), Base64Decode(row[1].c_str(), buffer, plain));
        EXPECT_EQ(row[0], std::string(buffer, plain));
        EXPECT_EQ(plain > 0 ? -1 : 0, Base64Decode(row[1].c_str(), buffer, plain - (plain > 0)));
    }
}

TEST(Base64, AgreesWithOpenSslAndRefusesEveryDeviation) {
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    for (unsigned size = 0; size < 200; ++size) {
        const std::string bytes = randomBytes(random, size);
        char ours[300], theirs[300], back[200];
        const int length = Base64Encode(bytes.data(), size, ours, sizeof ours);
        ASSERT_EQ(length, EVP_EncodeBlock(reinterpret_cast<unsigned char *>(theirs),
                              reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(size)));
        ASSERT_STREQ(theirs, ours);
        ASSERT_EQ(static_cast<int>(size), Base64Decode(ours, back, sizeof back));
        ASSERT_EQ(bytes, std::string(back, size));
    }
    char out[16];
    for (const char *text :
        {"Zg", "Zg=", "Zg==\n", "Z===", "====", "Zh==", "Zm9=", "Zm=v", "Zg==Zg==", "Zm8 ", "Zm8-", "Zm9v="}) {
        EXPECT_EQ(-1, Base64Decode(text, out, sizeof out)) << text;
        EXPECT_EQ(EINVAL, errno);
    }
}

TEST(Hex, RoundTripsAndFindsEveryBadCharacter) {
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    for (unsigned size = 0; size < 40; ++size) {
        const std::string bytes = randomBytes(random, size);
        char text[81], back[40];
        ASSERT_EQ(-1, HexEncode(bytes.data(), size, text, 2 * size));
        ASSERT_EQ(static_cast<int>(2 * size), HexEncode(bytes.data(), size, text, 2 * size + 1));
        for (unsigned i = 0; i < 2 * size; ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i / 2]);
            ASSERT_EQ("0123456789abcdef"[i % 2 == 0 ? byte >> 4 : byte & 15], text[i]);
            if (random() % 2 == 0) text[i] = static_cast<char>(toupper(text[i]));
        }
        ASSERT_EQ(static_cast<int>(size), HexDecode(text, back, size));
        ASSERT_EQ(bytes, std::string(back, size));
        for (unsigned i = 0; i < 2 * size; ++i) {
            for (const char bad : {'g', 'G', '/', ':', '@', '`', '\x80', ' ', '\xc1'}) {
                const char good = std::exchange(text[i], bad);
                ASSERT_EQ(-1, HexDecode(text, back, size)) << i << bad;
                text[i] = good;
            }
        }
    }
    char out[4];
    EXPECT_EQ(-1, HexDecode("abc", out, sizeof out));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, HexDecode("abcd", out, 1));
    EXPECT_EQ(ENOBUFS, errno);
}

TEST(Utf8, WellFormednessFollowsTheStandard) {
    for (const auto &row : vextest::table(2,
             "1|plain|1|\xc2\x80\xdf\xbf|1|\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80|"
             "1|\xf0\x90\x80\x80\xf4\x8f\xbf\xbf|0|\x80|0|\xc1\xbf|0|\xe0\x9f\xbf|0|\xed\xa0\x80|"
             "0|\xf0\x8f\xbf\xbf|0|\xf4\x90\x80\x80|0|\xf5\x80\x80\x80|0|\xe2\x82|0|\xc3(|0|\xff|"))
        EXPECT_EQ(row[0] == "1" ? 1 : 0, vex_utf8_valid(row[1].data(), row[1].size())) << row[1];
}

TEST(Utf8, EveryByteStringSurvivesTheWayThroughWideText) {
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    for (int round = 0; round < 2000; ++round) {
        std::string text = randomBytes(random, 1 + random() % 12);
        for (char &c : text)
            if (c == '\0') c = 'x';
        std::vector<wchar_t> wide(32, L'#');
        const ssize_t length = vex_utf8_to_wcs(text.c_str(), nullptr, 0);
        const auto room = static_cast<size_t>(length);
        ASSERT_EQ(length, vex_utf8_to_wcs(text.c_str(), wide.data(), room + 1));
        ASSERT_EQ(L'#', wide[room + 1]);
        char *back = vex_wcs_to_utf8_malloced(wide.data());
        ASSERT_STREQ(text.c_str(), back);
        free(back);
        ASSERT_EQ(-1, vex_utf8_to_wcs(text.c_str(), wide.data(), room));
        ASSERT_EQ(ENOBUFS, errno);
        ASSERT_EQ(L'\0', wide[room - 1]);
    }
    wchar_t wide[8];
    ASSERT_EQ(3, vex_utf8_to_wcs("\xe2\x82\xac\xff\xf0\x9f\x92\xbe", wide, 8));
    EXPECT_EQ(std::wstring(L"\x20ac\xdcff\x1f4be"), wide);
    for (const wchar_t bad : {0xd800, 0xdc7f, 0xdd00, 0xdfff, 0x110000}) {
        const wchar_t text[] = {L'a', bad, L'\0'};
        EXPECT_EQ(nullptr, vex_wcs_to_utf8_malloced(text));
        EXPECT_EQ(EILSEQ, errno);
    }
}

TEST(TextToUtf8, CopiesOrConvertsAndSurvivesLackOfMemory) {
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
