// The process-wide log configuration: which levels go where.
#ifndef VEX_LOG_CONFIG_H
#define VEX_LOG_CONFIG_H

#include <atomic>

namespace vex::log {

/// Constant-initialised, so that static objects may log and set flags before any constructor has
/// run. Flags and mask are read without a lock on every message.
class LogConfig {
public:
    /// What standard error shows.
    enum StderrLevel { kNothing = 0, kSevere = 1, kEverything = 2 };

    constexpr LogConfig() = default;

    void SetFlags(int flags, int syslogMask);
    /// Closes syslog and returns to the default flags.
    void Reset();
    /// @p force replaces the flags; the first call also opens syslog when the mask asks for it.
    void Init(int flags, int syslogMask, bool force);
    /// Opens syslog; false when the daemon hangs for a second. Uses alarm(2) and leaves SIGALRM at
    /// its default.
    static bool SupportSyslog();

    int flags() const { return flags_.load(std::memory_order_relaxed); }
    int syslogMask() const { return syslog_mask_.load(std::memory_order_relaxed); }
    int stderrLevel() const { return stderr_level_.load(std::memory_order_relaxed); }
    bool traceOn() const { return trace_on_.load(std::memory_order_relaxed); }
    bool syslogOpen() const { return syslog_open_.load(std::memory_order_relaxed); }

private:
    static constexpr int kDefaultFlags = 135;  // crit, err, warn, bug

    std::atomic<bool> initialised_ = false;
    std::atomic<bool> syslog_open_ = false;
    std::atomic<int> syslog_mask_ = 0;
    std::atomic<int> flags_ = kDefaultFlags;
    std::atomic<int> stderr_level_ = kEverything;
    std::atomic<bool> trace_on_ = false;
};

/// The one instance of the process, in reach without a call: TraceOn stands in the hottest loops.
extern constinit LogConfig process_config;
inline LogConfig &config() {
    return process_config;
}

}  // namespace vex::log

#endif
