#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include <vex/id_file.h>
#include <vex/io.h>
#include <vex/log.h>

#include "base/adler32.h"
#include "base/eintr.h"
#include "base/unique_fd.h"
#include "log/report.h"

namespace {

constexpr ssize_t kValueSize = 8;
constexpr ssize_t kChecksumSize = 4;
constexpr uint64_t kReadBackEvery = 10;

uint32_t checksumOf(const unsigned char *value) {
    return vex::adler32(vex::kAdler32Start, value, kValueSize);
}

/// What a short transfer leaves in errno: nothing of its own, so that it gets @p err.
bool complete(ssize_t moved, ssize_t expected, int err) {
    if (moved >= 0 && moved != expected) errno = err;
    return moved == expected;
}

bool writeContent(const char *who, const char *path, const char *name, uint64_t value, int fd) {
    unsigned char content[kValueSize + kChecksumSize];
    memcpy(content, &value, kValueSize);
    const uint32_t checksum = checksumOf(content);
    memcpy(content + kValueSize, &checksum, kChecksumSize);
    if (lseek(fd, 0, SEEK_SET) < 0)
        return VEX_FAIL_AS(who, errno, errno, false,
                           "Could not seek to begin of file %s to update %s to %lu (%m)", path,
                           name, value);
    if (!complete(safe_write(fd, content, sizeof content), sizeof content, EIO))
        return VEX_FAIL_AS(who, errno, errno, false, "Could not update %s in file %s to %lu (%m)",
                           name, path, value);
    return true;
}

/// Writes; when that fails opens the file anew, hands the descriptor to @p adopt and tries once
/// more.
template <typename Adopt>
bool writeTwice(const char *who, const char *path, const char *name, uint64_t value, int *fd,
                Adopt adopt) {
    if (writeContent(who, path, name, value, *fd)) return true;
    uint64_t ignored;
    vex::UniqueFd fresh(OpenId(path, name, &ignored, 0));
    if (!fresh)
        return VEX_FAIL_AS(who, errno, errno, false, "Could not reopen %s in file %s (%m)", name,
                           path);
    InfoA(-1, "%s: reopen file %s successfully.", who, path);
    if (!adopt(&fresh)) return false;
    return writeContent(who, path, name, value, *fd);
}

/// Two syncs, as ever; but since one that failed may have dropped the data, the second cannot make
/// up for the first.
bool sync(const char *path, const char *name, uint64_t value, int fd) {
    if ((fdatasync(fd) == 0 || errno == EINTR) && safe_fdatasync(fd) == 0) return true;
    const int err = errno;
    ErrorA(err, "Could not data sync file %s when %s = %lu (%m)", path, name, value);
    errno = err;
    return false;
}

template <typename Adopt>
int writeId(const char *who, const char *path, const char *name, uint64_t value, int *fd,
            Adopt adopt) {
    if (path == nullptr || name == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    if (fd == nullptr || *fd < 0)
        return VEX_FAIL_AS(who, EBADF, EBADF, -1, "Can not update %s in file %s to %lu (%m)", name,
                           path, value);
    return writeTwice(who, path, name, value, fd, adopt) && sync(path, name, value, *fd) ? 0 : -1;
}

}  // namespace

int ReadId(const char *path, const char *name, uint64_t *value_out, int fd, uint64_t minimum) {
    if (path == nullptr || name == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (value_out == nullptr || fd < 0)
        return VEX_FAIL(value_out == nullptr ? EINVAL : EBADF, -1,
                        "Can not read %s from file %s: %m", name, path);
    if (lseek(fd, 0, SEEK_SET) < 0)
        return VEX_FAIL(errno, -1, "Could not seek to begin of file %s to read %s: %m", path, name);
    unsigned char content[kValueSize + kChecksumSize];
    if (!complete(safe_read(fd, content, kValueSize), kValueSize, ENODATA))
        return VEX_FAIL(errno, -1, "Could not read %s from file %s: %m", name, path);
    const ssize_t more = safe_read(fd, content + kValueSize, kChecksumSize);
    if (more < 0) return VEX_FAIL(errno, -1, "Could not read %s from file %s: %m", name, path);
    if (more == kChecksumSize) {
        uint32_t checksum;
        memcpy(&checksum, content + kValueSize, kChecksumSize);
        if (checksum != checksumOf(content))
            return VEX_FAIL(ERANGE, -1, "Invalid CRC value %u in file %s. The file is corrupt.",
                            checksum, path);
    }
    uint64_t value;
    memcpy(&value, content, kValueSize);
    if (value < minimum)
        return VEX_FAIL(ERANGE, -1,
                        "Invalid reserved %s value %lu in file %s. The file is corrupt. Minimum "
                        "allowed values is %lu.",
                        name, value, path, minimum);
    *value_out = value;
    return 0;
}

int OpenId(const char *path, const char *name, uint64_t *value_out, uint64_t minimum) {
    if (path == nullptr || name == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    vex::UniqueFd fd(vex::retryOnEintr([&] { return ::open(path, O_RDWR | O_CLOEXEC); }));
    if (!fd) return VEX_FAIL(errno, -1, "Could not open %s to read the current %s.", path, name);
    return ReadId(path, name, value_out, fd.get(), minimum) == 0 ? fd.release() : -1;
}

int WriteId(const char *path, const char *name, uint64_t value, int *fd_in_out) {
    return writeId(__func__, path, name, value, fd_in_out, [&](vex::UniqueFd *fresh) {
        // a descriptor that was closed already may have given the new one its number
        if (fresh->get() != *fd_in_out && fcntl(*fd_in_out, F_GETFD) >= 0)
            vex::UniqueFd(*fd_in_out).reset();
        *fd_in_out = fresh->release();
        return true;
    });
}

int WriteIdToPath(const char *path, const char *name, uint64_t value) {
    if (path == nullptr || name == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    int fd = vex::retryOnEintr(
        [&] { return ::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600); });
    if (fd < 0)
        return VEX_FAIL(errno, -1, "Could not create the file %s to store %s %lu: %m.", path, name,
                        value);
    const int result = WriteId(path, name, value, &fd);
    vex::UniqueFd file(fd);
    if (result != 0) return -1;
    if (file.close() != 0)
        return VEX_FAIL(
            errno, -1,
            "Could not close the file %s after storing %s %lu: %m. The file may now be corrupt.",
            path, name, value);
    return 0;
}

int NextId(const char *path, const char *name, uint64_t *value_in_out, int fd) {
    if (value_in_out == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const uint64_t next = *value_in_out + 1;
    const int written = writeId("WriteId", path, name, next, &fd, [&](vex::UniqueFd *fresh) {
        if (fresh->get() == fd) return fresh->release() >= 0;
        // takes over the caller's number in one step, so that no other thread can get it in between
        if (vex::retryOnEintr([&] { return dup3(fresh->get(), fd, O_CLOEXEC); }) == fd) return true;
        return VEX_FAIL_AS("WriteId", errno, errno, false, "Could not reopen %s in file %s (%m)",
                           name, path);
    });
    if (written != 0) return -1;
    *value_in_out = next;
    if (next % kReadBackEvery != 0) return 0;
    uint64_t stored;
    if (ReadId(path, name, &stored, fd, 0) != 0) return -1;
    if (stored == next) return 0;
    errno = ERANGE;
    ErrorA(ERANGE, "%s = %lu in file %s is inconsistent with %lu in memory (%m)", name, stored,
           path, next);
    errno = ERANGE;
    return -1;
}
