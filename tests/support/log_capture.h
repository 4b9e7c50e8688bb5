#ifndef VEXTEST_LOG_CAPTURE_H
#define VEXTEST_LOG_CAPTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <vex/log.h>

namespace vextest {

/// While it lives, the calling thread's messages are collected and nothing reaches standard error or a file.
class LogCapture {
public:
    enum Levels { kAllButTrace = 0xff & ~VEX_LOG_TRACE, kAll = 0xff };

    explicit LogCapture(Levels levels = kAllButTrace);
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    struct Entry {
        int level;
        int code;
        std::string text;
        int saved_errno;
    };
    const std::vector<Entry> &entries() const { return entries_; }
    /// "<code> <text>" of each message at err, warn and crit; the text alone where the code is -1.
    std::vector<std::string> lines() const;
    /// The same for messages of the given levels.
    std::vector<std::string> lines(int levels) const;
    /// lines() as one text, separated by newlines.
    std::string text() const;
    /// text(), and forgets the messages.
    std::string take();
    void clear() { entries_.clear(); }

private:
    static void receive(int level, int code, const char *message, int saved_errno);

    std::vector<Entry> entries_;
    LogCapture *outer_;
    int flags_ = 0;
    int mask_ = 0;
};

}  // namespace vextest

/// The call gives the result of a failure and leaves its errno.
#define EXPECT_FAILS(error, result, call) \
    do {                                  \
        errno = 0;                        \
        EXPECT_EQ(result, call);          \
        EXPECT_EQ(error, errno);          \
    } while (false)

/// The same with what it logs, lines separated by newlines.
#define EXPECT_FAILS_LOGGING(lines, error, result, call)       \
    do {                                                       \
        const vextest::LogCapture logged;                      \
        EXPECT_FAILS(error, result, call);                     \
        EXPECT_EQ(std::string(lines), logged.text()) << #call; \
    } while (false)

/// The same where errno holds the first line's code: "22 who: why".
#define EXPECT_FAILS_WITH(lines, result, call) EXPECT_FAILS_LOGGING(lines, std::stoi(lines), result, call)

#endif
