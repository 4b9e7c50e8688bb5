// Contexts: numbering and inheritance, sharing, falling back, fork. Each scenario runs in a child process where the
// order of first uses matters.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include <vex/log.h>

#include "support/faults.h"
#include "support/temp_dir.h"

using vextest::readFile;
using vextest::TempDir;

TEST(LogContext, QuestionsMakeNone) {
    std::thread([] {
        EXPECT_STREQ("(null)", vexLogPathA());
        EXPECT_STREQ("", vexLogLastErrorA());
        EXPECT_STREQ("", vexLogLastMessageA());
        EXPECT_EQ(nullptr, vexLogGetCtx());
        vexLogCtxDestroy(nullptr);
    }).join();
}

TEST(LogContext, OtherThreadsTakeOverWhatTheFirstOneSetUp) {
    TempDir dir;
    const std::string path = dir / "a.log";
    EXPECT_EXIT(
        {
            vexLogSet(path.c_str(), 0xff | VEX_LOG_SILENT, 0);
            std::thread([] {
                InfoA(-1, "worker");
                vexLogSet("/nonexistent.log", VEX_LOG_SILENT, 0);  // its own path; the process's flags stay
            }).join();
            InfoA(-1, "first");
            vexLogClose();
            InfoA(-1, "closed");
            int flags = 1;
            vexLogGetFlags(&flags, nullptr);
            vexLogDestroy();
            int after = 0;
            vexLogGetFlags(&after, nullptr);
            _exit(flags == 0 && after == 135 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ("INFO: worker\nINFO: first\n", readFile(path));
}

TEST(LogContext, AWorkerLogsIntoItsCreatorsContext) {
    ErrorA(-1, "%s", "");  // makes this thread's context
    vexLogCtx *mine = vexLogGetCtx();
    vexLogSetFlags(135 | VEX_LOG_NO_OUTPUT, 0);
    std::thread([mine] {
        vexLogSetCtx(mine);
        ErrorA(9, "from the worker");
    }).join();
    vexLogSetFlags(135, 0);
    EXPECT_STREQ("9: from the worker\n", vexLogLastErrorA());
    EXPECT_EQ(mine, vexLogGetCtx());
}

TEST(LogContext, WithoutMemoryTheDefaultContextServes) {
    std::thread([] {
        vextest::FaultScope fault("calloc", 1, ENOMEM);
        testing::internal::CaptureStderr();
        ErrorA(5, "still said");
        const std::string text = testing::internal::GetCapturedStderr();
        EXPECT_NE(std::string::npos, text.find("ALERT: Could not establish a logging context: malloc failed for "))
            << text;
        EXPECT_NE(
            std::string::npos, text.find("(Cannot allocate memory). Using the default logging context instead.\n"));
        EXPECT_NE(std::string::npos, text.find("5: still said\n"));
    }).join();
}

TEST(LogContext, AChildLogsOnAfterFork) {
    TempDir dir;
    const std::string path = dir / "a.log";
    EXPECT_EXIT(
        {
            vexLogSet(path.c_str(), 0xff | VEX_LOG_SILENT, 0);
            InfoA(-1, "parent");
            const pid_t child = fork();
            if (child == 0) {
                vexlog_reset_for_fork();
                InfoA(-1, "child");
                _exit(0);
            }
            int status = 0;
            waitpid(child, &status, 0);
            InfoA(-1, "parent again");
            _exit(status);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ("INFO: parent\nINFO: child\nINFO: parent again\n", readFile(path));
}
