// A save that fails or loses power at any call leaves the path with the old content or the new one,
// whole.

#include "support/test.h"

const std::vector<std::string> kDiskCalls = {
    "open", "fstat", "fchmod", "write", "fsync", "close", "unlink", "link", "rename", "stat", "renameat2", "lstat"};
constexpr const char *kOld = "[s]\nk=old\n", *kNew = "[s]\nk=new\n";

struct IniSave : FolderTest {
    IniSave() { prepare(); }
    /// The old file on disk, the new content in memory, no backup.
    void prepare() {
        InifileReleaseAll();
        writeFile(path, kOld);
        unlink((path + ".bak").c_str());
        EXPECT_EQ(0, InifileSaveValueA("s", "k", "new", path.c_str()));
    }
};

TEST_F(IniSave, AFailedCallLeavesTheOldFileOneLogLineAndNoStrayFile) {
    std::vector<std::string> calls;
    forEachFault(kDiskCalls, EIO, [&](const FaultScope &fault) {
        errno = 0;
        const int result = InifileSaveA(path.c_str());
        EXPECT_EQ(fault.fired() ? EIO : 0, errno * -result);
        const FaultPause pause;
        if (fault.fired()) calls.push_back(fault.faultedCall());
        EXPECT_THAT(log.take(), MatchesRegex(fault.fired() ? "[^\n]+" : ""));
        // at the last three calls the new file is in place and only its directory is not synced
        const bool renamed = !fault.fired() || calls.size() > 10;
        EXPECT_EQ(renamed ? kNew : kOld, readFile(path));
        for (const auto &name : dir.list()) EXPECT_TRUE(name == "file" || name == "file.bak") << name;
        prepare();
    });
    // the new file is synced before the old one is touched, and the directory after it
    EXPECT_THAT(calls, ElementsAre("stat", "open", "fchmod", "write", "fsync", "fstat", "close", "unlink", "link",
                           "rename", "open", "fsync", "close"));
}

TEST_F(IniSave, ACrashAtAnyCallLeavesTheOldOrTheNewFile) {
    bool seen_new = false;
    forEachCrash(
        kDiskCalls, [&] { EXPECT_EQ(0, InifileSaveA(path.c_str())); },
        [&](bool crashed) {
            const std::string now = readFile(path);
            EXPECT_TRUE(now == kNew || (now == kOld && !seen_new)) << now;
            seen_new = now == kNew;
            if (!crashed) return;
            for (const auto &name : dir.list()) unlink((dir / name).c_str());
            prepare();
        });
    EXPECT_TRUE(seen_new);
    EXPECT_EQ(kOld, readFile(path + ".bak"));
}

TEST_F(IniSave, MovesTheOldFileWhereHardLinksAreRefusedAndMovesItBackOnFailure) {
    {
        const FaultScope refused("link", 1, EPERM), last("rename", 2, EIO);
        EXPECT_FAILS(EIO, -1, InifileSaveA(path.c_str()));
    }
    EXPECT_EQ("5 inifileSave: failed to rename file", log.text());
    EXPECT_EQ(kOld, readFile(path));
    EXPECT_THAT(dir.list(), ElementsAre("file"));
    const FaultScope refused("link", 1, EPERM);
    EXPECT_EQ(0, InifileSaveA(path.c_str()));
    EXPECT_EQ(kNew, readFile(path));
    EXPECT_EQ(kOld, readFile(path + ".bak"));
}

TEST_F(IniSave, GivesTheNewFileItsModeKeepsABackupAndFollowsLinks) {
    ASSERT_EQ(0, mkdir((dir / "real").c_str(), 0755));
    const std::string link = dir / "link.ini";
    ASSERT_EQ(0, symlink("hop", link.c_str()));
    ASSERT_EQ(0, symlink("real/file", (dir / "hop").c_str()));
    const mode_t mask = umask(077);
    EXPECT_EQ(0, InifileSaveIntegerA("s", "k", 1, link.c_str()));
    EXPECT_EQ(0, InifileSaveA(link.c_str())) << "a link that leads nowhere yet";
    EXPECT_EQ(0, InifileSaveIntegerA("s", "k", 2, link.c_str()));
    EXPECT_EQ(0, InifileFlushAll());
    umask(mask);
    EXPECT_EQ(0640U, modeOf(link));
    EXPECT_EQ("[s]\nk=2\n\n", readFile(dir / "real/file"));
    EXPECT_EQ("[s]\nk=1\n\n", readFile(dir / "real/file.bak"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(IniSave, KeepsTheBackupWhenTheFileIsGoneAndBreaksNoLineByAValue) {
    writeFile(path + ".bak", "precious");
    ASSERT_EQ(0, unlink(path.c_str()));
    EXPECT_EQ(0, InifileSaveValueA("s", "k", "two\nlines\r\"q\"\t", path.c_str()));
    EXPECT_EQ(0, InifileSaveA(path.c_str()));
    EXPECT_EQ("precious", readFile(path + ".bak"));
    EXPECT_EQ("[s]\nk=two\\nlines\\r\"q\"\t\n", readFile(path));
}

TEST_F(IniSave, SavesToANewPathOnlyWhereNothingIs) {
    const std::string target = dir / "b.ini";
    EXPECT_EQ(-1, InifileSaveAsA(target.c_str(), (dir / "not loaded").c_str()));
    EXPECT_FAILS(EEXIST, -1, InifileSaveNewA(path.c_str()));
    EXPECT_EQ(-1, InifileSaveAsA((dir / "no/b").c_str(), path.c_str()));
    EXPECT_EQ(-1, InifileSaveA("__default__"));
    EXPECT_EQ(
        "2 InifileSaveAsA: cannot find key\n17 InifileSaveNewA: file already exists\n2 InifileSaveAsA: cannot open "
        "file " +
            (dir / "no/b") + "\n22 inifileSave: cannot open file __default__",
        log.text());
    for (const int err : {EIO, EINVAL}) {  // EINVAL: a file system without exclusive renames
        forEachFault(kDiskCalls, err, [&](const FaultScope &) {
            const int result = IniFileLoadAndSaveAsA(target.c_str(), path.c_str());
            const FaultPause pause;
            const auto names = dir.list();
            if (names.size() > 1) EXPECT_EQ(kNew, readFile(target));
            else EXPECT_EQ(-1, result);
            EXPECT_TRUE(names == std::vector<std::string>({"b.ini", "file"}) || names.size() == 1);
            unlink(target.c_str());
        });
    }
}

TEST_F(IniSave, AFailedAllocationIsOneLineAndKeepsWhatWasThere) {
    InifileReleaseAll();
    const unsigned faults = forEachFault({"malloc"}, ENOMEM, [&](const FaultScope &fault) {
        char value[16] = "default";  // which a getter gives without memory, too
        const bool done = InifileLoadA(path.c_str()) == 0 &&
                          InifileGetValueA("t", "k", value, sizeof value, "default", path.c_str()) != 0 &&
                          InifileSaveA(path.c_str()) == 0;
        const FaultPause pause;
        EXPECT_STREQ("default", value);
        EXPECT_EQ(fault.fired(), !done);
        EXPECT_EQ(done ? "[s]\nk=old\n[t]\nk=default\n" : kOld, readFile(path));
        EXPECT_THAT(log.take(),
            MatchesRegex(
                done ? "" : "90 Could not allocate [0-9]+ bytes \\(\\w+ at line [0-9]+ in \\.\\./inifile\\.cc\\)"));
        prepare();
        InifileReleaseAll();
    });
    EXPECT_GT(faults, 8U);
}
