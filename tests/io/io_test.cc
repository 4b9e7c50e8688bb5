#include <vex/io.h>

#include "base/unique_fd.h"
#include "support/test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vextest::FaultScope;

/// A function of the family under the faults of one of its calls.
struct Row {
    std::string name, call;
    bool logs;
    std::function<ssize_t(int fd, char *buffer, ssize_t count)> run;
};

TEST(SafeTransfer, GoesOnAfterSignalsAndShortCountsAndReportsTheRest) {
    const Row rows[] = {{"safe_read", "read", false, safe_read}, {"safe_write", "write", true, safe_write},
        {"safe_pread", "pread", false, [](int fd, char *b, ssize_t n) { return safe_pread(fd, b, n, 3); }},
        {"safe_pwrite", "pwrite", true, [](int fd, char *b, ssize_t n) { return safe_pwrite(fd, b, n, 3); }}};
    vextest::TempDir dir;
    const std::string path = dir / "file", text = "0123456789";
    for (const auto &row : rows) {
        for (const int err : {EINTR, FaultScope::kShort, EIO, EAGAIN}) {
            SCOPED_TRACE(row.name + " " + std::to_string(err));
            vextest::writeFile(path, "abc" + text);
            vex::UniqueFd fd(open(path.c_str(), O_RDWR));
            (void)lseek(fd.get(), 3, SEEK_SET);
            vextest::LogCapture log;
            std::string buffer = row.logs ? text : std::string(10, '#');
            FaultScope fault({row.call}, 1, err);
            const bool fails = err == EIO || err == EAGAIN;
            EXPECT_EQ(fails ? -1 : 10, row.run(fd.get(), buffer.data(), 10));
            EXPECT_EQ(fails ? err : errno, errno);
            EXPECT_EQ(fails ? buffer : text, buffer);
            EXPECT_EQ("abc" + text, vextest::readFile(path));
            EXPECT_EQ(fails && row.logs ? std::to_string(err) + " " + row.name + ": write failed" : "", log.text());
        }
        vextest::LogCapture log;
        char byte;
        EXPECT_EQ(0, row.run(-1, nullptr, 0));
        EXPECT_EQ(-1, row.run(0, nullptr, 1));
        EXPECT_FAILS(EINVAL, -1, row.run(0, &byte, -1));
        const std::string line = "22 " + row.name + ": invalid buffer";
        EXPECT_THAT(log.lines(), ElementsAre(line, line));
    }
}

TEST(DurableChange, EachFailingCallIsReportedOnceUnlessQuietAndLeaksNothing) {
    vextest::TempDir dir;
    const std::string from = dir / "from", to = dir / "to", &top = dir.path();
    const int descriptors = vextest::openDescriptors();
    const struct {
        std::string call, line;
        bool changed;
    } kRows[] = {{"rename", "rename_dirfsync: Could not rename '" + from + "' to '" + to + "'", false},
        {"unlink", "unlink_dirfsync: Could not unlink '" + from + "'", false},
        {"open", "dirfsync: Could not open directory '" + top + "'", true},
        {"fsync", "dirfsync: Could not fsync directory '" + top + "'", true},
        {"close", "dirfsync: Close after fsync of directory '" + top + "' returned an error", true}};
    for (const auto &row : kRows) {
        for (const int quiet : {0, 1}) {
            for (const bool unlinks : {false, true}) {
                if (row.call == (unlinks ? "rename" : "unlink")) continue;
                SCOPED_TRACE(row.call + (unlinks ? " unlink" : " rename"));
                vextest::writeFile(from, "x");
                (void)unlink(to.c_str());
                vextest::LogCapture log;
                {
                    FaultScope fault({row.call}, 1, EIO);
                    EXPECT_EQ(-1, unlinks ? unlink_dirfsync(from.c_str(), top.c_str(), quiet)
                                          : rename_dirfsync(from.c_str(), to.c_str(), top.c_str(), quiet));
                    EXPECT_EQ(EIO, errno);
                }
                EXPECT_EQ(quiet != 0 ? "" : "5 " + row.line + ": Input/output error", log.text());
                EXPECT_EQ(
                    std::vector<std::string>(row.changed && unlinks ? 0 : 1, row.changed ? "to" : "from"), dir.list());
            }
        }
    }
    EXPECT_EQ(descriptors, vextest::openDescriptors());
    vextest::writeFile(from, "x");
    FaultScope fault("fsync", 1, EINTR);
    EXPECT_EQ(0, rename_dirfsync(from.c_str(), to.c_str(), top.c_str(), 0));
    EXPECT_FAILS(ENOTDIR, -1, dirfsync(to.c_str(), 1));
    EXPECT_EQ(0, unlink_dirfsync(to.c_str(), top.c_str(), 0));
}

TEST(SafeRename, ReportsItsArgumentsAndNothingElse) {
    vextest::LogCapture log;
    EXPECT_FAILS(ENOENT, -1, safe_rename(nullptr, "x") & safe_rename("x", "") & safe_rename("/absent/a", "/absent/b"));
    EXPECT_EQ(
        "22 safe_rename: invalid argument for src_path NULL pointer\n"
        "22 safe_rename: invalid argument for dst_path <empty>",
        log.text());
}

TEST(Streams, EndOfFileIsQuietAndAnErrorIsNot) {
    vextest::TempDir dir;
    vextest::writeFile(dir / "file", "12345");
    vextest::LogCapture log;
    char buffer[8];
    size_t count = 99;
    vex::UniqueFile file(fopen((dir / "file").c_str(), "r")), directory(fopen(dir.path().c_str(), "r"));
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

TEST(Streams, SyncsFlushFirstAndOnlyTheSafeTwinsRepeatInterruptions) {
    const struct {
        const char *name, *call;
        int (*run)(FILE *);
        bool repeats;
    } kRows[] = {{"safe_fflush", "none", safe_fflush, true}, {"ffsync", "fsync", ffsync, false},
        {"safe_ffsync", "fsync", safe_ffsync, true}, {"ffdatasync", "fdatasync", ffdatasync, false},
        {"safe_ffdatasync", "fdatasync", safe_ffdatasync, true},
        {"fftruncate", "ftruncate", [](FILE *f) { return fftruncate(f, 3); }, true},
        {"safe_fclose", "fclose", safe_fclose, false}};
    vextest::TempDir dir;
    const int descriptors = vextest::openDescriptors();
    for (const auto &row : kRows) {
        for (const std::string call : {row.call, "fflush"}) {
            SCOPED_TRACE(row.name + call);
            vextest::LogCapture log;
            FILE *file = fopen((dir / "file").c_str(), "w");
            EXPECT_EQ(3u, safe_fwrite("abc", 1, 3, file));
            FaultScope fault({call}, 1, EINTR);
            EXPECT_EQ(row.repeats && call != "fflush" ? 0 : -1, row.run(file));
            EXPECT_EQ(call == "fflush" && row.run != safe_fclose ? "" : "abc", vextest::readFile(dir / "file"));
            if (row.run != safe_fclose) (void)fclose(file);
            EXPECT_EQ(-1, row.run(nullptr));
            EXPECT_THAT(log.lines(), ElementsAre("22 " + std::string(row.name) + ": invalid stream"));
        }
    }
    EXPECT_EQ(descriptors, vextest::openDescriptors());
}

TEST(Streams, DigitsEndAtTheFirstOtherCharacterOrTheLimitWhichStays) {
    vextest::TempDir dir;
    for (const auto &row : vextest::table(4,
             "123,4|32|123|,|123456|3|123|4|123|3|123|\xff|12|32|12|"
             "\xff||4||\xff|x|4||x|7|0||7|-1|4||-|")) {
        vextest::writeFile(dir / "file", row[0]);
        vex::UniqueFile file(fopen((dir / "file").c_str(), "r"));
        char buffer[32];
        size_t count = 99;
        EXPECT_EQ(buffer, fread_uint(file.get(), buffer, std::stoul(row[1]), &count));
        EXPECT_EQ(row[2], std::string(buffer, count));
        EXPECT_EQ(row[3][0], static_cast<char>(getc(file.get()))) << row[0];  // EOF is '\xff'
    }
}

}  // namespace
