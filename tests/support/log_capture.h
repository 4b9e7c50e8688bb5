#ifndef VEXTEST_LOG_CAPTURE_H
#define VEXTEST_LOG_CAPTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <vex/log.h>

#include "support/faults.h"

namespace vextest {

/// While it lives, the calling thread's messages are collected and nothing reaches standard error or a file.
class LogCapture {
public:
    enum Levels { kAllButTrace = 0xff & ~VEX_LOG_TRACE, kAll = 0xff };

    explicit LogCapture(Levels levels = kAllButTrace) {
        vexLogGetFlags(&flags_, &mask_);
        vexLogSetFlags(levels | VEX_LOG_NO_OUTPUT, 0);
        vexLogSetRedirector(receive);
        current_ = this;
    }
    ~LogCapture() {
        current_ = outer_;
        vexLogSetRedirector(outer_ != nullptr ? receive : nullptr);
        vexLogSetFlags(flags_, mask_);
    }
    LogCapture(const LogCapture &) = delete;

    struct Entry {
        int level;
        int code;
        std::string text;
        int saved_errno;
    };
    const std::vector<Entry> &entries() const { return entries_; }
    /// "<code> <text>" of each message of the levels; the text alone where the code is -1.
    std::vector<std::string> lines(int levels = VEX_LOG_CRIT | VEX_LOG_ERR | VEX_LOG_WARN) const {
        std::vector<std::string> result;
        for (const auto &entry : entries_) {
            if ((entry.level & levels) == 0) continue;
            result.push_back(entry.code == -1 ? entry.text : std::to_string(entry.code) + " " + entry.text);
        }
        return result;
    }
    /// lines() as one text, separated by newlines.
    std::string text() const {
        std::string result;
        for (const auto &line : lines()) result += (result.empty() ? "" : "\n") + line;
        return result;
    }
    /// text(), and forgets the messages.
    std::string take() {
        std::string result = text();
        clear();
        return result;
    }
    void clear() { entries_.clear(); }

private:
    static void receive(int level, int code, const char *message, int saved_errno) {
        const FaultPause pause;  // what is collected here is not the library's to allocate
        if (current_ != nullptr) current_->entries_.push_back({level, code, message, saved_errno});
    }

    inline static thread_local LogCapture *current_ = nullptr;
    LogCapture *const outer_ = current_;
    std::vector<Entry> entries_;
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
