#include <errno.h>
#include <unistd.h>

#include <vex/log_file.h>

#include "base/eintr.h"

namespace vex::util {
namespace {

constexpr size_t kMostBytes = 64 * 1024;

/// Writes a text and takes from its head what has been written; true when that was all of it. A
/// disk that fills up within a line gets its rest when there is room again, not its beginning once
/// more.
bool writeOut(int fd, std::string *text) {
    while (!text->empty()) {
        const ssize_t written =
            retryOnEintr([&] { return ::write(fd, text->data(), text->size()); });
        if (written <= 0) return false;
        text->erase(0, static_cast<size_t>(written));
    }
    return true;
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
        std::string text = "LogFile: " + std::to_string(dropped_) +
                           " lines were dropped while the file could not be written\n";
        if (!writeOut(fd, &text)) return false;
        dropped_ = 0;
    }
    while (!lines_.empty()) {
        std::string &line = lines_.front();
        size_ -= line.size();
        const bool done = writeOut(fd, &line);
        size_ += line.size();
        if (!done) return false;
        lines_.pop_front();
    }
    return true;
}

}  // namespace vex::util
