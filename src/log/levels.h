// The words, priorities and filters that go with each level of a message.
#ifndef VEX_LOG_LEVELS_H
#define VEX_LOG_LEVELS_H

namespace vex::log {

struct LevelInfo {
    const char *file_word;    ///< syslog and log file
    const char *stderr_word;  ///< standard error
    int priority;             ///< syslog priority, or kNoSyslog
    int filter;               ///< the level that mask, flags and redirector see
    bool severe;              ///< shown on standard error at its lower level too
    bool component;           ///< one of the file-system component's levels
};

inline constexpr int kNoSyslog = -1;

LevelInfo levelInfo(int level);

}  // namespace vex::log

#endif
