#include "log/config.h"

#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <vex/log.h>

#include "base/environment.h"

namespace vex::log {
namespace {

volatile sig_atomic_t alarm_fired = 0;

void onAlarm(int) {
    alarm_fired = 1;
}

void setAlarmAction(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    // without SA_RESTART: a connection to a hung daemon must be given up, not begun again
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
}

}  // namespace

constinit LogConfig process_config;

void LogConfig::SetFlags(int flags, int syslogMask) {
    flags_ = flags;
    syslog_mask_ = syslogMask;
    trace_on_ = (flags & VEX_LOG_TRACE) != 0;
    if ((flags & VEX_LOG_SILENT) != 0) {
        stderr_level_ = kNothing;
    } else {
        stderr_level_ = (flags & VEX_LOG_STDERR_SEVERE) != 0 ? kSevere : kEverything;
    }
}

void LogConfig::Reset() {
    if (syslog_open_) closelog();
    syslog_open_ = false;
    initialised_ = false;
    SetFlags(kDefaultFlags, 0);
}

void LogConfig::Init(int flags, int syslogMask, bool force) {
    if (force) SetFlags(flags, syslogMask);
    if (initialised_) return;
    SetFlags(flags, syslogMask);
    if (syslogMask != 0 && ((syslogMask | flags) & VEX_LOG_SILENT) == 0)
        syslog_open_ = SupportSyslog();
    initialised_ = true;
}

bool LogConfig::SupportSyslog() {
    // openlog keeps the pointer: the process name is static, a context's field would not live long
    // enough
    openlog(processName(), LOG_PID | LOG_NDELAY, LOG_LOCAL4);
    alarm_fired = 0;
    setAlarmAction(onAlarm);
    alarm(1);
    syslog(LOG_DEBUG, "DEBUG : syslog opened");
    const bool hung = alarm_fired != 0;
    if (hung) {
        closelog();
    } else {
        alarm(0);
    }
    setAlarmAction(SIG_DFL);
    return !hung;
}

}  // namespace vex::log
