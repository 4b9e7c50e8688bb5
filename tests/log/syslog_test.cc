// What goes to syslog: mask, priorities, words; opening it with a hung daemon. The calls themselves are redirected.
#include <stdarg.h>
#include <syslog.h>

#include "log/config.h"
#include "support/test.h"

static std::vector<std::string> sent;
static bool daemon_hangs = false;
static int opened = 0, closed = 0;

extern "C" {
void __wrap_openlog(const char *, int option, int facility) {
    opened += option == (LOG_PID | LOG_NDELAY) && facility == LOG_LOCAL4 ? 1 : 100;
}
void __wrap_closelog() { ++closed; }
void __wrap_syslog(int priority, const char *format, ...) {
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    sent.push_back(std::to_string(priority) + " " + text);
    timespec wait{5, 0};
    if (daemon_hangs) nanosleep(&wait, nullptr);  // ended by the alarm
}
}

TEST(Syslog, SendsLevelsOfTheMaskWithTheirPriorities) {
    vex::log::LogConfig &config = vex::log::config();
    config.Reset();
    config.Init(VEX_LOG_NO_OUTPUT, VEX_LOG_ERR | VEX_LOG_BUG | VEX_LOG_TRACE, false);
    EXPECT_TRUE(config.syslogOpen());
    sent.clear();
    ErrorA(5, "disk");
    WarningA(5, "not in the mask");
    vexLog(-1, VEX_LOG_BUG, "bug");
    __Trace("never sent");
    vexSyslog(7, LOG_WARNING, "direct\n");
    vexSyslog(7, LOG_INFO, "no code");
    vexSyslog(-1, LOG_EMERG, "none");
    vexSyslog(1, 9, "word");
    EXPECT_THAT(sent, ElementsAre("3 ERR: 5: disk\n", "1 BUG: bug\n", "4 WARNING: 7: direct", "6 INFO: no code",
                          "0 EMERG: none", "9 : 1: word"));
    closed = 0;
    config.Reset();
    EXPECT_EQ(1, closed);
    EXPECT_FALSE(config.syslogOpen());
    config.Init(VEX_LOG_SILENT, VEX_LOG_ERR, false);  // silent keeps it closed
    EXPECT_FALSE(config.syslogOpen());
    config.Reset();
}

TEST(Syslog, AHungDaemonIsGivenUpWithinASecondOrSo) {
    daemon_hangs = true;
    timespec start{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    EXPECT_FALSE(vex::log::LogConfig::SupportSyslog());
    clock_gettime(CLOCK_MONOTONIC, &end);
    daemon_hangs = false;
    EXPECT_LE(end.tv_sec - start.tv_sec, 3);
    EXPECT_TRUE(vex::log::LogConfig::SupportSyslog());
    EXPECT_LT(opened, 100);  // every time with the right option and facility
}
