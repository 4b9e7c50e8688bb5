#include "support/test.h"

using SafeTransfer = FolderTest;
using DurableChange = FolderTest;
using Streams = FolderTest;

TEST_F(SafeTransfer, GoesOnAfterSignalsAndShortCountsAndReportsTheRest) {
    using Transfer = std::function<ssize_t(int fd, char *buffer, ssize_t count)>;
    const std::tuple<std::string, std::string, bool, Transfer> rows[] = {{"safe_read", "read", false, safe_read},
        {"safe_write", "write", true, safe_write},
        {"safe_pread", "pread", false, [](int fd, char *b, ssize_t n) { return safe_pread(fd, b, n, 3); }},
        {"safe_pwrite", "pwrite", true, [](int fd, char *b, ssize_t n) { return safe_pwrite(fd, b, n, 3); }}};
    const std::string text = "0123456789";
    for (const auto &[name, call, logs, run] : rows) {
        for (const int err : {EINTR, FaultScope::kShort, EIO, EAGAIN}) {
            SCOPED_TRACE(name + " " + std::to_string(err));
            writeFile(path, "abc" + text);
            vex::UniqueFd fd(open(path.c_str(), O_RDWR));
            (void)lseek(fd.get(), 3, SEEK_SET);
            std::string buffer = logs ? text : std::string(10, '#');
            FaultScope fault({call}, 1, err);
            const bool fails = err == EIO || err == EAGAIN;
            EXPECT_EQ(fails ? -1 : 10, run(fd.get(), buffer.data(), 10));
            EXPECT_EQ(fails ? err : errno, errno);
            EXPECT_EQ(fails ? buffer : text, buffer);
            EXPECT_EQ("abc" + text, readFile(path));
            EXPECT_EQ(fails && logs ? std::to_string(err) + " " + name + ": write failed" : "", log.take());
        }
        char byte;
        EXPECT_EQ(0, run(-1, nullptr, 0));
        const std::string line = "22 " + name + ": invalid buffer";
        EXPECT_FAILS_WITH(line, -1, run(0, nullptr, 1));
        EXPECT_FAILS_WITH(line, -1, run(0, &byte, -1));
    }
}

TEST_F(DurableChange, EachFailingCallIsReportedOnceUnlessQuietAndLeaksNothing) {
    const std::string from = dir / "from", to = dir / "to", &top = dir.path();
    const std::tuple<std::string, std::string, bool> kRows[] = {
        {"rename", "rename_dirfsync: Could not rename '" + from + "' to '" + to + "'", false},
        {"unlink", "unlink_dirfsync: Could not unlink '" + from + "'", false},
        {"open", "dirfsync: Could not open directory '" + top + "'", true},
        {"fsync", "dirfsync: Could not fsync directory '" + top + "'", true},
        {"close", "dirfsync: Close after fsync of directory '" + top + "' returned an error", true}};
    for (const auto &[call, line, changed] : kRows) {
        for (const int quiet : {0, 1}) {
            for (const bool unlinks : {false, true}) {
                if (call == (unlinks ? "rename" : "unlink")) continue;
                SCOPED_TRACE(call + (unlinks ? " unlink" : " rename"));
                writeFile(from, "x");
                (void)unlink(to.c_str());
                {
                    FaultScope fault({call}, 1, EIO);
                    EXPECT_EQ(-1, unlinks ? unlink_dirfsync(from.c_str(), top.c_str(), quiet)
                                          : rename_dirfsync(from.c_str(), to.c_str(), top.c_str(), quiet));
                    EXPECT_EQ(EIO, errno);
                }
                EXPECT_EQ(quiet != 0 ? "" : "5 " + line + ": Input/output error", log.take());
                EXPECT_EQ(std::vector<std::string>(changed && unlinks ? 0 : 1, changed ? "to" : "from"), dir.list());
            }
        }
    }
    writeFile(from, "x");
    FaultScope fault("fsync", 1, EINTR);
    EXPECT_EQ(0, rename_dirfsync(from.c_str(), to.c_str(), top.c_str(), 0));
    EXPECT_FAILS(ENOTDIR, -1, dirfsync(to.c_str(), 1));
    EXPECT_FAILS_LOGGING("", EINVAL, -1, unlink_dirfsync(nullptr, "", 1));
    EXPECT_EQ(0, unlink_dirfsync(to.c_str(), top.c_str(), 0));
}

TEST(SafeRename, ReportsItsArgumentsAndNothingElse) {
    LogCapture log;
    EXPECT_FAILS(ENOENT, -1, safe_rename(nullptr, "x") & safe_rename("x", "") & safe_rename("/absent/a", "/absent/b"));
    EXPECT_EQ(
        "22 safe_rename: invalid argument for src_path NULL pointer\n"
        "22 safe_rename: invalid argument for dst_path <empty>",
        log.text());
}

TEST_F(Streams, EndOfFileIsQuietAndAnErrorIsNot) {
    writeFile(path, "12345");
    char buffer[8];
    size_t count = 99;
    vex::UniqueFile file(fopen(path.c_str(), "r")), directory(fopen(dir.path().c_str(), "r"));
    vex::UniqueFile full(fopen("/dev/full", "w"));
    (void)setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(2u, safe_fread(buffer, 2, 4, file.get()));
    EXPECT_FAILS(EIO, nullptr, fread_uint(directory.get(), buffer, 4, &count));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(0u, safe_fread(buffer, 1, 4, directory.get()));
    EXPECT_FAILS(ENOSPC, 0u, safe_fwrite("abc", 1, 3, full.get()));
    EXPECT_THAT(log.lines(), ElementsAre("21 safe_fread could not read from file due to error: Is a directory",
                                 "21 safe_fread: could not read",
                                 "28 safe_fwrite could not write to file due to error: No space left on device",
                                 "28 safe_fwrite: could not write"));
}

TEST_F(Streams, SyncsFlushFirstAndOnlyTheSafeTwinsRepeatInterruptions) {
    const std::tuple<std::string, const char *, int (*)(FILE *), bool> kRows[] = {
        {"safe_fflush", "none", safe_fflush, true}, {"ffsync", "fsync", ffsync, false},
        {"safe_ffsync", "fsync", safe_ffsync, true}, {"ffdatasync", "fdatasync", ffdatasync, false},
        {"safe_ffdatasync", "fdatasync", safe_ffdatasync, true},
        {"fftruncate", "ftruncate", [](FILE *f) { return fftruncate(f, 3); }, true},
        {"safe_fclose", "fclose", safe_fclose, false}};
    for (const auto &[name, synced, run, repeats] : kRows) {
        for (const std::string call : {synced, "fflush"}) {
            SCOPED_TRACE(name + call);
            FILE *file = fopen(path.c_str(), "w");
            EXPECT_EQ(3u, safe_fwrite("abc", 1, 3, file));
            FaultScope fault({call}, 1, EINTR);
            EXPECT_EQ(repeats && call != "fflush" ? 0 : -1, run(file));
            EXPECT_EQ(call == "fflush" && run != safe_fclose ? "" : "abc", readFile(path));
            if (run != safe_fclose) (void)fclose(file);
            EXPECT_EQ(-1, run(nullptr));
            EXPECT_EQ("22 " + name + ": invalid stream", log.take());
        }
    }
}

TEST_F(Streams, DigitsEndAtTheFirstOtherCharacterOrTheLimitWhichStays) {
    for (const auto &row : table(4,
             "123,4|32|123|,|123456|3|123|4|123|3|123|\xff|12|32|12|"
             "\xff||4||\xff|x|4||x|7|0||7|-1|4||-|")) {
        writeFile(path, row[0]);
        vex::UniqueFile file(fopen(path.c_str(), "r"));
        char buffer[32];
        size_t count = 99;
        EXPECT_EQ(buffer, fread_uint(file.get(), buffer, std::stoul(row[1]), &count));
        EXPECT_EQ(row[2], std::string(buffer, count));
        EXPECT_EQ(row[3][0], static_cast<char>(getc(file.get()))) << row[0];  // EOF is '\xff'
    }
}
