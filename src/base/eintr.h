#ifndef VEX_BASE_EINTR_H
#define VEX_BASE_EINTR_H

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace vex {

/// Repeats a system call while a signal interrupts it.
template <typename Call>
auto retryOnEintr(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

/// Calls @p move(bytes done, bytes left) until all is moved, it returns 0 or it fails; the bytes
/// moved, or -1.
template <typename Move>
ssize_t transferAll(ssize_t count, Move move) {
    ssize_t done = 0;
    while (done < count) {
        const ssize_t moved =
            retryOnEintr([&] { return move(done, static_cast<size_t>(count - done)); });
        if (moved < 0) return -1;
        if (moved == 0) break;
        done += moved;
    }
    return done;
}

/// Writes all of a block, for callers who report by themselves; false with errno.
inline bool writeAll(int fd, const char *block, size_t size) {
    const auto count = static_cast<ssize_t>(size);
    const ssize_t written = transferAll(
        count, [&](ssize_t done, size_t left) { return ::write(fd, block + done, left); });
    if (written >= 0 && written != count) errno = EIO;
    return written == count;
}

}  // namespace vex

#endif
