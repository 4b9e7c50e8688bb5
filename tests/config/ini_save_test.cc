// A save that fails or loses power at any call leaves the path with the old content or the new one,
// whole.

#include <vex/inifile.h>

#include "support/test.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;
using vextest::FaultScope;

const std::vector<std::string> kDiskCalls = {
    "open", "fstat", "fchmod", "write", "fsync", "close", "unlink", "link", "rename", "stat", "renameat2", "lstat"};
constexpr const char *kOld = "[s]\nk=old\n", *kNew = "[s]\nk=new\n";

class IniSave : public testing::Test {
protected:
    IniSave() { prepare(); }
    ~IniSave() override { InifileReleaseAll(); }
    /// The old file on disk, the new content in memory, no backup.
    void prepare() {
        InifileReleaseAll();
        vextest::writeFile(path_, kOld);
        unlink((path_ + ".bak").c_str());
        EXPECT_EQ(0, InifileSaveValueA("s", "k", "new", path_.c_str()));
    }
    vextest::TempDir dir_;
    const std::string path_ = dir_ / "a.ini";
};

TEST_F(IniSave, AFailedCallLeavesTheOldFileOneLogLineAndNoStrayFile) {
    std::vector<std::string> calls;
    const int descriptors = vextest::openDescriptors();
    vextest::forEachFault(kDiskCalls, EIO, [&](const FaultScope &fault) {
        vextest::LogCapture log;
        const int result = InifileSaveA(path_.c_str());
        const int err = errno;
        const vextest::FaultPause pause;
        if (fault.fired()) calls.push_back(fault.faultedCall());
        SCOPED_TRACE(fault.faultedCall() + " number " + std::to_string(calls.size()));
        EXPECT_EQ(fault.fired() ? -1 : 0, result);
        if (fault.fired()) {
            EXPECT_EQ(EIO, err);
            EXPECT_THAT(log.lines(), SizeIs(1));
        }
        // at the last three calls the new file is in place and only its directory is not synced
        const bool renamed = !fault.fired() || calls.size() > 10;
        EXPECT_EQ(renamed ? kNew : kOld, vextest::readFile(path_));
        for (const auto &name : dir_.list()) EXPECT_TRUE(name == "a.ini" || name == "a.ini.bak") << name;
        EXPECT_EQ(descriptors, vextest::openDescriptors());
        prepare();
    });
    // the new file is synced before the old one is touched, and the directory after it
    EXPECT_THAT(calls, ElementsAre("stat", "open", "fchmod", "write", "fsync", "fstat", "close", "unlink", "link",
                           "rename", "open", "fsync", "close"));
}

TEST_F(IniSave, ACrashAtAnyCallLeavesTheOldOrTheNewFile) {
    bool crashed = true, seen_new = false;
    for (unsigned nth = 1; crashed; ++nth) {
        SCOPED_TRACE(nth);
        const pid_t child = fork();
        if (child == 0) {
            const FaultScope fault(kDiskCalls, nth, FaultScope::kCrash);
            _exit(InifileSaveA(path_.c_str()) == 0 ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        crashed = WEXITSTATUS(status) == FaultScope::kCrashStatus;
        const std::string now = vextest::readFile(path_);
        EXPECT_TRUE(now == kNew || (now == kOld && !seen_new)) << now;
        seen_new = now == kNew;
        if (!crashed) break;
        prepare();
        for (const auto &name : dir_.list())
            if (name != "a.ini") unlink((dir_ / name).c_str());
    }
    EXPECT_TRUE(seen_new);
    EXPECT_EQ(kOld, vextest::readFile(path_ + ".bak"));
}

TEST_F(IniSave, MovesTheOldFileWhereHardLinksAreRefusedAndMovesItBackOnFailure) {
    {
        const FaultScope refused("link", 1, EPERM);
        EXPECT_EQ(0, InifileSaveA(path_.c_str()));
    }
    EXPECT_EQ(kNew, vextest::readFile(path_));
    EXPECT_EQ(kOld, vextest::readFile(path_ + ".bak"));

    prepare();
    vextest::LogCapture log;
    {
        const FaultScope refused("link", 1, EPERM), last("rename", 2, EIO);
        EXPECT_FAILS(EIO, -1, InifileSaveA(path_.c_str()));
    }
    EXPECT_THAT(log.lines(), ElementsAre("5 inifileSave: failed to rename file"));
    EXPECT_EQ(kOld, vextest::readFile(path_));
    EXPECT_THAT(dir_.list(), ElementsAre("a.ini"));
}

TEST_F(IniSave, GivesTheNewFileItsModeKeepsABackupAndFollowsLinks) {
    ASSERT_EQ(0, mkdir((dir_ / "real").c_str(), 0755));
    const std::string link = dir_ / "link.ini";
    ASSERT_EQ(0, symlink("hop", link.c_str()));
    ASSERT_EQ(0, symlink("real/file", (dir_ / "hop").c_str()));
    const mode_t mask = umask(077);
    EXPECT_EQ(0, InifileSaveIntegerA("s", "k", 1, link.c_str()));
    EXPECT_EQ(0, InifileSaveA(link.c_str())) << "a link that leads nowhere yet";
    EXPECT_EQ(0, InifileSaveIntegerA("s", "k", 2, link.c_str()));
    EXPECT_EQ(0, InifileFlushAll());
    umask(mask);
    EXPECT_EQ(0640U, vextest::modeOf(link));
    EXPECT_EQ("[s]\nk=2\n\n", vextest::readFile(dir_ / "real/file"));
    EXPECT_EQ("[s]\nk=1\n\n", vextest::readFile(dir_ / "real/file.bak"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(IniSave, KeepsTheBackupWhenTheFileIsGoneAndBreaksNoLineByAValue) {
    vextest::writeFile(path_ + ".bak", "precious");
    ASSERT_EQ(0, unlink(path_.c_str()));
    EXPECT_EQ(0, InifileSaveValueA("s", "k", "two\nlines\r\"q\"\t", path_.c_str()));
    EXPECT_EQ(0, InifileSaveA(path_.c_str()));
    EXPECT_EQ("precious", vextest::readFile(path_ + ".bak"));
    EXPECT_EQ("[s]\nk=two\\nlines\\r\"q\"\t\n", vextest::readFile(path_));
}

TEST_F(IniSave, SavesToANewPathOnlyWhereNothingIs) {
    const std::string target = dir_ / "b.ini";
    vextest::LogCapture log;
    EXPECT_EQ(-1, InifileSaveAsA(target.c_str(), (dir_ / "not loaded").c_str()));
    EXPECT_FAILS(EEXIST, -1, InifileSaveNewA(path_.c_str()));
    EXPECT_EQ(-1, InifileSaveAsA((dir_ / "no/b").c_str(), path_.c_str()));
    EXPECT_EQ(-1, InifileSaveA("__default__"));
    EXPECT_THAT(log.lines(),
        ElementsAre("2 InifileSaveAsA: cannot find key", "17 InifileSaveNewA: file already exists",
            "2 InifileSaveAsA: cannot open file " + (dir_ / "no/b"), "22 inifileSave: cannot open file __default__"));
    for (const int err : {EIO, EINVAL}) {  // EINVAL: a file system without exclusive renames
        vextest::forEachFault(kDiskCalls, err, [&](const FaultScope &fault) {
            const int result = IniFileLoadAndSaveAsA(target.c_str(), path_.c_str());
            const vextest::FaultPause pause;
            SCOPED_TRACE(fault.faultedCall());
            const auto names = dir_.list();
            if (names.size() > 1) EXPECT_EQ(kNew, vextest::readFile(target));
            else EXPECT_EQ(-1, result);
            EXPECT_TRUE(names == std::vector<std::string>({"a.ini", "b.ini"}) || names.size() == 1);
            unlink(target.c_str());
        });
    }
}

TEST_F(IniSave, AFailedAllocationIsOneLineAndKeepsWhatWasThere) {
    InifileReleaseAll();
    const unsigned faults = vextest::forEachFault({"malloc"}, ENOMEM, [&](const FaultScope &fault) {
        vextest::LogCapture log;
        char value[16] = "";
        const int loaded = InifileLoadA(path_.c_str());
        const int result = loaded != 0 ? -1 : InifileGetValueA("t", "k", value, sizeof value, "default", path_.c_str());
        const int saved = result == 0 || loaded != 0 ? -1 : InifileSaveA(path_.c_str());
        const vextest::FaultPause pause;
        if (loaded == 0 && result == 0) { EXPECT_STREQ("default", value); }
        EXPECT_EQ(fault.fired() ? -1 : 0, saved);
        if (fault.fired()) {
            EXPECT_EQ(kOld, vextest::readFile(path_));
            ASSERT_THAT(log.lines(), SizeIs(1));
            EXPECT_THAT(log.lines()[0], testing::MatchesRegex("90 Could not allocate [0-9]+ bytes \\(\\w+ at line "
                                                              "[0-9]+ in \\.\\./inifile\\.cc\\)"));
        } else {
            EXPECT_EQ("[s]\nk=old\n[t]\nk=default\n", vextest::readFile(path_));
        }
        prepare();
        InifileReleaseAll();
    });
    EXPECT_GT(faults, 8U);
}

}  // namespace
