// The log file manager: whole lines, rotation, files that move away, files that cannot be opened.
#include <utime.h>

#include "support/test.h"

using vex::util::LogBuffer;
using vex::util::LogFile;
using vex::util::LogManager;

using LogFileTest = FolderTest;

static bool put(LogFile &file, const std::string &line, size_t max = 0) {
    return file.write(line.data(), line.size(), max);
}

TEST_F(LogFileTest, EightThreadsLoseAndTearNoLineWhileFilesRotate) {
    constexpr int kThreads = 8, kLines = 2000;
    inThreads(kThreads, [this](int t) {
        for (size_t i = 0; i < kLines; ++i)
            put(*LogManager::instance().get(path),
                std::to_string(t) + "-" + std::to_string(i) + std::string(i % 90, '.') + "\n", 200000);
    });

    std::set<std::string> seen;
    const auto names = dir.list();
    EXPECT_GT(names.size(), 2u);
    for (const auto &name : names) {
        EXPECT_THAT(name, MatchesRegex("file(\\.[0-9]{14}(\\.[0-9]+)?)?"));
        std::istringstream in(readFile(dir / name));
        for (std::string line; std::getline(in, line);)
            EXPECT_TRUE(seen.insert(line.substr(0, line.find('.'))).second) << line;
    }
    EXPECT_EQ(static_cast<size_t>(kThreads * kLines), seen.size());
    EXPECT_GE(LogManager::instance().cleanUpStaleFiles(0), 1u);
}

TEST_F(LogFileTest, RotatesWhenTheSizeIsReachedAndNeverOverwrites) {
    for (const bool network : {false, true}) {  // whose file systems do not know renames that never replace
        const FaultScope unknown("renameat2", 1, EINVAL, network ? FaultScope::kLasting : FaultScope::kOnce);
        dir.empty();
        writeFile(path, "123456789\n");  // what is there already counts
        LogFile file;
        file.setPath(path);
        for (int i = 0; i < 4; ++i) EXPECT_TRUE(put(file, "line " + std::to_string(i) + "...\n", 10));
        EXPECT_EQ(5u, dir.list().size());
        std::string all;
        for (const auto &name : dir.list()) all += readFile(dir / name);
        for (const char *text : {"123456789\n", "line 0...\n", "line 1...\n", "line 2...\n", "line 3...\n"})
            EXPECT_THAT(all, HasSubstr(text));
    }
}

TEST_F(LogFileTest, NeverMovesADeviceAway) {
    ASSERT_EQ(0, symlink("/dev/null", path.c_str()));
    LogFile file;
    file.setPath(path);
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(put(file, "of a burst\n", 100));
    EXPECT_THAT(dir.list(), ElementsAre("file"));
}

TEST_F(LogFileTest, FollowsItsPathWhenTheFileIsMovedOrRemoved) {
    LogFile file;
    file.setPath(dir / "d/file");
    EXPECT_TRUE(put(file, "one\n"));
    ASSERT_EQ(0, rename((dir / "d/file").c_str(), (dir / "d/old").c_str()));
    EXPECT_TRUE(put(file, "two\n"));
    ASSERT_EQ(0, unlink((dir / "d/file").c_str()));
    EXPECT_TRUE(put(file, "three\n"));
    {
        const FaultScope locked_out({"stat", "open"}, 1, EACCES, FaultScope::kLasting);
        EXPECT_TRUE(put(file, "inside\n"));
        EXPECT_FALSE(file.keepsLines());
    }
    file.setPath(dir / "other.log");
    EXPECT_TRUE(put(file, "four\n"));
    EXPECT_EQ("one\n", readFile(dir / "d/old"));
    EXPECT_EQ("three\ninside\nLogFile: Changing path to " + (dir / "other.log") + "\n", readFile(dir / "d/file"));
    EXPECT_EQ("four\n", readFile(dir / "other.log"));
}

TEST_F(LogFileTest, KeepsLinesWhileItCannotBeWrittenAndReportsOnce) {
    LogFile file;
    file.setPath(path);
    testing::internal::CaptureStderr();
    {
        FaultScope fault("open", 1, EMFILE, FaultScope::kLasting);
        EXPECT_TRUE(put(file, "one\n"));
        EXPECT_TRUE(put(file, "two\n"));
    }
    EXPECT_TRUE(put(file, "three\n"));
    {
        FaultScope fault("write", 1, ENOSPC);
        EXPECT_TRUE(put(file, "four\n"));
    }
    file.flush();
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(2, std::count(told.begin(), told.end(), '\n'));
    EXPECT_THAT(told,
        MatchesRegex("A thread \\(id=[0-9]+\\) encountered an error while attempting to write to file .*file: Too "
                     "many open files\nA thread .*file: No space left on device\n"));
    EXPECT_EQ("one\ntwo\nthree\nfour\n", readFile(path));
}

TEST_F(LogFileTest, NamesTheDirectoryThatCannotBeCreated) {
    writeFile(path, "");
    EXPECT_THAT([&] { LogFile().setPath(path + "/sub/log"); },
        testing::ThrowsMessage<vex::util::BadPathException>("A thread (id=" + std::to_string(pthread_self()) +
                                                            ") encountered an error while attempting to create path " +
                                                            path + "/sub"));
}

TEST_F(LogFileTest, BufferDropsTheOldestLinesAndGoesOnWhereTheDiskFilledUp) {
    LogBuffer buffer;
    EXPECT_FALSE(buffer.append(std::string(70000, 'x').data(), 70000));
    const std::string line = std::string(1023, 'y') + "\n";
    for (int i = 0; i < 70; ++i) EXPECT_TRUE(buffer.append(line.data(), line.size()));
    EXPECT_EQ(64u * 1024, buffer.size());
    const vex::UniqueFd out(open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0600));
    {
        const FaultScope part("write", 2, FaultScope::kShort), full("write", 3, ENOSPC);
        EXPECT_FALSE(buffer.drainTo(out.get()));
    }
    EXPECT_EQ(64u * 1024 - 1, buffer.size());
    EXPECT_TRUE(buffer.drainTo(out.get()));
    EXPECT_EQ(0u, buffer.size());
    std::string text = "LogFile: 7 lines were dropped while the file could not be written\n";
    for (int i = 0; i < 64; ++i) text += line;
    EXPECT_TRUE(text == readFile(dir / "out"));
}

TEST_F(LogFileTest, ManagerForgetsFilesThatAreIdleAndPrunesOldRotations) {
    (void)LogManager::instance().get(path)->write("x\n", 2);
    EXPECT_EQ(0u, LogManager::instance().cleanUpStaleFiles(3600));
    EXPECT_EQ(1u, LogManager::instance().cleanUpStaleFiles(0));

    const utimbuf old{1000000, 1000000};
    for (const char *name :
        {"file.20200101000000", "file.20200101000000.2", "file.2020", "file.202001010000009", "filex.20200101000000"}) {
        writeFile(dir / name, "");
        utime((dir / name).c_str(), &old);
    }
    writeFile(dir / "file.20300101000000", "");
    EXPECT_EQ(0, logFilePruneA(path.c_str(), 0));
    EXPECT_EQ(0, logFilePruneA(path.c_str(), INT_MAX)) << "more nanoseconds than 64 bits hold";
    EXPECT_EQ(2, logFilePruneA(path.c_str(), 7));
    EXPECT_EQ(5u, dir.list().size());
    EXPECT_FAILS(EINVAL, -1, logFilePruneA("", 7));
}
