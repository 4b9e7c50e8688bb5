// Owning handles for descriptors and stdio streams.
#ifndef VEX_BASE_UNIQUE_FD_H
#define VEX_BASE_UNIQUE_FD_H

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/errno_guard.h"

namespace vex {

/// Owns a file descriptor. The destructor closes it in silence and keeps errno; where the result of
/// the close matters, call close() before the scope ends.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        const ErrnoGuard guard;
        (void)close();  // nobody asked for the result
        fd_ = fd;
    }
    /// Closes; 0, or -1 with the errno of close. The descriptor is gone either way (Linux frees it
    /// first, so EINTR is not repeated: the number may already belong to another thread's file).
    int close() {
        if (fd_ < 0) return 0;
        int state = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        const int result = ::close(release());
        pthread_setcancelstate(state, nullptr);
        return result != 0 && errno == EINTR ? 0 : result;
    }

private:
    int fd_ = -1;
};

/// Owns a stdio stream; the same rules as UniqueFd.
class UniqueFile {
public:
    UniqueFile() = default;
    explicit UniqueFile(FILE *file) : file_(file) {}
    UniqueFile(UniqueFile &&other) noexcept : file_(other.release()) {}
    UniqueFile &operator=(UniqueFile &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFile(const UniqueFile &) = delete;
    UniqueFile &operator=(const UniqueFile &) = delete;
    ~UniqueFile() { reset(); }

    FILE *get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }
    FILE *release() { return std::exchange(file_, nullptr); }
    void reset(FILE *file = nullptr) {
        const ErrnoGuard guard;
        (void)close();  // nobody asked for the result
        file_ = file;
    }
    /// Flushes and closes; 0, or EOF with errno.
    int close() {
        if (file_ == nullptr) return 0;
        int state = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        const int result = std::fclose(release());
        pthread_setcancelstate(state, nullptr);
        return result;
    }

private:
    FILE *file_ = nullptr;
};

}  // namespace vex

#endif
