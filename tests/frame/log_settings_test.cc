// Log settings as programs write them into their ini files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <vex/inifile.h>
#include <vex/log.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;

class LogSettings : public testing::Test {
protected:
    ~LogSettings() override { InifileReleaseAll(); }
    int load(const std::string &text, const char *section, size_t room = 4096, const char *file_name = "x.log") {
        InifileReleaseAll();
        vextest::writeFile(ini_, text);
        path_.assign(4096, '\0');
        retention_ = -1;
        const int flags = vexLogLoadA(ini_.c_str(), section, "LogDir", path_.data(), room, file_name, &retention_);
        path_.resize(strlen(path_.c_str()));
        return flags;
    }
    vextest::TempDir dir_;
    const std::string ini_ = dir_ / "a.ini", logs_ = dir_ / "deep/logs";
    std::string path_;
    int retention_ = 0;
};

TEST_F(LogSettings, TakesEachKeyFromTheProgramsSectionOrTheCommonOne) {
    const std::string common = "[Logging]\nLogging=short,thread\nRetention=7\nLogDir=" + logs_ + "\\\\\n";
    EXPECT_EQ(143 | VEX_LOG_THREAD, load(common + "[mine]\nLogging=\n", "mine"));
    EXPECT_EQ(logs_ + "/x.log", path_);
    EXPECT_EQ(7, retention_);
    struct stat status {};
    ASSERT_EQ(0, stat(logs_.c_str(), &status)) << "the directory was made";
    EXPECT_EQ(0755U, status.st_mode & 0777U);

    EXPECT_EQ(2303, load(common + "[mine]\nLogging=full\nRetention=-3\n", "MINE", 4096, nullptr));
    EXPECT_EQ(logs_ + "/", path_);
    EXPECT_EQ(0, retention_);
    EXPECT_EQ(159, load("[mine]\nRetention=many\nLogDir=" + logs_ + "\n", nullptr, 0)) << "long, and no path asked for";
    EXPECT_EQ(0, retention_) << "section mine was not asked for";
    char value[32];
    EXPECT_EQ(5, InifileGetValueA("Logging", "Logging", value, sizeof value, nullptr, ini_.c_str()))
        << "the default is there to be saved";
}

TEST_F(LogSettings, ReportsWhatIsWrongInOneLineAndGivesNoFlags) {
    const std::string directory = "LogDir=" + logs_ + "\n";
    vextest::LogCapture log;
    EXPECT_EQ(-1, load("[mine]\nLogging=loud\n" + directory, "mine"));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_THAT(
        log.lines(), ElementsAre("\nBadValue : loud\nFile     : " + ini_ +
                                 "\nSection  : mine\nEntry    : Logging\nReason   : Expected one of none, short, "
                                 "long, verbose or full"));
    log.clear();
    EXPECT_EQ(-1, load("[mine]\nLogging=none\n" + directory, "mine")) << "nothing is logged, so nothing is made";
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(dir_.list(), ElementsAre("a.ini"));
    log.clear();
    EXPECT_EQ(-1, load("[mine]\nLogDir=" + ini_ + "\n", "mine"));
    EXPECT_EQ(-1, load("[mine]\n" + directory, "mine", logs_.size() + 6)) << "one byte short";
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(159, load("[mine]\n" + directory, "mine", logs_.size() + 7));
    EXPECT_EQ(159, load("[mine]\n" + directory, "mine", 4096, std::string(4096, 'x').c_str()));
    EXPECT_EQ(logs_ + "/", path_) << "a name that does not fit is left out";
    EXPECT_EQ(-1, vexLogLoadA(nullptr, "mine", "LogDir", nullptr, 0, nullptr, nullptr));
    EXPECT_THAT(log.lines(), SizeIs(3));
}

}  // namespace
