// Versions, start-up, the switches of all tools, assertions and fatal errors.
#include "frame/process_state.h"
#include "support/test.h"

TEST(Versions, CompareFieldByFieldUntilOneEnds) {
    for (const auto &row : table(4,
             "6.0|6.0.0.1|0|0|6.10|6.9|1|1|6-1|6.1|0|0||5|-1|-1|19.1|19.1.5|0|0|1.2.3.4.5|1.2.3.4.6|0|-1|"
             "1.2.3.4.5.6|1.2.3.4.5.7|0|0|4294967297|1|0|0|1..2|1.0.2|0|0|")) {
        EXPECT_EQ(std::stoi(row[2]), VersionCompare(row[0].c_str(), row[1].c_str())) << row[0];
        EXPECT_EQ(std::stoi(row[3]), ProtocolCompare(row[0].c_str(), row[1].c_str())) << row[0];
    }
    for (const auto &row : table(2,
             "19.0001.0200.0001|1|19.0002.0124.1224|0|19|0|19.0001|0|19.0001.|1|19.1.0|0|19.0001.0124.1224|1|"
             "19.0001.0124.12245678901.2|1|1900010124.1224.1.1.1.1.1|0|"))
        EXPECT_EQ(std::stoi(row[1]), CheckVEXVersion(row[0].c_str())) << row[0];
}

TEST(Startup, WarnsOfAnotherMajorVersionOnceAndCanBeRepeated) {
    const auto result = runChild([] {
        EXPECT_EQ(1, _VexLibInit("p", "5.9"));
        EXPECT_EQ(1, _VexLibInit("p", nullptr));  // does nothing
        EXPECT_GT(vex::process_state.ticks_per_ms, 0);
        InifileSaveValueA("s", "k", "v", "__default__");
        EXPECT_EQ(0, VexLibDestroy());
        EXPECT_EQ(-1, InifileReleaseA("__default__"));
        EXPECT_EQ(0, VexLibDestroy());
        { const zqutil::LibAutoInit init("p"); }
        EXPECT_FALSE(vex::process_state.initialized);
        _VexLibInit("p", nullptr);
        exit(Test::HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(0, result.exit_status) << result.out;
    const std::string warning = "Warning: libvex: version mismatch: this application was compiled using version ",
                      rest = " but is linked against version 6.0.0.0 instead.\n";
    EXPECT_EQ(warning + "5.9" + rest + warning + "(unknown)" + rest, result.err);
}

/// _checkCommonArgs in a child; prints what is left of argv when it returns.
static ChildResult checkArgs(std::vector<std::string> arguments, const char *version = VEX_PRODUCT_VERSION) {
    return runChild([&] {
        std::vector<char *> argv;
        for (auto &argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        int argc = static_cast<int>(arguments.size());
        _checkCommonArgs(
            &argc, argv.data(), [](const char *name) { printf("usage of %s\n", name); }, version, "Jan 1 2024",
            "12:00:00", "Special");
        printf("%d:", argc);
        for (char **at = argv.data(); *at != nullptr; ++at) printf(" %s", *at);
    });
}

TEST(CommonArgs, EveryInformationalSwitchPrintsAndEndsWithStatusOne) {
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        // arguments, regular expression
        {{"/bin/tool", "x", "--help", "--version"},
            "^This is tool, Version 19.0001.0124.1224\n\nCopyright.*\n.*\nusage of tool\n\n\nCommon Options:\n"
            "(\t--[a-z-]+ +: [^\n]*\n){6}\n$"},
        {{"tool", "--", "--version", "--help"}, "^This is tool, Version 19.0001.0124.1224\n$"},
        {{"tool", "--features"},
            "^Version          : 19.0001.0124.1224-Special\nBuild Date       : Jan 1 2024, 12:00:00\n"
            "libvex Version   : 19.0001.0124.1224-Release\nlibvex Build Date: .*, .*\n"
            "Compiler         : [gclan]+ [0-9]+\\.[0-9]+\nLarge Files      : Supported \\(64bit OS\\)\n"
            "Zlib             : version [^,]+, compile flags [0-9a-f]{8} \\(FASTEST not enabled\\)\n$"},
        {{"tool", "--os-test"}, "^System       : Linux\n"},
        {{"tool", "--copyrights"}, "^Copyright.*\n.*web site.\n$"},
    };
    for (const auto &[arguments, output] : rows) {
        const auto result = checkArgs(arguments);
        EXPECT_EQ(1, result.exit_status);
        EXPECT_THAT(result.out, testing::ContainsRegex(output));
    }
}

TEST(CommonArgs, WarnsOfAnotherProductVersionUnlessToldNotTo) {
    const auto mismatch = checkArgs({"/bin/tool", "-v"}, "18.0001.0.0");
    EXPECT_EQ("2: /bin/tool -v", mismatch.out);
    EXPECT_THAT(mismatch.err, HasSubstr("22: _checkCommonArgs: Version mismatch: tool is version 18.0001.0.0 while "
                                        "libvex is version 19.0001.0124.1224\n"));
    for (const char *version : {"18.0001.0.0", VEX_PRODUCT_VERSION}) {
        const auto quiet = checkArgs({"tool", "-v", "--noversioncheck", "file", "--noversioncheck"}, version);
        EXPECT_EQ("4: tool -v file --noversioncheck", quiet.out);
        EXPECT_EQ("", quiet.err);
    }
    const auto null = runChild([] { _checkCommonArgs(nullptr, nullptr, nullptr, "", "", "", ""); });
    EXPECT_EQ(1, null.exit_status);
    EXPECT_EQ("Error: 22: _checkCommonArgs: invalid NULL parameter\n", null.err);
}

TEST(Assert, ReportsAndAborts) {
    const auto result = runChild([] { VEX_ASSERT(1 + 1 == 3); });
    EXPECT_EQ(SIGABRT, result.signal);
    EXPECT_THAT(result.err,
        testing::ContainsRegex("^The following bug was detected: Assertion failed\n\nTested expression: 1 \\+ 1 == 3\n"
                               "Function: .*\nFile    : .*frame_test.cc\nLine    : [0-9]+\nProgram : frame_test\n"
                               "Version : 19.0001.0124.1224\nBuild at: .*, .*\nCompiler: [gclan]+, Version "
                               "[0-9]+\\.[0-9]+\nOS\t: Linux .* on x86_64\n"));
}

static std::string fatal(size_t room = 4096) {
    std::string text(4096, 'x');
    vexGetFatalError(text.data(), room);
    return text.c_str();
}

TEST(FatalError, TheFirstOfAThreadStaysUntilCleared) {
    LogCapture log;
    std::thread([] {
        vexClearFatalError();
        EXPECT_EQ("", fatal());
        EXPECT_FALSE(vexFatalErrorExists());
        EXPECT_EQ(nullptr, vexLogGetCtx()) << "asking creates no context";
    }).join();
    errno = ENOSPC;
    vexSetFatalError("Store", 12, "no room: %m");
    vexSetFatalError("Other", 13, "later");
    EXPECT_EQ(" Store: no room: No space left on device Q-318-12", fatal());
    EXPECT_EQ(" Store", fatal(7));
    vexClearFatalError();
    vexSetFatalPrefix(std::string(300, 'p').c_str(), false);
    vexSetFatalPrefix("ignored", false);
    vexSetFatalError("Store", ~0U, "%s", std::string(3000, 'x').c_str());
    EXPECT_EQ(std::string(256, 'p') + " Store: " + std::string(2104, 'x'), fatal());
    vexClearFatalError();
    vexSetFatalPrefix("new", true);
    vexSetFatalError("Store", 0, "text");
    EXPECT_EQ("new Store: text Q-318-0", fatal());
    vexClearFatalError();
    vexSetFatalPrefix(nullptr, true);
    ASSERT_EQ(3U, log.lines().size());
    EXPECT_EQ(" Store: no room: No space left on device Q-318-12", log.lines()[0]);
}

TEST(Sleep, TellsWhatIsLeftAndTracesInScopes) {
    LogCapture log(LogCapture::kAll);
    EXPECT_EQ(0U, VexSleep(0));
    const FaultScope interrupted("select", 1, EINTR), failing("select", 2, EINVAL);
    {
        const AutoTrace trace("scope");
        EXPECT_EQ(60U, VexSleep(60));
        EXPECT_EQ(static_cast<unsigned>(-1), VexSleep(60));
    }
    EXPECT_THAT(log.lines(VEX_LOG_TRACE),
        ElementsAre("scope: enter", "select returned unexpectedly with error 22 [Invalid argument]", "scope: exit"));
}

using FileLock = FolderTest;

TEST_F(FileLock, KeepsAnotherProcessOutUntilItIsGivenUp) {
    const std::string missing = dir / "no/lock";
    VexFileLock lock;
    ASSERT_TRUE(lock.Lock(path));
    std::atomic<bool> ended{false};
    std::thread waiter([&] {
        EXPECT_EQ(0, inChild([&] { return VexFileLock().Lock(path) ? 0 : 1; }));
        ended = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(ended) << "the other process waits";
    lock.Unlock();
    waiter.join();

    // a signal cuts every pause between attempts short
    const FaultScope pauses("select", 1, EINTR, FaultScope::kLasting);
    EXPECT_FALSE(lock.Lock(missing));
    EXPECT_THAT(
        log.lines(), testing::AllOf(testing::SizeIs(20), testing::Each("Lock: failed to create file " + missing)));
    log.clear();
    const FaultScope refused("fcntl", 1, ENOLCK);
    EXPECT_TRUE(lock.Lock(path)) << "the second attempt works";
    EXPECT_EQ("Lock: caught exception No locks available", log.text());
}
