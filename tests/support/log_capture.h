#ifndef VEXTEST_LOG_CAPTURE_H
#define VEXTEST_LOG_CAPTURE_H

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

#endif
