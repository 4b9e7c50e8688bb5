// The lines themselves: prefix, cut, newline, tag, timestamp, last message, redirector.
#include <stdarg.h>

#include "support/test.h"

namespace {

/// Sends this process's log into a file of its own and takes it back.
class FileLog {
public:
    explicit FileLog(int flags, const char *label = nullptr) : path_(dir_ / "sub/t.log") {
        vexLogGetFlags(&flags_, &mask_);
        vexLogSetEx(path_.c_str(), flags | VEX_LOG_SILENT, 0, nullptr, label);
        vexLogSetFlags(flags | VEX_LOG_SILENT, 0);
    }
    ~FileLog() {
        vexLogSet(nullptr, 0, 0);
        vexLogSetFlags(flags_, mask_);
    }
    std::string text() const { return readFile(path_); }

private:
    TempDir dir_;
    std::string path_;
    int flags_ = 0, mask_ = 0;
};

void callVa(void (*function)(const char *, va_list), const char *format, ...) {
    va_list args;
    va_start(args, format);
    function(format, args);
    va_end(args);
}

}  // namespace

TEST(LogMessage, PrefixFollowsLevelAndCode) {
    static const std::tuple<int, int, const char *> kRows[] = {{-1, VEX_LOG_ERR, "ERR: -1: x\n"},
        {0, VEX_LOG_ERR, "ERR: 100: x\n"}, {-7, VEX_LOG_CRIT, "CRIT: 93: x\n"}, {5, VEX_LOG_WARN, "WARNING: 105: x\n"},
        {-1, VEX_LOG_INFO, "INFO: x\n"}, {0, VEX_LOG_AUTH, "AUTH: x\n"}, {3, VEX_LOG_NOTICE, "NOTICE: 103: x\n"},
        {-1, VEX_LOG_TRACE, "TRACE: x\n"}, {1, VEX_LOG_BUG, "BUG: 101: x\n"}, {-1, 3, "INFO: x\n"},
        {-1, 0, "INFO: x\n"}};
    FileLog log(0xff);
    vexLogSetBaseCode(100);
    std::string expected;
    for (const auto &[code, level, line] : kRows) vexLog(code, level, "%s", "x"), expected += line;
    vexLogSetBaseCode(0);
    EXPECT_EQ(expected, log.text());
}

TEST(LogMessage, EndsInANewlineAndIsCutTo2046Characters) {
    FileLog log(0xff);
    InfoA(-1, "one\n");
    InfoA(-1, "two\n\n");
    InfoA(-1, "%s", "");
    InfoA(-1, "three%cgone", 0);
    std::string expected = "INFO: one\nINFO: two\n\nINFO: three\n";
    for (const size_t length : {2046u, 2047u, 5000u}) {
        InfoA(-1, "%s", std::string(length, 'x').c_str());
        expected += "INFO: " + std::string(2046, 'x') + "\n";
    }
    InfoA(-1, "%s", (std::string(2046, 'y') + "\n").c_str());
    EXPECT_EQ(expected + "INFO: " + std::string(2046, 'y') + "\n", log.text());
}

TEST(LogMessage, ShowsTimestampLabelAndThreadTagWhereAskedFor) {
    const std::string clock = "[0-9][0-9]:[0-9][0-9]:[0-9][0-9] ", date = "[A-Z][a-z]+ [0-9][0-9] " + clock;
    const std::pair<int, std::string> kRows[] = {{VEX_LOG_DATE, date}, {VEX_LOG_DATE | VEX_LOG_SHORT_TIME, clock},
        {VEX_LOG_DATE | VEX_LOG_TIMING, date + "\\[[0-9]+\\] "}, {VEX_LOG_TIMING, ""}};
    for (const auto &[flags, stamp] : kRows) {
        FileLog log(flags | 0xff, "lbl");
        ErrorA(5, "m");
        EXPECT_THAT(log.text(), MatchesRegex(stamp + "ERRlbl: 5: m\n"));
    }
    FileLog log(VEX_LOG_THREAD | 0xff);
    ErrorA(5, "m");
    callVa(ErrorVA, "%s", "m");
    const std::string tag = " [" + std::to_string(pthread_self()) + "]: ";
    EXPECT_EQ("ERR" + tag + "5: m\nWQFS ERROR [" + std::to_string(getpid()) + ":" + tag + "]: m\n", log.text());
}

TEST(LogMessage, ComponentLevelsAreFilteredAsOrdinaryOnes) {
    FileLog log(VEX_LOG_ERR | VEX_LOG_INFO | VEX_LOG_DATE);
    for (auto *function : {DebugVA, ErrorVA, InfoVA, WarningVA, __WqfsLogTraceVA}) callVa(function, "%s", "m");
    vexLog(-1, VEX_LOG_WQFS_CACHE, "m");
    const char *stamp = "[0-9-]+ [0-9:]+\\.[0-9][0-9][0-9] ";
    EXPECT_THAT(log.text(),
        MatchesRegex(std::string(stamp) + "WQFS DEBUG: m\n" + stamp + "WQFS ERROR: m\n" + stamp + "WQFS INFO: m\n"));
}

TEST(LogMessage, StderrLevelsShowSevereMessagesOnlyOrNone) {
    int flags = 0, mask = 0;
    vexLogGetFlags(&flags, &mask);
    const auto shown = [](int word) {
        vexLogSetFlags(word, 0);
        testing::internal::CaptureStderr();
        ErrorA(2, "e");
        InfoA(-1, "i");
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ("Error: 2: e\nInfo: i\n", shown(0xff));
    EXPECT_EQ("Error: 2: e\n", shown(0xff | VEX_LOG_STDERR_SEVERE));
    EXPECT_EQ("", shown(0xff | VEX_LOG_SILENT));
    EXPECT_EQ("", shown(0xff | VEX_LOG_NO_OUTPUT));
    EXPECT_THAT(
        shown(0x02 | VEX_LOG_DATE | VEX_LOG_STDERR_DATE), MatchesRegex("[A-Z][a-z]+ [0-9]+ [0-9:]+ Error: 2: e\n"));
    vexLogSetFlags(flags, mask);
}

TEST(LogMessage, KeepsErrnoAndTheLastMessageThatWasNoTrace) {
    LogCapture log(LogCapture::kAll);
    errno = ENOSPC;
    ErrorA(28, "disk sda: %m");
    EXPECT_EQ(ENOSPC, errno);
    __Trace("%s", "noise");
    EXPECT_STREQ("28: disk sda: No space left on device\n", vexLogLastErrorA());
    EXPECT_STREQ("disk sda: No space left on device", vexLogLastMessageA());
    EXPECT_STREQ("28: disk sda: No space left on device", vexLogLastErrorA());
    InfoA(-1, "7 files: done");
    EXPECT_STREQ("done", vexLogLastMessageA());
    InfoA(-1, "%s", "-3:");
    EXPECT_STREQ("", vexLogLastMessageA());
    ASSERT_EQ(4u, log.entries().size());
    EXPECT_EQ(ENOSPC, log.entries()[0].saved_errno);
    EXPECT_EQ(28, log.entries()[0].code);
    EXPECT_EQ("disk sda: No space left on device", log.entries()[0].text);
}

TEST(LogMessage, ARedirectorMayLogAndChangeErrno) {
    static int calls;
    calls = 0;
    LogCapture quiet;
    vexLogSetRedirector([](int, int, const char *message, int) {
        ++calls;
        InfoA(-1, "nested");
        EXPECT_STREQ("outer", message);
        errno = EPERM;
    });
    errno = ENOENT;
    ErrorA(1, "outer");
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(1, calls);
}
