// The calling thread's fatal error, which lives in its log context.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <vex/frame.h>
#include <vex/log.h>

#include "log/context.h"
#include "log/report.h"

namespace {

constexpr unsigned kNoCode = ~0U;

/// Appends within the message's bounds.
VEX_PRINTF(2, 0) void appendArgs(vex::log::FatalSlot &slot, const char *format, va_list args) {
    const size_t used = std::strlen(slot.message);
    (void)vsnprintf(slot.message + used, sizeof slot.message - used, format, args);
}

VEX_PRINTF(2, 3) void append(vex::log::FatalSlot &slot, const char *format, ...) {
    va_list args;
    va_start(args, format);
    appendArgs(slot, format, args);
    va_end(args);
}

}  // namespace

void vexSetFatalError(const char *origin, unsigned code, const char *format, ...) {
    const int saved = errno;
    if (origin == nullptr || format == nullptr)
        return (void)VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    vex::log::FatalSlot *slot = vex::log::fatalSlot(true);
    if (slot == nullptr || *slot->message != '\0') return;  // the first one explains the others
    append(*slot, "%s %s: ", slot->prefix, origin);
    va_list args;
    va_start(args, format);
    errno = saved;  // for %m
    appendArgs(*slot, format, args);
    va_end(args);
    if (code != kNoCode) append(*slot, " %s%d", "Q-318-", static_cast<int>(code));
    ErrorA(-1, "%s", slot->message);
}

void vexGetFatalError(char *buffer, size_t size) {
    if (buffer == nullptr || size == 0) return;
    *buffer = '\0';
    if (const vex::log::FatalSlot *slot = vex::log::fatalSlot(false); slot != nullptr)
        (void)snprintf(buffer, size, "%s", slot->message);
}

bool vexFatalErrorExists() {
    const vex::log::FatalSlot *slot = vex::log::fatalSlot(false);
    return slot != nullptr && *slot->message != '\0';
}

void vexClearFatalError() {
    if (vex::log::FatalSlot *slot = vex::log::fatalSlot(false); slot != nullptr)
        *slot->message = '\0';
}

void vexSetFatalPrefix(const char *prefix, bool overwrite) {
    vex::log::FatalSlot *slot = vex::log::fatalSlot(true);
    if (slot == nullptr || (*slot->prefix != '\0' && !overwrite)) return;
    (void)snprintf(slot->prefix, sizeof slot->prefix, "%s", prefix != nullptr ? prefix : "");
}
