#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <vex/log_file.h>

#include "base/eintr.h"

namespace vex::util {
namespace {

constexpr size_t kMostBytes = 64 * 1024;

bool writeWhole(int fd, const char *data, size_t length) {
    return retryOnEintr([&] { return ::write(fd, data, length); }) == static_cast<ssize_t>(length);
}

}  // namespace

bool LogBuffer::append(const char *line, size_t length) {
    if (length > kMostBytes) {
        ++dropped_;
        return false;
    }
    while (size_ + length > kMostBytes) {
        size_ -= lines_.front().size();
        lines_.pop_front();
        ++dropped_;
    }
    lines_.emplace_back(line, length);
    size_ += length;
    return true;
}

size_t LogBuffer::size() const {
    return size_;
}

size_t LogBuffer::dropped() const {
    return dropped_;
}

bool LogBuffer::drainTo(int fd) {
    if (dropped_ > 0) {
        char text[96];
        const int length = snprintf(
            text, sizeof text,
            "LogFile: %zu lines were dropped while the file could not be written\n", dropped_);
        if (!writeWhole(fd, text, static_cast<size_t>(length))) return false;
        dropped_ = 0;
    }
    while (!lines_.empty()) {
        if (!writeWhole(fd, lines_.front().data(), lines_.front().size())) return false;
        size_ -= lines_.front().size();
        lines_.pop_front();
    }
    return true;
}

}  // namespace vex::util
