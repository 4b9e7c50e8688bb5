#include <unistd.h>

#include <vex/io.h>

#include "base/eintr.h"
#include "log/report.h"

namespace {

bool invalid(const void *buffer, ssize_t count) {
    return buffer == nullptr || count < 0;
}

}  // namespace

ssize_t safe_read(int fd, void *buffer, ssize_t count) {
    if (count == 0) return 0;
    if (invalid(buffer, count)) return VEX_FAIL(EINVAL, -1, "invalid buffer");
    return vex::transferAll(count, [&](ssize_t done, size_t left) {
        return ::read(fd, static_cast<char *>(buffer) + done, left);
    });
}

ssize_t safe_write(int fd, const void *buffer, ssize_t count) {
    if (count == 0) return 0;
    if (invalid(buffer, count)) return VEX_FAIL(EINVAL, -1, "invalid buffer");
    const ssize_t written = vex::transferAll(count, [&](ssize_t done, size_t left) {
        return ::write(fd, static_cast<const char *>(buffer) + done, left);
    });
    return written < 0 ? VEX_FAIL(errno, -1, "write failed") : written;
}

ssize_t safe_pread(int fd, void *buffer, ssize_t count, off_t offset) {
    if (count == 0) return 0;
    if (invalid(buffer, count)) return VEX_FAIL(EINVAL, -1, "invalid buffer");
    return vex::transferAll(count, [&](ssize_t done, size_t left) {
        return ::pread(fd, static_cast<char *>(buffer) + done, left, offset + done);
    });
}

ssize_t safe_pwrite(int fd, const void *buffer, ssize_t count, off_t offset) {
    if (count == 0) return 0;
    if (invalid(buffer, count)) return VEX_FAIL(EINVAL, -1, "invalid buffer");
    const ssize_t written = vex::transferAll(count, [&](ssize_t done, size_t left) {
        return ::pwrite(fd, static_cast<const char *>(buffer) + done, left, offset + done);
    });
    return written < 0 ? VEX_FAIL(errno, -1, "write failed") : written;
}

int safe_fsync(int fd) {
    return vex::retryOnEintr([&] { return ::fsync(fd); });
}

int safe_fdatasync(int fd) {
    return vex::retryOnEintr([&] { return ::fdatasync(fd); });
}

int safe_ftruncate(int fd, off_t length) {
    return vex::retryOnEintr([&] { return ::ftruncate(fd, length); });
}
