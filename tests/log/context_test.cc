// Contexts: numbering and inheritance, sharing, falling back, fork. Scenarios run in a child process where the order of
// first uses matters.
#include "support/test.h"

TEST(LogContext, OtherThreadsAndProcessesTakeOverWhatTheFirstThreadSetUp) {
    TempDir dir;
    const std::string path = dir / "a.log";
    const auto child = runChild([&] {
        vexLogSet(path.c_str(), 0xff | VEX_LOG_SILENT, 0);
        std::thread([] {
            EXPECT_STREQ(
                "(null) ", (std::string(vexLogPathA()) + " " + vexLogLastErrorA() + vexLogLastMessageA()).c_str());
            EXPECT_EQ(nullptr, vexLogGetCtx()) << "questions make none";
            InfoA(-1, "worker");
            vexLogSet("/nonexistent.log", VEX_LOG_SILENT, 0);  // its own path; the process's flags stay
        }).join();
        InfoA(-1, "first");
        (void)inChild([] { return vexlog_reset_for_fork(), InfoA(-1, "child"), 0; });
        InfoA(-1, "first again");
        vexLogClose();
        InfoA(-1, "closed");
        int closed = 1, destroyed = 0;
        vexLogGetFlags(&closed, nullptr);
        vexLogDestroy();
        vexLogGetFlags(&destroyed, nullptr);
        _exit(closed == 0 && destroyed == 135 && !Test::HasFailure() ? 0 : 1);
    });
    EXPECT_EQ(0, child.exit_status) << child.out;
    EXPECT_EQ("INFO: worker\nINFO: first\nINFO: child\nINFO: first again\n", readFile(path));
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
    const auto child = runChild([] {
        std::thread([] {
            FaultScope fault("calloc", 1, ENOMEM);
            ErrorA(5, "still said");
        }).join();
    });
    EXPECT_THAT(child.err, MatchesRegex("ALERT: Could not establish a logging context: malloc failed for [0-9]+ "
                                        "bytes \\(Cannot allocate memory\\). Using the default logging "
                                        "context instead.\nError: 5: still said\n"));
}
