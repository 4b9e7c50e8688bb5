#include "support/test.h"

// 0x0102030405060708 and the Adler-32 of its bytes in memory, made by hand
const std::string kSample("\x08\x07\x06\x05\x04\x03\x02\x01\x25\x00\xd4\x00", 12);
constexpr uint64_t kSampleValue = 0x0102030405060708;

using IdFile = FolderTest;

TEST_F(IdFile, ReadsBothLengthsAndNamesWhatIsCorrupt) {
    for (const auto &row :
        table(3,
            "12||0|8||0|10||0|7|61 ReadId: Could not read seq from file #: No data available|0|"
            "0|61 ReadId: Could not read seq from file #: No data available|0|"
            "12|34 ReadId: Invalid CRC value 13893670 in file #. The file is corrupt.|1|"
            "8|34 ReadId: Invalid reserved seq value 72623859790382856 in file #. The file is corrupt. Minimum allowed "
            "values is 72623859790382857.|2|")) {
        SCOPED_TRACE(row[0] + row[1]);
        std::string content = kSample.substr(0, std::stoul(row[0])), line = row[1];
        if (row[2] == "1") content[8] = static_cast<char>(content[8] + 1);
        writeFile(path, content);
        uint64_t value = 5;
        const vex::UniqueFd fd(OpenId(path.c_str(), "seq", &value, kSampleValue + (row[2] == "2")));
        EXPECT_EQ(line.empty(), static_cast<bool>(fd));
        EXPECT_EQ(line.empty() ? kSampleValue : 5, value);
        if (const size_t mark = line.find('#'); mark != std::string::npos) line.replace(mark, 1, path);
        EXPECT_EQ(line, log.take());
        if (!line.empty()) { EXPECT_EQ(std::stoi(line), errno); }
    }
    uint64_t value;
    EXPECT_FAILS_WITH(
        "2 OpenId: Could not open /absent/id to read the current seq.", -1, OpenId("/absent/id", "seq", &value, 0));
    EXPECT_FAILS_WITH(
        "9 ReadId: Can not read seq from file id: Bad file descriptor", -1, ReadId("id", "seq", &value, -1, 0));
}

TEST_F(IdFile, IsStoredOrTheFailureIsReported) {
    for (const char *calls : {"open", "write", "lseek", "fdatasync", "close"}) {
        (void)forEachFault({calls}, EIO, [&](const FaultScope &scope) {
            // a write to a file that was just emptied cannot be made good by reading it anew
            EXPECT_EQ(scope.fired() ? -1 : 0, WriteIdToPath(path.c_str(), "seq", kSampleValue));
            FaultPause pause;
            EXPECT_EQ(scope.fired() ? "5 " : "", log.take().substr(0, 2));
            EXPECT_TRUE(scope.fired() || readFile(path) == kSample);
        });
    }
}

TEST_F(IdFile, IsOpenedAnewOnceAndNoSyncIsTrustedAfterAFailedOne) {
    writeFile(path, std::string(8, '\0'));
    for (const auto &row : table(4,
             "write|1|0|WriteId: Could not update seq in file # to 72623859790382856|"
             "lseek|1|0|WriteId: Could not seek to begin of file # to update seq to 72623859790382856|"
             "fdatasync|1|-1|Could not data sync file # when seq = 72623859790382856|"
             "fdatasync|2|-1|Could not data sync file # when seq = 72623859790382856|")) {
        SCOPED_TRACE(row[0] + row[1]);
        log.clear();
        int fd = open(path.c_str(), O_RDWR);
        std::string line = "5 " + row[3] + " (Input/output error)";
        line.replace(line.find('#'), 1, path);
        {
            FaultScope fault({row[0]}, static_cast<unsigned>(std::stoul(row[1])), EIO);
            EXPECT_EQ(std::stoi(row[2]), WriteId(path.c_str(), "seq", kSampleValue, &fd));
        }
        EXPECT_EQ(line, log.lines().back());
        EXPECT_EQ(kSample, readFile(path));
        const auto told = log.lines(VEX_LOG_INFO);
        EXPECT_EQ(row[2] == "0" ? "WriteId: reopen file " + path + " successfully." : "", told.empty() ? "" : told[0]);
        (void)close(fd);
    }
    int closed = open(path.c_str(), O_RDWR), bad = -1;
    (void)close(closed);
    EXPECT_EQ(0, WriteId(path.c_str(), "seq", 7, &closed));  // the new file may well get the same number
    (void)close(closed);
    EXPECT_EQ(-1, WriteId(path.c_str(), "seq", 7, &bad));
    EXPECT_EQ("9 WriteId: Can not update seq in file " + path + " to 7 (Bad file descriptor)", log.lines().back());
}

TEST_F(IdFile, NextKeepsTheCallersDescriptorAndReadsBackEveryTenth) {
    ASSERT_EQ(0, WriteIdToPath(path.c_str(), "seq", 7));
    const vex::UniqueFd fd(open(path.c_str(), O_RDWR));
    uint64_t value = 7;
    {
        FaultScope fault("write", 1, EIO);
        EXPECT_EQ(0, NextId(path.c_str(), "seq", &value, fd.get()));  // 8, after opening anew
    }
    FaultScope reads("read", 1, EIO);
    EXPECT_EQ(0, NextId(path.c_str(), "seq", &value, fd.get()));  // 9 is not read back, through the same number
    EXPECT_FALSE(reads.fired());
    EXPECT_EQ(-1, NextId(path.c_str(), "seq", &value, fd.get()));  // 10 is
    EXPECT_EQ(10u, value);
    {
        FaultPause pause;
        FaultScope fault("write", 1, EIO, FaultScope::kLasting);
        EXPECT_EQ(-1, NextId(path.c_str(), "seq", &value, fd.get()));
        EXPECT_EQ(10u, value);
    }
    value = 19;  // writes that go elsewhere are found out when the file is read back
    const vex::UniqueFd elsewhere(open(path.c_str(), O_RDWR | O_APPEND));
    EXPECT_FAILS(ERANGE, -1, NextId(path.c_str(), "seq", &value, elsewhere.get()));
    EXPECT_EQ("34 seq = 10 in file " + path + " is inconsistent with 20 in memory (Numerical result out of range)",
        log.lines().back());
}
