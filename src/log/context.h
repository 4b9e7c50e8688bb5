// A thread's log context, and how a thread comes by one.
#ifndef VEX_LOG_CONTEXT_H
#define VEX_LOG_CONTEXT_H

#include <pthread.h>
#include <time.h>

#include <cstddef>

#include <vex/log.h>

namespace vex::log {

inline constexpr size_t kPathSize = 4096;
inline constexpr size_t kLineSize = 2048;
inline constexpr size_t kNameSize = 32;

/// A thread's first fatal error and the prefix it is reported with.
struct FatalSlot {
    char message[2369];
    char prefix[257];
};

/// The calling thread's slot. Without @p create nullptr when the thread has no context yet: a
/// question must not take the number that belongs to the first thread that logs.
FatalSlot *fatalSlot(bool create);

/// The second that a timestamp was last formatted for, and its text: most lines share one.
struct TimestampCache {
    time_t second;
    int format;
    int length;
    char text[64];
};

}  // namespace vex::log

/// All zeros is a valid empty context.
struct vexLogCtx {
    char path[vex::log::kPathSize];
    char line[vex::log::kLineSize];  ///< prefix and message of the call under way
    char last[vex::log::kLineSize];  ///< the line of the last message that was not a trace
    vex::log::FatalSlot fatal;
    char process[vex::log::kNameSize];
    char label[vex::log::kNameSize];
    char tag[vex::log::kNameSize];
    unsigned flags;  ///< those last given to vexLogSet by this thread
    int base_code;
    int number;  ///< 1 for the first context; 0 for the default context
    vexLogRedirector redirector;
    bool redirecting;    ///< its redirector is running: nested messages do not call it
    unsigned installed;  ///< threads that it is installed on
    vex::log::TimestampCache stamp;

    /// A message's code with the base code added; any two may meet, so the sum wraps.
    int shownCode(int code) const {
        return static_cast<int>(static_cast<unsigned>(base_code) + static_cast<unsigned>(code));
    }
};

namespace vex::log {

/// How a missing context is made: by logging (takes the process's settings over) or by a set-up
/// call (which sets its own).
enum class Creation { kByMessage, kBySetup };

/// The calling thread's context, made when missing; the default context when there is no memory for
/// one.
vexLogCtx *context(Creation creation);
/// The calling thread's context, nullptr when it has none.
vexLogCtx *contextIfAny();
/// The context that serves when none can be allocated, and that new ones inherit from.
vexLogCtx *defaultContext();

/// Stores path, flags and label and tells the process's configuration; the caller holds the set-up
/// lock.
void applySettings(vexLogCtx *ctx, const char *path, int flags, int syslogMask, const char *label);

/// The lock of set-up, numbering and destruction. It checks errors: where this thread holds it
/// already the work goes on without it rather than deadlock.
class SetupLock {
public:
    SetupLock();
    ~SetupLock();
    SetupLock(const SetupLock &) = delete;
    SetupLock &operator=(const SetupLock &) = delete;

private:
    bool held_;
};

}  // namespace vex::log

#endif
