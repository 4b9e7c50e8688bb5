// Tells a waiting person how far the work is: on a terminal, and when it takes longer than a
// second.
#ifndef VEX_TOOL_PROGRESS_H
#define VEX_TOOL_PROGRESS_H

#include <chrono>
#include <cstdint>

namespace tool {

class Progress {
public:
    /// @p total bytes to be done, 0 when that is unknown.
    Progress(const char *name, uint64_t total);
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    /// Clears the line.
    ~Progress();

    /// Cheap enough to be called for every buffer.
    void update(uint64_t done);

private:
    using Clock = std::chrono::steady_clock;

    const char *name_;
    uint64_t total_;
    bool terminal_;
    bool shown_ = false;
    Clock::time_point start_, next_;
};

}  // namespace tool

#endif
