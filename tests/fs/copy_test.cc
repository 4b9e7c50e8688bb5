#include <zlib.h>

#include "support/test.h"

struct Copy : FolderTest {
    Copy() {
        for (char &c : content) c &= 15;  // which can be compressed
        writeFile(from, content);
    }
    ~Copy() override { FileSetOptions(VEX_COPY_PLAIN); }
    const std::string from = dir / "from", to = dir / "to";
    std::string content = testNoise(100000);
};

TEST_F(Copy, EveryUnderstoodOptionCopiesAndNoOtherLeavesAnything) {
    for (unsigned options = 0; options < 0x50; ++options) {
        SCOPED_TRACE(options);
        const std::string known = " 1 2 4 6 16 18 20 22 32 34 36 38 ";
        if ((options & 0x30) == 0x30) {
            EXPECT_FAILS_WITH("22 FileSetOptions: cannot have compress and uncompress set at the same time", 0,
                FileSetOptions(options));
            continue;
        }
        EXPECT_EQ(1, FileSetOptions(options));
        if (known.find(" " + std::to_string(options) + " ") == std::string::npos) {
            EXPECT_EQ(-1, FileCopy(from.c_str(), to.c_str(), 0));
            EXPECT_EQ(
                "22 _doCopy: invalid input: " + std::to_string(options) + "\n22 FileCopy: copy failed", log.take());
            EXPECT_THAT(dir.list(), ElementsAre("from"));
            continue;
        }
        EXPECT_EQ(100000, FileCopy(from.c_str(), to.c_str(), 0));
        EXPECT_EQ((options & 0x10) == 0, readFile(to) == content);
        char text[33];
        if ((options & 2) != 0) {
            EXPECT_STREQ(MD5FromData(content.data(), content.size()), FileGetStringMD5(text, 33));
        }
        const auto *bytes = reinterpret_cast<const Bytef *>(content.data());
        if ((options & 4) != 0) { EXPECT_EQ(adler32_z(1, bytes, content.size()), FileGetValueCRC()); }
        if ((options & 0x10) != 0) {  // and back
            FileSetOptions(VEX_COPY_DECOMPRESS);
            EXPECT_EQ(100000, FileCopy(to.c_str(), (dir / "back").c_str(), 0));
            EXPECT_EQ(content, readFile(dir / "back"));
            std::string cut = readFile(to);
            writeFile(to, cut.substr(0, cut.size() - 9));
            EXPECT_FAILS_WITH("5 _doCopy: encountered read/write errors\n5 FileCopy: copy failed", -1,
                FileCopy(to.c_str(), (dir / "cut").c_str(), 0));  // not a short success
            (void)unlink((dir / "back").c_str());
        }
        (void)unlink(to.c_str());
    }
}

TEST_F(Copy, RefusalsAreWordedAndCostNothing) {
    writeFile(to, "old");
    EXPECT_EQ(-1, FileCopy(from.c_str(), to.c_str(), 0));
    EXPECT_EQ(-1, FileCopy(dir.path().c_str(), (dir / "x").c_str(), 0));
    EXPECT_FAILS(ENOENT, -1, FileCopy("/absent", (dir / "x").c_str(), 0));
    EXPECT_EQ("old", readFile(to));
    EXPECT_EQ("17 FileCopy: could not open destination file " + to +
                  "\n21 FileCopy: directory passed as parameter where file was expected"
                  "\n21 FileCopy: could not open reader source " +
                  dir.path() +
                  "\n2 FileCopy: could not open file /absent\n2 FileCopy: could not open reader source /absent",
        log.text());
    EXPECT_EQ(VEX_LOG_WARN, log.entries()[3].level);
}

TEST_F(Copy, MoveReportsEveryFailingCallAndNeverLosesTheContent) {
    // renames fail as across file systems; then each later call fails once
    for (const bool occupied : {false, true}) {
        FileSetOptions(occupied ? VEX_COPY_PLAIN : VEX_COPY_COMPRESS);
        (void)forEachFault({"open", "read", "write", "fsync", "unlink"}, EIO, [&](const FaultScope &scope) {
            {
                FaultPause pause;
                writeFile(from, content);
                (void)unlink(to.c_str());
                if (occupied) writeFile(to, "old");
            }
            FaultScope renames("rename", 1, EXDEV, FaultScope::kLasting);
            const bool moved = FileMove(from.c_str(), to.c_str(), 0);
            FaultPause pause;
            EXPECT_TRUE(moved == !scope.fired() && moved == log.take().empty());
            EXPECT_TRUE(dir.list().size() == 1 || readFile(to) == "old") << "no half copy";
            if (moved) EXPECT_EQ(occupied, readFile(to) == content);  // compressed the first time
            else EXPECT_EQ(content, readFile(from));
        });
    }
}

TEST_F(Copy, MoveGetsADestinationOutOfTheWayButNotForAMissingSource) {
    writeFile(to, "old");
    {
        FaultScope fault("rename", 1, EPERM);
        EXPECT_TRUE(FileMove(from.c_str(), to.c_str(), 0));
    }
    EXPECT_THAT(log.lines(VEX_LOG_INFO),
        ElementsAre("Destination file (" + to + ") exists,now try to remove it.", "Second attempt rename succeed!"));
    log.clear();
    FaultScope naps("nanosleep", 1, ENOSYS, FaultScope::kLasting);
    EXPECT_FALSE(FileMoveWithRetry(from.c_str(), to.c_str(), 0));
    EXPECT_EQ(content, readFile(to));
    EXPECT_EQ(4u * 6u, log.lines().size());
    EXPECT_EQ("2 FileMove: copy failed", log.lines()[2]);
    EXPECT_EQ(
        "2 FileMoveWithRetry: move " + from + " to " + to + " failed (No such file or directory), retry in 1 second!",
        log.lines().back());
}
