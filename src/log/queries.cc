// What a thread can ask of its log. None of it makes a context.
#include <execinfo.h>
#include <string.h>
#include <unistd.h>

#include <vex/log.h>

#include "base/ascii.h"
#include "base/errno_guard.h"
#include "log/context.h"

using namespace vex::log;

extern "C" {

FILE *vexLogFile(void) {
    return stderr;
}

const char *vexLogPathA(void) {
    const vexLogCtx *ctx = contextIfAny();
    return ctx == nullptr || ctx->path[0] == '\0' ? "(null)" : ctx->path;
}

const char *vexLogLastErrorA(void) {
    const vexLogCtx *ctx = contextIfAny();
    return ctx == nullptr ? "" : ctx->last;
}

const char *vexLogLastMessageA(void) {
    vexLogCtx *ctx = contextIfAny();
    if (ctx == nullptr) return "";
    char *text = ctx->last;
    if (const size_t length = strlen(text); length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0';
    const bool prefixed =
        vex::ascii::isDigit(text[0]) || (text[0] == '-' && vex::ascii::isDigit(text[1]));
    const char *colon = prefixed ? strchr(text, ':') : nullptr;
    if (colon == nullptr) return text;
    return colon[1] == '\0' ? colon + 1 : colon + 2;
}

void vexLogBacktrace(void) {
    static constexpr char kHead[] = "\nProgram backtrace:\n";
    const vex::ErrnoGuard keep;  // of the failure that it is called for
    void *frames[64];
    const int count = backtrace(frames, 64);
    const int fd = fileno(vexLogFile());
    if (write(fd, kHead, sizeof kHead - 1) < 0) return;  // nowhere left to tell
    backtrace_symbols_fd(frames, count, fd);
    fsync(fd);
}

}  // extern "C"
