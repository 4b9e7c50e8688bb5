#include "log/report.h"

#include <stdarg.h>
#include <stdio.h>

#include <vex/log.h>

namespace vex::log {
namespace {

void report(int level, int code, int err, const char *who, const char *format, va_list args)
    VEX_PRINTF(5, 0);

void report(int level, int code, int err, const char *who, const char *format, va_list args) {
    char text[2048];
    errno = err;  // for %m
    if (vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
    errno = err;
    vexLog(code, level, "%s: %s", who, text);
    errno = err;
}

}  // namespace

void failure(int code, int err, const char *who, const char *format, ...) {
    va_list args;
    va_start(args, format);
    report(VEX_LOG_ERR, code, err, who, format, args);
    va_end(args);
}

void warning(int code, int err, const char *who, const char *format, ...) {
    va_list args;
    va_start(args, format);
    report(VEX_LOG_WARN, code, err, who, format, args);
    va_end(args);
}

void allocationFailure(size_t bytes, const char *who, int line, const char *file) {
    constexpr int kCode = 90;
    errno = ENOMEM;
    vexLog(kCode, VEX_LOG_ERR, "Could not allocate %lu bytes (%s at line %i in %s)", bytes, who,
           line, file);
    errno = ENOMEM;
}

}  // namespace vex::log
