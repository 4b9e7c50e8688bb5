#include "log/levels.h"

#include <syslog.h>

#include <vex/log.h>

namespace vex::log {

LevelInfo levelInfo(int level) {
    switch (level) {
        case VEX_LOG_CRIT:
            return {"CRIT", "Fatal Error", kNoSyslog, level, true, false};
        case VEX_LOG_ERR:
            return {"ERR", "Error", LOG_ERR, level, true, false};
        case VEX_LOG_WARN:
            return {"WARNING", "Warning", LOG_WARNING, level, true, false};
        case VEX_LOG_AUTH:
            return {"AUTH", "Auth", LOG_NOTICE, level, false, false};
        case VEX_LOG_NOTICE:
            return {"NOTICE", "Notice", LOG_NOTICE, level, false, false};
        case VEX_LOG_TRACE:
            return {"TRACE", "Trace", kNoSyslog, level, false, false};
        case VEX_LOG_BUG:
            return {"BUG", "BUG", LOG_ALERT, level, true, false};
        case VEX_LOG_WQFS_DEBUG:
            return {"WQFS DEBUG", "WQFS Debug", LOG_DEBUG, VEX_LOG_INFO, false, true};
        case VEX_LOG_WQFS_ERROR:
            return {"WQFS ERROR", "WQFS Error", LOG_ERR, VEX_LOG_ERR, false, true};
        case VEX_LOG_WQFS_INFO:
            return {"WQFS INFO", "WQFS Info", LOG_INFO, VEX_LOG_INFO, false, true};
        case VEX_LOG_WQFS_WARNING:
            return {"WQFS WARNING", "WQFS Warning", LOG_WARNING, VEX_LOG_WARN, false, true};
        case VEX_LOG_WQFS_CACHE:
            return {"WQFS CACHE", "WQFS Cache", LOG_INFO, level, false, true};
        case VEX_LOG_WQFS_TRACE:
            return {"WQFS TRACE", "WQFS Trace", kNoSyslog, VEX_LOG_TRACE, false, true};
        default:
            return {"INFO", "Info", LOG_INFO, level, false, false};
    }
}

}  // namespace vex::log
