// One message on its way: prefix and text into the thread's line buffer, then syslog, standard
// error, log file and redirector, each under its own filter. Texts are joined with memcpy and the
// timestamp is kept for its second: at a line per microsecond every printf shows.
#include "log/message.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <vex/log_file.h>

#include "log/config.h"
#include "log/context.h"
#include "log/levels.h"

namespace vex::log {
namespace {

constexpr size_t kMostText = kLineSize - 2;  // room for the newline and the terminator
constexpr size_t kFileLineSize = 2369;

/// Joins texts in a fixed buffer, cutting what does not fit.
class Joiner {
public:
    Joiner(char *buffer, size_t size) : start_(buffer), to_(buffer), end_(buffer + size - 1) {}
    Joiner &add(const char *text, size_t length) {
        const auto room = static_cast<size_t>(end_ - to_);
        if (length > room) length = room;
        memcpy(to_, text, length);
        to_ += length;
        return *this;
    }
    Joiner &add(const char *text) { return add(text, strlen(text)); }
    size_t finish() {
        *to_ = '\0';
        return static_cast<size_t>(to_ - start_);
    }

private:
    char *start_, *to_, *end_;
};

bool isInside(int level, int mask) {
    return (mask & level) == level;
}

/// "<base code + code>: " where the level or the code asks for it; returns its length.
size_t formatPrefix(vexLogCtx *ctx, int code, int level) {
    const bool always = level == VEX_LOG_CRIT || level == VEX_LOG_ERR || level == VEX_LOG_WARN;
    ctx->line[0] = '\0';
    if (!always && code < 1) return 0;
    const int shown = code == -1 ? -1 : ctx->shownCode(code);
    const int length = snprintf(ctx->line, kMostText + 1, "%i: ", shown);
    if (length >= 0) return static_cast<size_t>(length);
    strcpy(ctx->line, "snprintf error");
    return strlen(ctx->line);
}

/// Appends the message and the newline; returns the whole length, 0 when there is nothing to say.
VEX_PRINTF(3, 0)
size_t formatLine(vexLogCtx *ctx, size_t prefix, const char *format, va_list args) {
    const size_t room = kLineSize - prefix;
    const int wanted = vsnprintf(ctx->line + prefix, room, format, args);
    size_t length = prefix;
    // a NUL from "%c" ends the text; the newline must not stand behind it
    if (wanted > 0) length += strnlen(ctx->line + prefix, room - 1);
    if (length == 0) return 0;
    if (ctx->line[length - 1] != '\n') {
        if (length > kMostText) length = kMostText;
        ctx->line[length++] = '\n';
    }
    ctx->line[length] = '\0';
    return length;
}

enum StampFormat : int { kShortTime = 1, kFullDate, kMonthAndDay };

size_t formatSecond(StampFormat format, const tm &local, char *out, size_t size) {
    switch (format) {
        case kShortTime:
            return strftime(out, size, "%H:%M:%S ", &local);
        case kFullDate:
            return strftime(out, size, "%Y-%m-%d %H:%M:%S.", &local);
        default:
            return strftime(out, size, "%B %d %H:%M:%S ", &local);
    }
}

/// The timestamp with its trailing blank, into at least 128 characters; returns its length.
size_t formatTimestamp(vexLogCtx *ctx, int flags, bool component, char *out) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    StampFormat format = component ? kFullDate : kMonthAndDay;
    if (((static_cast<unsigned>(flags) | ctx->flags) & VEX_LOG_SHORT_TIME) != 0)
        format = kShortTime;

    TimestampCache &cache = ctx->stamp;
    if (cache.second != now.tv_sec || cache.format != format) {
        tm local{};
        localtime_r(&now.tv_sec, &local);
        cache.length = static_cast<int>(formatSecond(format, local, cache.text, sizeof cache.text));
        cache.second = now.tv_sec;
        cache.format = format;
    }
    memcpy(out, cache.text, static_cast<size_t>(cache.length));
    char *to = out + cache.length;
    if (format == kFullDate) to += snprintf(to, 16, "%03li ", now.tv_nsec / 1000000);
    if ((flags & VEX_LOG_TIMING) != 0) {
        timespec ticks{};
        clock_gettime(CLOCK_MONOTONIC, &ticks);
        to += snprintf(to, 32, "[%li] ", ticks.tv_sec * 1000000000 + ticks.tv_nsec);
    }
    *to = '\0';
    return static_cast<size_t>(to - out);
}

struct Text {
    const char *data;
    size_t length;
};

void writeToFile(vexLogCtx *ctx, Text stamp, const LevelInfo &info, Text tag, Text line) {
    char out[kFileLineSize];
    Joiner joiner(out, sizeof out);
    joiner.add(stamp.data, stamp.length).add(info.file_word).add(ctx->label);
    joiner.add(tag.data, tag.length).add(line.data, line.length).finish();
    (void)logFileWriteA(out, ctx);  // the manager reports its own failures
}

void writeToStderr(int flags, Text stamp, const LevelInfo &info, const char *tag,
                   const char *line) {
    const bool stamped = (flags & VEX_LOG_STDERR_DATE) != 0 && stamp.length > 0;
    (void)fprintf(vexLogFile(), "%s%s%s%s", stamped ? stamp.data : "", info.stderr_word, tag, line);
}

/// Standard error and the log file, both behind the flags.
void writeOutputs(vexLogCtx *ctx, int flags, const LevelInfo &info, Text tag, Text line) {
    char stamp_text[128] = "";
    Text stamp{stamp_text, 0};
    if ((flags & VEX_LOG_DATE) != 0)
        stamp.length = formatTimestamp(ctx, flags, info.component, stamp_text);

    const int threshold = info.severe ? LogConfig::kSevere : LogConfig::kEverything;
    if (config().stderrLevel() >= threshold) writeToStderr(flags, stamp, info, tag.data, line.data);
    if (ctx->path[0] != '\0' || ctx->flags != 0) writeToFile(ctx, stamp, info, tag, line);
}

/// The redirector gets a copy: what it logs itself goes through the same line buffer.
void redirect(vexLogCtx *ctx, int level, int code, const char *message, size_t length,
              int saved_errno) {
    struct Running {
        explicit Running(vexLogCtx *c) : ctx(c) { ctx->redirecting = true; }
        ~Running() { ctx->redirecting = false; }
        vexLogCtx *ctx;
    } running(ctx);
    char copy[kLineSize];
    memcpy(copy, message, length);
    copy[length] = '\0';
    ctx->redirector(level, code, copy, saved_errno);
}

}  // namespace

void writeMessage(int code, int level, const char *format, va_list args) {
    const int saved_errno = errno;
    vexLogCtx *ctx = context(Creation::kByMessage);
    const size_t prefix = formatPrefix(ctx, code, level);
    errno = saved_errno;  // for %m
    const size_t length = formatLine(ctx, prefix, format, args);
    if (length == 0) {
        errno = saved_errno;
        return;
    }

    const LevelInfo info = levelInfo(level);
    const int flags = config().flags();
    char nested_tag[64];
    Text tag{": ", 2};
    if ((flags & VEX_LOG_THREAD) != 0) {
        tag = {ctx->tag, strlen(ctx->tag)};
        if (info.component) {
            const int n = snprintf(nested_tag, sizeof nested_tag,
                                   " [%ld:%s]: ", static_cast<long>(getpid()), ctx->tag);
            tag = {nested_tag, static_cast<size_t>(n)};
        }
    }
    if (config().syslogOpen() && info.priority != kNoSyslog &&
        isInside(info.filter, config().syslogMask()))
        syslog(info.priority, "%s%s%s", info.file_word, tag.data, ctx->line);
    const bool wanted = isInside(info.filter, flags);
    if (wanted && (flags & VEX_LOG_NO_OUTPUT) == 0)
        writeOutputs(ctx, flags, info, tag, {ctx->line, length});
    if (info.filter != VEX_LOG_TRACE) memcpy(ctx->last, ctx->line, length + 1);
    errno = saved_errno;
    if (wanted && ctx->redirector != nullptr && !ctx->redirecting) {
        const bool newline = ctx->line[length - 1] == '\n';
        const size_t start = prefix < length ? prefix : length - 1;
        redirect(ctx, info.filter, code, ctx->line + start, length - start - (newline ? 1 : 0),
                 saved_errno);
        errno = saved_errno;
    }
}

}  // namespace vex::log
