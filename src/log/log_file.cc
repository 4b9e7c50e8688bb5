// One log file: opened with O_APPEND, a line per write(2), rotated by size, reopened when it was
// moved or removed.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <vex/log_file.h>

#include "base/directories.h"
#include "base/eintr.h"
#include "base/errno_guard.h"
#include "base/monotonic.h"
#include "log/config.h"

namespace vex::util {
namespace {

constexpr mode_t kFileMode = 0640;
constexpr mode_t kDirectoryMode = 0755;

/// "A thread (id=<id>) encountered an error while attempting to <what> <path>".
std::string threadError(const char *what, const std::string &path) {
    return "A thread (id=" + std::to_string(pthread_self()) +
           ") encountered an error while attempting to " + what + " " + path;
}

/// The directory to make for @p path; empty when there is none to make: no '/', one at either
/// end, or behind ':'.
std::string directoryToMake(const std::string &path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == path.size() ||
        path[slash - 1] == ':')
        return {};
    return path.substr(0, slash);
}

bool createDirectoryOf(const std::string &path) {
    std::string directory = directoryToMake(path);
    return directory.empty() || makeDirectories(directory.data(), kDirectoryMode) == 0;
}

/// rename(2) that never replaces a file. Network file systems do not know the flag for it and
/// answer EINVAL; there a look before has to do.
int renameToNew(const std::string &from, const std::string &to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL) return -1;
    if (access(to.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return -1;
    }
    return rename(from.c_str(), to.c_str());
}

}  // namespace

BadPathException::BadPathException(const std::string &text) : std::runtime_error(text) {}
BadPathException::~BadPathException() = default;

LogFile::LogFile() = default;

LogFile::~LogFile() {
    close();
}

void LogFile::setPath(const std::string &path) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (fd_ >= 0) {
        const std::string last = "LogFile: Changing path to " + path + "\n";
        (void)writeLocked(last.data(), last.size(), 0);  // reported by itself
        close();
    }
    path_ = path;
    lastUsed_ = time(nullptr);
    if (!createDirectoryOf(path_))
        throw BadPathException(threadError("create path", directoryToMake(path_)));
}

bool LogFile::write(const char *line, size_t length, size_t maxSize) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return writeLocked(line, length, maxSize);
}

void LogFile::flush() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (kept_.size() > 0 && (fd_ >= 0 || open()))
        (void)kept_.drainTo(fd_);  // what stays is tried again
}

time_t LogFile::lastUsed() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return lastUsed_;
}

bool LogFile::keepsLines() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return kept_.size() > 0;
}

int LogFile::abandon() {
    // the mutex may be held by a thread that the fork left behind
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

bool LogFile::writeLocked(const char *line, size_t length, size_t maxSize) {
    if (fd_ >= 0 && checkIsDue() && !stillThere()) close();
    if (fd_ < 0 && !open()) return kept_.append(line, length);
    if (maxSize > 0 && position_ >= maxSize) {
        // what the file itself says decides: a device has no size, and a file may have been emptied
        if (!stillThere())
            close();  // another process has rotated it already
        else if (position_ >= maxSize)
            rotate();
    }
    if (fd_ < 0 && !open()) return kept_.append(line, length);
    if (kept_.size() > 0 && !kept_.drainTo(fd_)) return kept_.append(line, length);

    const ssize_t written = retryOnEintr([&] { return ::write(fd_, line, length); });
    if (written == static_cast<ssize_t>(length)) {
        position_ += length;
        return true;
    }
    if (written >= 0) {  // the disk filled up within the line
        line += written;
        length -= static_cast<size_t>(written);
        errno = ENOSPC;
    }
    reportOnce(threadError("write to file", path_), errno);
    return kept_.append(line, length);
}

/// A look at the path costs more than the write itself. Lines that come one by one are all checked;
/// from the seventeenth line within 10 ms on, a file that is moved away keeps the rest of the
/// burst.
bool LogFile::checkIsDue() {
    constexpr int64_t kBurstMilliseconds = 10;
    constexpr unsigned kCheckedLines = 16;
    const int64_t now = coarseMs();
    if (now - burstStart_ >= kBurstMilliseconds) {
        burstStart_ = now;
        burstLines_ = 0;
        lastUsed_ = time(nullptr);
    }
    return ++burstLines_ <= kCheckedLines;
}

bool LogFile::stillThere() {
    struct stat status {};
    // a daemon that has become another user may not be let into the directory: its file is good
    // still
    if (stat(path_.c_str(), &status) != 0) return errno != ENOENT && errno != ENOTDIR;
    if (status.st_dev != device_ || status.st_ino != inode_) return false;
    position_ = static_cast<size_t>(status.st_size);
    return true;
}

bool LogFile::open() {
    lastUsed_ = time(nullptr);
    if (createDirectoryOf(path_)) {
        fd_ = retryOnEintr([&] {
            return ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kFileMode);
        });
    }
    struct stat status {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        const int err = errno;
        close();
        reportOnce(threadError("write to file", path_), err);
        errno = err;
        return false;
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    position_ = static_cast<size_t>(status.st_size);
    lastReport_.clear();
    return true;
}

/// Renames the file to "<path>.<local time>", with ".1", ".2" … when a rotation in the same second
/// took the name.
void LogFile::rotate() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    (void)strftime(stamp, sizeof stamp, ".%Y%m%d%H%M%S", &local);
    const std::string name = path_ + stamp;
    std::string target = name;
    int result = renameToNew(path_, target);
    for (int i = 1; result != 0 && errno == EEXIST && i < 1000; ++i) {
        target = name + "." + std::to_string(i);
        result = renameToNew(path_, target);
    }
    if (result == 0) {
        close();
    } else {
        // the old file goes on growing: no line is lost
        reportOnce(threadError("rotate file", path_), errno);
    }
}

/// Straight to standard error, and to syslog when it is open: once for a failure that repeats
/// itself.
void LogFile::reportOnce(const std::string &text, int err) {
    if (lastReport_ == text) return;
    lastReport_ = text;
    const ErrnoGuard keep;
    char reason[128];
    const char *why = strerror_r(err, reason, sizeof reason);
    (void)fprintf(stderr, "%s: %s\n", text.c_str(), why);
    if (vex::log::config().syslogOpen()) syslog(LOG_ERR, "%s: %s", text.c_str(), why);
}

void LogFile::close() {
    const ErrnoGuard keep;
    if (fd_ >= 0) (void)::close(fd_);  // every line is written by now
    fd_ = -1;
}

}  // namespace vex::util
