// The entry points by level.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include <vex/log.h>

#include "log/config.h"
#include "log/context.h"
#include "log/message.h"

using vex::log::writeMessage;

// Forwards the variable arguments of the enclosing function.
#define LOG_AT(level, code, format)              \
    va_list args;                                \
    va_start(args, format);                      \
    writeMessage((code), (level), format, args); \
    va_end(args)

extern "C" {

void vexLog(int code, int level, const char *format, ...) {
    LOG_AT(level, code, format);
}
void ErrorA(int code, const char *format, ...) {
    LOG_AT(VEX_LOG_ERR, code, format);
}
void WarningA(int code, const char *format, ...) {
    LOG_AT(VEX_LOG_WARN, code, format);
}
void AuthA(int code, const char *format, ...) {
    LOG_AT(VEX_LOG_AUTH, code, format);
}
void InfoA(int code, const char *format, ...) {
    LOG_AT(VEX_LOG_INFO, code, format);
}
void NoticeA(int code, const char *format, ...) {
    LOG_AT(VEX_LOG_NOTICE, code, format);
}
void __Trace(const char *format, ...) {
    LOG_AT(VEX_LOG_TRACE, -1, format);
}

void ErrorExitA(int code, const char *format, ...) {
    LOG_AT(VEX_LOG_CRIT, code, format);
    exit(1);  // NOLINT(concurrency-mt-unsafe): what the function is for
}

void __TraceVA(const char *format, va_list args) {
    writeMessage(-1, VEX_LOG_TRACE, format, args);
}
void DebugVA(const char *format, va_list args) {
    writeMessage(-1, VEX_LOG_WQFS_DEBUG, format, args);
}
void ErrorVA(const char *format, va_list args) {
    writeMessage(-1, VEX_LOG_WQFS_ERROR, format, args);
}
void InfoVA(const char *format, va_list args) {
    writeMessage(-1, VEX_LOG_WQFS_INFO, format, args);
}
void WarningVA(const char *format, va_list args) {
    writeMessage(-1, VEX_LOG_WQFS_WARNING, format, args);
}
void __WqfsLogTraceVA(const char *format, va_list args) {
    writeMessage(-1, VEX_LOG_WQFS_TRACE, format, args);
}

bool TraceOn(void) {
    return vex::log::config().traceOn();
}

void vexSyslog(int code, int priority, const char *format, ...) {
    static constexpr const char *kWords[] = {"EMERG",   "ALERT",  "CRIT", "ERR",
                                             "WARNING", "NOTICE", "INFO", "DEBUG"};
    const int saved_errno = errno;
    const char *word = priority >= LOG_EMERG && priority <= LOG_DEBUG ? kWords[priority] : "";
    const vexLogCtx *ctx = vex::log::context(vex::log::Creation::kByMessage);

    char text[vex::log::kLineSize];
    int length = 0;
    if (priority == LOG_INFO || code == -1) {
        length = snprintf(text, sizeof text, "%s: ", word);
    } else {
        length = snprintf(text, sizeof text, "%s: %i: ", word, ctx->shownCode(code));
    }
    if (length < 0) length = snprintf(text, sizeof text, "%s", "snprintf error");
    const auto start = static_cast<size_t>(length);
    errno = saved_errno;  // for %m
    va_list args;
    va_start(args, format);
    if (vsnprintf(text + start, sizeof text - start, format, args) < 0) text[start] = '\0';
    va_end(args);
    const size_t end = strlen(text);
    if (end > 0 && text[end - 1] == '\n') text[end - 1] = '\0';
    syslog(priority, "%s", text);
    errno = saved_errno;
}

}  // extern "C"
