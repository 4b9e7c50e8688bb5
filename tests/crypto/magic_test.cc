#include "support/test.h"

const std::string kHeader("VEX \x40\x01\x01\x02\x03\x04\x05\x06\x07\x08", 14);
constexpr uint64_t kValue = 0x0102030405060708;

using Magic = FolderTest;

TEST_F(Magic, IsWrittenAsFourteenBigEndianBytes) {
    char buffer[15] = "..............";
    EXPECT_EQ(14, vexMagicMake(0x4001, buffer, 14, kValue));
    EXPECT_EQ(kHeader, std::string(buffer, 14));
    EXPECT_FAILS(EINVAL, -1, vexMagicMake(0x4001, buffer, 13, 0));
    vex::UniqueFd fd(open((dir / "fd").c_str(), O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(14, vexMagicWrite(0x12345, fd.get(), 0));
    EXPECT_EQ(std::string("VEX \x23\x45\0\0\0\0\0\0\0\0", 14), readFile(dir / "fd"));
    vex::UniqueFile file(fopen((dir / "file").c_str(), "w"));
    EXPECT_EQ(14, vexMagicFwrite(0x4001, file.get(), kValue));
    EXPECT_EQ(0, file.close());
    EXPECT_EQ(kHeader, readFile(dir / "file"));
    FaultScope fault({"write", "fwrite"}, 1, ENOSPC, FaultScope::kLasting);
    EXPECT_EQ(-1, vexMagicWrite(1, fd.get(), 0));
    EXPECT_FAILS(ENOSPC, -1, vexMagicFwrite(1, stdout, 0));
}

TEST_F(Magic, EveryReaderTellsTheSameOfTheSameBytes) {
    const std::pair<std::string, int> rows[] = {{kHeader + "more", 0x4001},
        {std::string("VEX \0\0", 6) + kHeader.substr(6), -2}, {"VEY " + kHeader.substr(4), 0},
        {kHeader.substr(0, 13), -1}, {"", -1}};
    for (const auto &[bytes, result] : rows) {
        SCOPED_TRACE(bytes);
        writeFile(path, bytes);
        vex::UniqueFd fd(open(path.c_str(), O_RDONLY));
        vex::UniqueFile file(fopen(path.c_str(), "r"));
        const uint64_t want = result > 0 ? kValue : 99;
        const auto expect = [&](auto read) {
            uint64_t value = 99;
            EXPECT_EQ(result, read(&value));
            EXPECT_EQ(want, value);
            EXPECT_EQ(result, read(nullptr));
        };
        expect([&](uint64_t *v) { return vexMagicDecode(path.c_str(), nullptr, 0, v); });
        expect([&](uint64_t *v) { return vexMagicRead(fd.get(), v); });
        expect([&](uint64_t *v) { return vexMagicFread(file.get(), v); });
        EXPECT_EQ("", log.take());
        lseek(fd.get(), 0, SEEK_SET);
        if (bytes.size() >= 14) {
            expect([&](uint64_t *v) { return vexMagicRead2(fd.get(), v, 1); });
            EXPECT_EQ(0, lseek(fd.get(), 0, SEEK_CUR));
            expect([&](uint64_t *v) { return vexMagicFromBuffer(bytes.data(), v); });
            expect([&](uint64_t *v) { return vexMagicDecode(nullptr, bytes.data(), 14, v); });
        } else {
            EXPECT_EQ(ENODATA, errno);
            EXPECT_EQ(-2, vexMagicRead2(fd.get(), nullptr, 0));
            EXPECT_EQ("61 vexMagicRead2: could not read header", log.take());
        }
    }
}

TEST_F(Magic, RefusesBadParameters) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const vex::UniqueFd reading(ends[0]), writing(ends[1]);
    EXPECT_EQ(14, vexMagicWrite(0x4001, writing.get(), 0));
    EXPECT_FAILS_WITH("9 vexMagicRead: invalid file descriptor", 0, vexMagicRead(0, nullptr));
    EXPECT_FAILS_WITH("9 vexMagicRead2: invalid file descriptor", 0, vexMagicRead2(-1, nullptr, 0));
    EXPECT_FAILS(ESPIPE, -1, vexMagicRead(reading.get(), nullptr));
    EXPECT_FAILS_WITH(
        "29 vexMagicRead2: could not seek to beginning of header", -2, vexMagicRead2(reading.get(), nullptr, 1));
    EXPECT_FAILS_WITH(
        "61 vexMagicDecode: insufficient header buffer", 0, vexMagicDecode(nullptr, nullptr, 13, nullptr));
    EXPECT_FAILS(ENOENT, -1, vexMagicDecode("/nonexistent", kHeader.data(), 14, nullptr));
}

TEST_F(Magic, SettingsAndDescriptionFollowTheFlags) {
    static const std::tuple<int, int, const char *, int, int> kRows[] = {
        {0x0022, 0, "Blowfish Encrypted archive LZO Compressed ", 1, 1},
        {0x5212, 3 + 256, "AES-256-CTR Encrypted archive 256bit key Deflated Streamable, v2", 1, 1},
        {0x4001, 0, "Simple archive Streamable, v2", 0, 0},
        {0x2dcc, 0,
            "Plugin Encrypted archive SkipJack Encrypted archive Cache data filePublic key ring RSA Encrypted "
            "archive Streamable Blocklist Spooler log ",
            1, 0},
        {0, 0, "Not a VEX archive ", 9, 9}};
    for (const auto &[flags, cipher, text, encrypts, compresses] : kRows) {
        char header[14];
        int encrypted = 9, compressed = 9;
        vexMagicMake(flags, header, 14, 0);
        EXPECT_EQ(flags == 0 ? -2 : flags, vexMagicGetCryptSettings(header, 14, &encrypted, &compressed));
        EXPECT_STREQ(text, vexMagicDesc(flags, cipher));
        EXPECT_EQ(std::pair(encrypts, compresses), std::pair(encrypted, compressed));
    }
    EXPECT_STREQ("- Possibly Corrupted VEX archive", vexMagicDesc(-2, 0));
    errno = ENOENT;
    EXPECT_STREQ("Error: No such file or directory", vexMagicDesc(-1, 0));
    EXPECT_LT(std::string(vexMagicDesc(0xffff, 1)).size(), 256U);
}
