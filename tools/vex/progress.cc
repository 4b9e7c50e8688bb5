#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace tool {
namespace {

constexpr std::chrono::milliseconds kPatience{1000}, kInterval{200};
constexpr double kMegabyte = 1e6;
constexpr auto kClearLine = "\r\033[K";

}  // namespace

Progress::Progress(const char *name, uint64_t total)
    : name_(name),
      total_(total),
      terminal_(isatty(STDERR_FILENO) == 1),
      start_(Clock::now()),
      next_(start_ + kPatience) {}

Progress::~Progress() {
    if (shown_) fputs(kClearLine, stderr);
}

void Progress::update(uint64_t done) {
    if (!terminal_) return;
    const auto now = Clock::now();
    if (now < next_) return;
    next_ = now + kInterval;
    shown_ = true;
    const double megabytes = static_cast<double>(done) / kMegabyte;
    const double speed = megabytes / std::chrono::duration<double>(now - start_).count();
    if (total_ > 0) {
        fprintf(stderr, "%s%s: %.0f of %.0f MB (%.0f%%), %.0f MB/s", kClearLine, name_, megabytes,
                static_cast<double>(total_) / kMegabyte,
                100 * static_cast<double>(done) / static_cast<double>(total_), speed);
    } else {
        fprintf(stderr, "%s%s: %.0f MB, %.0f MB/s", kClearLine, name_, megabytes, speed);
    }
    fflush(stderr);
}

}  // namespace tool
