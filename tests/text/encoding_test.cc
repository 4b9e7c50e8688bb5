#include <openssl/evp.h>

#include "support/test.h"

struct Encoding : Test {
    /// Converts any bytes to wide characters, in room that is enough and not, and back.
    static void survives(const std::string &text, const std::wstring *expected) {
        const auto length = static_cast<size_t>(vex_utf8_to_wcs(text.c_str(), nullptr, 0));
        std::wstring wide(length + 2, L'#');
        ASSERT_EQ(length, static_cast<size_t>(vex_utf8_to_wcs(text.c_str(), wide.data(), length + 1)));
        ASSERT_EQ(std::wstring({L'\0', L'#'}), wide.substr(length));
        ASSERT_TRUE(expected == nullptr || *expected == wide.c_str()) << text;
        char *back = vex_wcs_to_utf8_malloced(wide.data());
        ASSERT_STREQ(text.c_str(), back);
        free(back);
        ASSERT_EQ(-1, vex_utf8_to_wcs(text.c_str(), wide.data(), length));
        ASSERT_EQ(length - 1, wcslen(wide.c_str())) << "the head stays, terminated";
    }
    std::mt19937 random_{static_cast<unsigned>(testSeed())};
};

TEST_F(Encoding, Base64AgreesWithOpenSslInExactRoomAndRefusesEveryDeviation) {
    for (unsigned size = 0; size < 200; ++size) {
        const std::string bytes = testNoise(size);
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
        for (int i = 0; i + 2 < length; ++i) {
            const char good = std::exchange(ours[i], "=-_.\x80\xab ,*:@[`{"[random_() % 14]);
            ASSERT_EQ(-1, Base64Decode(ours, back, size)) << size << " " << i;
            ours[i] = good;
        }
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
        const std::string bytes = testNoise(size);
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
    for (const auto &row : table(2,
             "1|plain|1|\xc2\x80\xdf\xbf|1|\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80|"
             "1|\xf0\x90\x80\x80\xf4\x8f\xbf\xbf|0|\x80|0|\xc1\xbf|0|\xe0\x9f\xbf|0|\xed\xa0\x80|"
             "0|\xf0\x8f\xbf\xbf|0|\xf4\x90\x80\x80|0|\xf5\x80\x80\x80|0|\xe2\x82|0|\xc3(|0|\xff|"))
        EXPECT_EQ(row[0] == "1" ? 1 : 0, vex_utf8_valid(row[1].data(), row[1].size())) << row[1];
}

TEST_F(Encoding, BytesThatAreNoUtf8TravelThroughWideTextInDisguise) {
    wchar_t wide[8];
    ASSERT_EQ(3, vex_utf8_to_wcs("\xe2\x82\xac\xff\xf0\x9f\x92\xbe", wide, 8));
    EXPECT_EQ(std::wstring(L"\x20ac\xdcff\x1f4be"), wide);
    for (const wchar_t bad : {0xd800, 0xdc7f, 0xdd00, 0xdfff, 0x110000}) {
        EXPECT_FAILS(EILSEQ, nullptr, vex_wcs_to_utf8_malloced(std::wstring(1, bad).c_str()));
    }
}

TEST_F(Encoding, LongUtf8AgreeWithIconvWhereverTheyAreDamaged) {
    for (int round = 0; round < 3000; ++round) {
        std::wstring wide;
        for (const auto rarity = 1 + random_() % 30; wide.size() < 20 + random_() % 90;) {
            const auto c = static_cast<wchar_t>(random_() % (1U << (8 + random_() % 13)) + 0x80);
            const bool special = random_() % rarity == 0 && (c < 0xd800 || c > 0xdfff) && c <= 0x10ffff;
            wide += special ? c : static_cast<wchar_t>('a' + random_() % 26);
        }
        std::string text(4 * wide.size() + 1, '\0');
        text.resize(static_cast<size_t>(vex_wcs_to_utf8(wide.c_str(), text.data(), text.size())));
        ASSERT_EQ(1, vex_utf8_valid(text.data(), text.size()));
        survives(text, &wide);

        text[random_() % text.size()] = static_cast<char>(random_() % 255 + 1);
        std::string copy(2 * text.size(), '\0');
        const bool good = vex_iconv("UTF-8", "UTF-16LE", text.data(), text.size(), copy.data(), copy.size()) >= 0;
        const size_t stop = vex_encoding_error_offset();
        ASSERT_EQ(good ? 1 : 0, vex_utf8_valid(text.data(), text.size())) << text;
        ASSERT_EQ(stop, vex_encoding_error_offset()) << text;
        survives(text.substr(random_() % text.size()).c_str(), nullptr);
    }
}

/// Runs a conversion of each row's text in every room up to enough; the row tells "<result>" or "<errno>@<offset of the
/// stop>".
template <typename Convert>
static void expect(Convert convert, const char *rows) {
    for (const auto &row : table(2, rows)) {
        std::string outcome = "ENOBUFS";
        for (size_t room = 1; outcome.compare(0, 7, "ENOBUFS") == 0 && room < 64; ++room) {
            std::string out(room + 1, '#');
            const ssize_t length = convert(row[0].c_str(), out.data(), room);
            EXPECT_EQ('#', out[room]) << row[0];
            EXPECT_TRUE(length < 0 || static_cast<size_t>(length) == strlen(out.c_str())) << row[0];
            EXPECT_TRUE(length >= 0 || vex_encoding_error_offset() <= row[0].size());
            outcome = length >= 0 ? out.c_str()
                                  : strerrorname_np(errno) + ("@" + std::to_string(vex_encoding_error_offset()));
        }
        EXPECT_EQ(row[1], outcome) << row[0];
    }
}

TEST_F(Encoding, CharacterSetsConvertExactlyOrTellWhereTheyStopped) {
    const auto iconv = [](const char *text, char *out, size_t room) {
        const ssize_t length = vex_iconv("UTF-8", "KOI8-R", text, strlen(text), out, room - 1);
        out[length < 0 ? 0 : length] = '\0';
        return length;
    };
    expect(
        vex_utf8_to_latin1, "gr\xc3\xbc\xc3\x9f|gr\xfc\xdf|a\xe2\x82\xac|EILSEQ@1|ab\xc3(|EILSEQ@2|abc\xc3|EILSEQ@3|");
    expect(vex_latin1_to_utf8, "gr\xfc\xdf|gr\xc3\xbc\xc3\x9f|");
    expect(vex_to_7bit,
        "\xe2\x82\xac\xc3\xbc-\xf0\x9f\x92\xbe|??"
        "-?|x\xff|EILSEQ@1|");
    expect(iconv, "\xd0\xb4\xd0\xb0|\xc4\xc1|\xd0\xb4\xe2\x82\xac|EILSEQ@2|\xd0\xb4\xd0|EILSEQ@2|");
    expect(UrlEncode, "a b/\xc3\xbc~-._%|a%20b%2F%C3%BC~-._%25|");
    expect(UrlDecode, "a%20b%2f%C3%bc+|a b/\xc3\xbc+|ab%4|EINVAL@2|%g0|EINVAL@0|a%00b|EINVAL@1|||");
    char out[4];
    EXPECT_FAILS(EINVAL, -1, vex_iconv("UTF-8", "no-such-charset", "x", 1, out, 4));
    const wchar_t wide[] = {L'a', L'b', 0xd801, L'\0'};
    EXPECT_EQ(-1, vex_wcs_to_utf8(wide, out, 4));
    EXPECT_EQ(2u, vex_encoding_error_offset());
}

TEST_F(Encoding, TextIsCopiedOrConvertedToUtf8AndLackOfMemoryTold) {
    char *text = strtoutf8_malloced("gr\xc3\xbc\xc3\x9f");
    EXPECT_STREQ("gr\xc3\xbc\xc3\x9f", text);
    free(text);
    EXPECT_FAILS(EILSEQ, nullptr, strtoutf8_malloced("gr\xfc\xdf"));  // the C locale knows ASCII only
    FaultScope fault("malloc", 1, ENOMEM);
    EXPECT_FAILS(ENOMEM, nullptr, strtoutf8_malloced("gr\xfc\xdf"));
}
