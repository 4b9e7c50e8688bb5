#include <zlib.h>

#include "base/adler32.h"
#include "support/test.h"

using FileTest = FolderTest;

TEST_F(FileTest, CompareTellsEqualDifferentAndUnreadable) {
    const std::string a = dir / "a", b = dir / "b", text(70000, 'x');
    writeFile(a, text);
    for (const size_t at : {size_t{0}, size_t{32767}, size_t{32768}, size_t{69999}, size_t{70000}}) {
        std::string other = text;
        if (at < text.size()) other[at] = 'y';
        writeFile(b, other);
        EXPECT_EQ(at < text.size() ? 1 : 0, FileCompare(a.c_str(), b.c_str()));
    }
    EXPECT_EQ(2u + 4u + 2u * 5u, forEachFault({"open", "fstat", "read"}, EIO, [&](const FaultScope &scope) {
        const int result = FileCompare(a.c_str(), b.c_str());
        EXPECT_EQ(scope.fired() ? -1 : 0, result) << scope.faultedCall();
    }));
    writeFile(b, text + "x");
    EXPECT_EQ(1, FileCompare(a.c_str(), b.c_str()));
}

TEST_F(FileTest, LoadersReadTheWholeFileOrReportOnce) {
    writeFile(path, std::string("a\0b", 3));
    (void)forEachFault({"open", "lseek", "read", "malloc"}, EIO, [&](const FaultScope &scope) {
        const std::unique_ptr<char, decltype(&free)> text(FileToText(path.c_str()), free);
        FaultPause pause;
        EXPECT_EQ(scope.fired(), text == nullptr) << scope.faultedCall();
        EXPECT_EQ(scope.fired(), !log.take().empty());
        if (text != nullptr) { EXPECT_EQ(std::string("a\0b\0", 4), std::string(text.get(), 4)); }
    });
    size_t size = 0;
    free(FileToBuffer(path.c_str(), &size));
    char buffer[3];
    EXPECT_EQ(3 + 3, FileLoadToBuffer(path.c_str(), buffer, 3) + static_cast<ssize_t>(size));
    EXPECT_FAILS_WITH("105 __doLoad: buffer too small", -1, FileLoadToBuffer(path.c_str(), buffer, 2));
}

TEST(Adler32, AgreesWithZlibForEveryLengthAndContinues) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    std::string data(20000, '\xff');  // the largest sums
    const auto *bytes = reinterpret_cast<const Bytef *>(data.data());
    for (unsigned size = 0; size <= data.size(); size += size < 70 ? 1U : static_cast<unsigned>(1 + random() % 700)) {
        ASSERT_EQ(adler32(1, bytes, size), vex::adler32(vex::kAdler32Start, bytes, size)) << size;
        ASSERT_EQ(adler32(0xfff0fff0 % 65521 << 16 | 65520, bytes, size),
            vex::adler32(0xfff0fff0 % 65521 << 16 | 65520, bytes, size));
        for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(random() % 3 == 0 ? 0xff : random());
    }
}

TEST_F(FileTest, ChecksumsCoverTheWholeFileOrThePartBehindAPositiveOffset) {
    writeFile(path, "abcdef");
    const auto sum = [](const char *text) { return vex::adler32(vex::kAdler32Start, text, strlen(text)); };
    EXPECT_EQ(sum("abcdef"), CRCFromFile(path.c_str()));
    EXPECT_EQ(sum("cdef"), CRCFromPartFile(path.c_str(), 2, SEEK_SET));
    EXPECT_EQ(sum("abcdef"), CRCFromPartFile(path.c_str(), -2, SEEK_END));
    EXPECT_EQ(1u, CRCFromFile("/dev/null"));
    EXPECT_EQ("", log.text());
    EXPECT_FAILS_WITH("2 CRCFromFile: failed to open file: No such file or directory", 0u, CRCFromFile("/absent"));
    EXPECT_FAILS_WITH(
        "22 CRCFromPartFile: failed to seek file: Invalid argument", 0u, CRCFromPartFile(path.c_str(), 1, 99));
    EXPECT_FAILS_WITH("21 CRCFromFile: failed to read file: Is a directory", 0u, CRCFromFile(dir.path().c_str()));
}

TEST_F(FileTest, TempCountsUpToNinetyNineAndThenGivesUpLooking) {
    std::string first = FileTemp(dir.path().c_str()), name = first;
    for (int taken = 0; taken < 102 && FileTemp(dir.path().c_str()) == name; ++taken) {
        writeFile(name, "");
        const std::string next = FileTemp(dir.path().c_str());
        if (next.compare(0, first.size() - 4, first, 0, first.size() - 4) != 0) break;  // the second has changed
        const int counter = std::min(taken, 99);
        EXPECT_EQ(first.substr(0, first.size() - 4) + std::to_string(counter) + ".tmp", next);
        name = next;
    }
    EXPECT_THAT(FileTemp(nullptr), StartsWith("/tmp/"));
    EXPECT_THAT(FileTemp("/absent"), StartsWith(std::filesystem::current_path().string()));
    std::string longest = dir.path();
    while (longest.size() < 4090) longest += "/.";
    EXPECT_FAILS(ENOBUFS, nullptr, FileTemp(longest.c_str()));
}

TEST_F(FileTest, SizesAndModesPrintAsPeopleKnowThem) {
    writeFile(path, "");
    for (const int64_t size : {3, 2000000000, 2000000001}) {
        std::filesystem::resize_file(path, static_cast<uintmax_t>(size));
        EXPECT_EQ(size, FileSizeGet(path.c_str()));
        EXPECT_EQ(size > 2000000000 ? 1 : 0, is_big(path.c_str()));
    }
    EXPECT_FAILS_WITH("2 is_big: could not access path /absent", -1, is_big("/absent"));
    EXPECT_FAILS_WITH("2 FileSizeGet: could not stat path /absent", -1, FileSizeGet("/absent"));
    for (const auto &row : table(2,
             "100644|-rw-r--r--|040755|drwxr-xr-x|0120777|lrwxrwxrwx|010600|prw-------|"
             "020620|crw--w----|060660|brw-rw----|0140000|s---------|0|?---------|"
             "104755|-rwsr-xr-x|106654|-rwSr-sr--|041777|drwxrwxrwt|041776|drwxrwxrwT|"))
        EXPECT_EQ(row[1], GetModeStringA(static_cast<unsigned>(std::stoul(row[0], nullptr, 8))));
}

TEST(Clock, UnitsAgreeAndDatesAreLocal) {
    const uint64_t before = gethrtime(), millis = get_millis();
    EXPECT_TRUE(before / 1000 <= millis && millis < before / 1000 + 60000 && get_only_ms() < 1000);
    EXPECT_EQ(1500000u, seconds2hrtime(hrtime2seconds(1500000)) + seconds2hrtime(-1));
    const time_t later = time(nullptr) + 3600;
    char text[32];
    struct tm local;
    (void)strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", localtime_r(&later, &local));
    const long seconds = get_seconds_from_now_to_datestring(text);
    EXPECT_TRUE(seconds <= 3600 && seconds >= 3595) << seconds;
    EXPECT_FAILS(EINVAL, 0, get_seconds_from_now_to_datestring("2026-13-01 00:00:00"));
}
