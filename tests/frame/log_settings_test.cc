// Log settings as programs write them into their ini files.

#include "support/test.h"

struct LogSettings : FolderTest {
    int load(const std::string &text, const char *section, size_t room = 4096, const char *file_name = "x.log") {
        InifileReleaseAll();
        writeFile(path, text);
        char out[4096] = "";
        retention = -1;
        const int flags = vexLogLoadA(path.c_str(), section, "LogDir", out, room, file_name, &retention);
        logged_to = out;
        return flags;
    }
    const std::string logs = dir / "deep/logs", directory = "LogDir=" + logs;
    std::string logged_to;
    int retention = 0;
};

TEST_F(LogSettings, TakesEachKeyFromTheProgramsSectionOrTheCommonOne) {
    const std::string common = "[Logging]\nLogging=short,thread\nRetention=7\n" + directory + "\\\\\n[mine]\nLogging=";
    EXPECT_EQ(143 | VEX_LOG_THREAD, load(common + "\n", "mine"));
    EXPECT_EQ(logs + "/x.log", logged_to);
    EXPECT_EQ(7, retention);
    EXPECT_EQ(0755U, modeOf(logs)) << "the directory was made";

    EXPECT_EQ(2303, load(common + "full\nRetention=-3\n", "MINE", 4096, nullptr));
    EXPECT_EQ(logs + "/", logged_to);
    EXPECT_EQ(0, retention);
    EXPECT_EQ(159, load("[mine]\nRetention=9\n" + directory, nullptr, 0)) << "long, and no path asked for";
    EXPECT_EQ(0, retention) << "section mine was not asked for";
}

TEST_F(LogSettings, ReportsWhatIsWrongInOneLineAndGivesNoFlags) {
    const std::string mine = "[mine]\n" + directory;
    EXPECT_FAILS(EINVAL, -1, load(mine + "\nLogging=loud", "mine"));
    EXPECT_EQ(
        "\nBadValue : loud\nFile     : " + path +
            "\nSection  : mine\nEntry    : Logging\nReason   : Expected one of none, short, long, verbose or full",
        log.text());
    EXPECT_EQ(-1, load(mine + "\nLogging=none", "mine")) << "nothing is logged, so nothing is made";
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(dir.list(), ElementsAre("file"));
    EXPECT_EQ(-1, load("[mine]\nLogDir=" + path, "mine"));
    EXPECT_EQ(-1, load(mine, "mine", logs.size() + 6)) << "one byte short";
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(159, load(mine, "mine", logs.size() + 7));
    EXPECT_EQ(159, load(mine, "mine", 4096, std::string(4096, 'x').c_str()));
    EXPECT_EQ(logs + "/", logged_to) << "a name that does not fit is left out";
    EXPECT_EQ(4u, log.lines().size());
}
