// Log settings as programs write them into their ini files.

#include <vex/inifile.h>

#include "support/test.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;

class LogSettings : public testing::Test {
protected:
    ~LogSettings() override { InifileReleaseAll(); }
    int load(const std::string &text, const char *section, size_t room = 4096, const char *file_name = "x.log") {
        InifileReleaseAll();
        vextest::writeFile(ini_, text);
        char path[4096] = "";
        retention_ = -1;
        const int flags = vexLogLoadA(ini_.c_str(), section, "LogDir", path, room, file_name, &retention_);
        path_ = path;
        return flags;
    }
    vextest::TempDir dir_;
    const std::string ini_ = dir_ / "a.ini", logs_ = dir_ / "deep/logs", directory_ = "LogDir=" + logs_;
    std::string path_;
    int retention_ = 0;
};

TEST_F(LogSettings, TakesEachKeyFromTheProgramsSectionOrTheCommonOne) {
    const std::string common = "[Logging]\nLogging=short,thread\nRetention=7\n" + directory_ + "\\\\\n[mine]\nLogging=";
    EXPECT_EQ(143 | VEX_LOG_THREAD, load(common + "\n", "mine"));
    EXPECT_EQ(logs_ + "/x.log", path_);
    EXPECT_EQ(7, retention_);
    EXPECT_EQ(0755U, vextest::modeOf(logs_)) << "the directory was made";

    EXPECT_EQ(2303, load(common + "full\nRetention=-3\n", "MINE", 4096, nullptr));
    EXPECT_EQ(logs_ + "/", path_);
    EXPECT_EQ(0, retention_);
    EXPECT_EQ(159, load("[mine]\nRetention=9\n" + directory_, nullptr, 0)) << "long, and no path asked for";
    EXPECT_EQ(0, retention_) << "section mine was not asked for";
}

TEST_F(LogSettings, ReportsWhatIsWrongInOneLineAndGivesNoFlags) {
    const std::string mine = "[mine]\n" + directory_;
    vextest::LogCapture log;
    EXPECT_FAILS(EINVAL, -1, load(mine + "\nLogging=loud", "mine"));
    EXPECT_EQ(
        "\nBadValue : loud\nFile     : " + ini_ +
            "\nSection  : mine\nEntry    : Logging\nReason   : Expected one of none, short, long, verbose or full",
        log.text());
    EXPECT_EQ(-1, load(mine + "\nLogging=none", "mine")) << "nothing is logged, so nothing is made";
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(dir_.list(), ElementsAre("a.ini"));
    EXPECT_EQ(-1, load("[mine]\nLogDir=" + ini_, "mine"));
    EXPECT_EQ(-1, load(mine, "mine", logs_.size() + 6)) << "one byte short";
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(159, load(mine, "mine", logs_.size() + 7));
    EXPECT_EQ(159, load(mine, "mine", 4096, std::string(4096, 'x').c_str()));
    EXPECT_EQ(logs_ + "/", path_) << "a name that does not fit is left out";
    EXPECT_THAT(log.lines(), SizeIs(4));
}

}  // namespace
