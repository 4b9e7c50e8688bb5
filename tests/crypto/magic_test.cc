#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>

#include <vex/magic.h>

#include "base/unique_fd.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

const std::string kHeader("VEX \x40\x01\x01\x02\x03\x04\x05\x06\x07\x08", 14);
constexpr uint64_t kValue = 0x0102030405060708;

TEST(Magic, IsWrittenAsFourteenBigEndianBytes) {
    vextest::TempDir dir;
    char buffer[15] = "..............";
    EXPECT_EQ(14, vexMagicMake(0x4001, buffer, 14, kValue));
    EXPECT_EQ(kHeader, std::string(buffer, 14));
    EXPECT_EQ(-1, vexMagicMake(0x4001, buffer, 13, 0));
    EXPECT_EQ(-1, vexMagicMake(0x4001, nullptr, 14, 0));
    EXPECT_EQ(EINVAL, errno);

    vex::UniqueFd fd(open((dir / "fd").c_str(), O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(14, vexMagicWrite(0x12345, fd.get(), 0));
    EXPECT_EQ(std::string("VEX \x23\x45\0\0\0\0\0\0\0\0", 14), vextest::readFile(dir / "fd"));
    vex::UniqueFile file(fopen((dir / "file").c_str(), "w"));
    EXPECT_EQ(14, vexMagicFwrite(0x4001, file.get(), kValue));
    EXPECT_EQ(0, file.close());
    EXPECT_EQ(kHeader, vextest::readFile(dir / "file"));
    EXPECT_EQ(-1, vexMagicFwrite(1, nullptr, 0));
    EXPECT_EQ(EBADF, errno);
    vextest::LogCapture log;
    vextest::FaultScope fault({"write", "fwrite"}, 1, ENOSPC);
    fault.keepFailing();
    EXPECT_EQ(-1, vexMagicWrite(1, fd.get(), 0));
    EXPECT_EQ(-1, vexMagicFwrite(1, stdout, 0));
    EXPECT_EQ(ENOSPC, errno);
}

TEST(Magic, EveryReaderTellsTheSameOfTheSameBytes) {
    // clang-format off
    static const struct { const char *name; std::string bytes; int result; int stream_result; } kRows[] = {
        {"good", kHeader + "more", 0x4001, 0x4001},
        {"no flags", std::string("VEX \0\0", 6) + kHeader.substr(6), -2, -2},
        {"other format", "VEY " + kHeader.substr(4), 0, 0},
        {"cut", kHeader.substr(0, 13), -1, -2},
        {"empty", "", -1, -2},
    };
    // clang-format on
    vextest::TempDir dir;
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        vextest::LogCapture log;
        vextest::writeFile(dir / "x", row.bytes);
        vex::UniqueFd fd(open((dir / "x").c_str(), O_RDONLY));
        vex::UniqueFile file(fopen((dir / "x").c_str(), "r"));
        const uint64_t want = row.result > 0 ? kValue : 99;
        const auto expect = [want](int result, auto read) {
            uint64_t value = 99;
            EXPECT_EQ(result, read(&value));
            EXPECT_EQ(want, value);
            EXPECT_EQ(result, read(nullptr));
        };
        expect(row.result, [&](uint64_t *v) { return vexMagicDecode((dir / "x").c_str(), nullptr, 0, v); });
        expect(row.result, [&](uint64_t *v) { return vexMagicRead(fd.get(), v); });
        expect(row.result, [&](uint64_t *v) { return vexMagicFread(file.get(), v); });
        if (row.result == -1) { EXPECT_EQ(ENODATA, errno); }
        EXPECT_THAT(log.lines(), testing::IsEmpty());
        lseek(fd.get(), 0, SEEK_SET);
        if (row.bytes.size() >= 14) {
            expect(row.result, [&](uint64_t *v) { return vexMagicRead2(fd.get(), v, 1); });
            EXPECT_EQ(0, lseek(fd.get(), 0, SEEK_CUR));
            expect(row.result, [&](uint64_t *v) { return vexMagicFromBuffer(row.bytes.data(), v); });
            expect(row.result, [&](uint64_t *v) { return vexMagicDecode(nullptr, row.bytes.data(), 14, v); });
        } else {
            EXPECT_EQ(row.stream_result, vexMagicRead2(fd.get(), nullptr, 0));
            EXPECT_THAT(log.lines(), testing::ElementsAre("61 vexMagicRead2: could not read header"));
        }
    }
}

TEST(Magic, RefusesBadParameters) {
    vextest::LogCapture log;
    uint64_t value = 7;
    int encrypted = 7, compressed = 7;
    int pipe_ends[2];
    ASSERT_EQ(0, pipe(pipe_ends));
    const vex::UniqueFd reading(pipe_ends[0]), writing(pipe_ends[1]);
    EXPECT_EQ(14, vexMagicWrite(0x4001, writing.get(), 0));
    EXPECT_EQ(0, vexMagicRead(0, &value));
    EXPECT_EQ(-1, vexMagicRead(reading.get(), &value)) << "a pipe has no beginning";
    EXPECT_EQ(-2, vexMagicRead2(reading.get(), &value, 1));
    EXPECT_EQ(0, vexMagicRead2(-1, &value, 0));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(0, vexMagicFread(nullptr, &value));
    EXPECT_EQ(0, vexMagicDecode(nullptr, nullptr, 14, &value));
    EXPECT_EQ(0, vexMagicDecode(nullptr, nullptr, 13, &value));
    EXPECT_EQ(ENODATA, errno);
    EXPECT_EQ(-1, vexMagicDecode("/nonexistent", kHeader.data(), 14, &value));
    EXPECT_EQ(-1, vexMagicGetCryptSettings(kHeader.data(), 13, &encrypted, &compressed));
    EXPECT_EQ(-1, vexMagicGetCryptSettings(nullptr, 14, &encrypted, &compressed));
    EXPECT_EQ(0, vexMagicGetCryptSettings("not a header..", 14, &encrypted, &compressed));
    EXPECT_EQ(7U, value);
    EXPECT_EQ(14, encrypted + compressed);
    EXPECT_THAT(log.lines(),
        testing::ElementsAre("9 vexMagicRead: invalid file descriptor",
            "29 vexMagicRead2: could not seek to beginning of header", "9 vexMagicRead2: invalid file descriptor",
            "9 vexMagicFread: invalid NULL file pointer", "22 vexMagicDecode: invalid NULL parameters",
            "61 vexMagicDecode: insufficient header buffer", "61 vexMagicGetCryptSettings: insufficient header buffer",
            "22 vexMagicGetCryptSettings: invalid NULL parameters"));
}

TEST(Magic, SettingsAndDescriptionFollowTheFlags) {
    // clang-format off
    static const struct { int flags, cipher; const char *text; int encrypted, compressed; } kRows[] = {
        {0x0022, 0, "Blowfish Encrypted archive LZO Compressed ", 1, 1},
        {0x5212, 3 + 256, "AES-256-CTR Encrypted archive 256bit key Deflated Streamable, v2", 1, 1},
        {0x4001, 0, "Simple archive Streamable, v2", 0, 0},
        {0x0200, 0, "", 0, 0},
        {0x2dcc, 0, "Plugin Encrypted archive SkipJack Encrypted archive Cache data filePublic key ring RSA Encrypted archive Streamable Blocklist Spooler log ", 1, 0},
        {-2, 0, "- Possibly Corrupted VEX archive", 0, 0},
        {0, 0, "Not a VEX archive ", 0, 0},
    };
    // clang-format on
    for (const auto &row : kRows) {
        EXPECT_STREQ(row.text, vexMagicDesc(row.flags, row.cipher));
        if (row.flags <= 0) continue;
        char header[14];
        int encrypted = 9, compressed = 9;
        vexMagicMake(row.flags, header, 14, 0);
        EXPECT_EQ(row.flags, vexMagicGetCryptSettings(header, 14, &encrypted, &compressed));
        EXPECT_EQ(row.encrypted, encrypted);
        EXPECT_EQ(row.compressed, compressed);
    }
    errno = ENOENT;
    EXPECT_STREQ("Error: No such file or directory", vexMagicDesc(-1, 0));
    EXPECT_LT(std::string(vexMagicDesc(0xffff, 1)).size(), 256U);
}

}  // namespace
