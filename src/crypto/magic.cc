#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <vex/io.h>
#include <vex/magic.h>

#include "base/endian.h"
#include "base/unique_fd.h"
#include "log/report.h"

namespace {

constexpr char kMagic[4] = {'V', 'E', 'X', ' '};
constexpr int kFlagsAt = 4, kValueAt = 6;

int checkHeader(const unsigned char *header, uint64_t *value) {
    if (std::memcmp(header, kMagic, sizeof kMagic) != 0) return 0;
    const int flags = vex::loadBig16(header + kFlagsAt);
    if (flags == 0) return -2;
    if (value != nullptr) *value = vex::loadBig64(header + kValueAt);
    return flags;
}

/// Reads a whole header; when there are fewer bytes false with ENODATA.
bool readHeader(int fd, unsigned char *header) {
    const ssize_t count = safe_read(fd, header, VEX_MAGIC_SIZE);
    if (count >= 0 && count < VEX_MAGIC_SIZE) errno = ENODATA;
    return count == VEX_MAGIC_SIZE;
}

int decodeFile(const char *path, uint64_t *value) {
    vex::UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    unsigned char header[VEX_MAGIC_SIZE];
    if (!file || !readHeader(file.get(), header)) return -1;
    return checkHeader(header, value);
}

/// True when a buffer of that size can hold a header; else one error line and errno.
bool bufferUsable(const char *who, const void *buffer, int64_t size) {
    if (size < VEX_MAGIC_SIZE)
        return VEX_FAIL_AS(who, ENODATA, ENODATA, false, "insufficient header buffer");
    return buffer != nullptr || VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameters");
}

}  // namespace

int vexMagicMake(int flags, void *buffer, int size, uint64_t value) {
    if (buffer == nullptr || size < VEX_MAGIC_SIZE) {
        errno = EINVAL;
        return -1;
    }
    auto *header = static_cast<unsigned char *>(buffer);
    std::memcpy(header, kMagic, sizeof kMagic);
    vex::storeBig16(header + kFlagsAt, static_cast<uint16_t>(flags));
    vex::storeBig64(header + kValueAt, value);
    return VEX_MAGIC_SIZE;
}

int vexMagicWrite(int flags, int fd, uint64_t value) {
    unsigned char header[VEX_MAGIC_SIZE];
    vexMagicMake(flags, header, sizeof header, value);
    return safe_write(fd, header, sizeof header) == VEX_MAGIC_SIZE ? VEX_MAGIC_SIZE : -1;
}

int vexMagicFwrite(int flags, FILE *stream, uint64_t value) {
    if (stream == nullptr) {
        errno = EBADF;
        return -1;
    }
    unsigned char header[VEX_MAGIC_SIZE];
    vexMagicMake(flags, header, sizeof header, value);
    return fwrite(header, 1, sizeof header, stream) == sizeof header ? VEX_MAGIC_SIZE : -1;
}

int vexMagicDecode(const char *path, const void *buffer, int size, uint64_t *value) {
    if (path != nullptr) return decodeFile(path, value);
    if (!bufferUsable(__func__, buffer, size)) return 0;
    return checkHeader(static_cast<const unsigned char *>(buffer), value);
}

int vexMagicRead(int fd, uint64_t *value) {
    if (fd < 1) return VEX_FAIL(EBADF, 0, "invalid file descriptor");
    unsigned char header[VEX_MAGIC_SIZE];
    if (lseek(fd, 0, SEEK_SET) < 0 || !readHeader(fd, header)) return -1;
    return checkHeader(header, value);
}

int vexMagicRead2(int fd, uint64_t *value, int rewind) {
    if (fd < 0) return VEX_FAIL(EBADF, 0, "invalid file descriptor");
    unsigned char header[VEX_MAGIC_SIZE];
    if (!readHeader(fd, header)) return VEX_FAIL(errno, -2, "could not read header");
    if (rewind != 0 && lseek(fd, -VEX_MAGIC_SIZE, SEEK_CUR) < 0)
        return VEX_FAIL(errno, -2, "could not seek to beginning of header");
    return checkHeader(header, value);
}

int vexMagicFromBuffer(const void *buffer, uint64_t *value) {
    return checkHeader(static_cast<const unsigned char *>(buffer), value);
}

int vexMagicFread(FILE *stream, uint64_t *value) {
    if (stream == nullptr) return VEX_FAIL(EBADF, 0, "invalid NULL file pointer");
    unsigned char header[VEX_MAGIC_SIZE];
    if (fseeko(stream, 0, SEEK_SET) != 0) return -1;
    if (fread(header, 1, sizeof header, stream) != sizeof header) {
        if (feof(stream) != 0) errno = ENODATA;
        return -1;
    }
    return checkHeader(header, value);
}

int vexMagicGetCryptSettings(const void *header, unsigned size, int *encrypted, int *compressed) {
    if (!bufferUsable(__func__, header, size)) return -1;
    const int flags = checkHeader(static_cast<const unsigned char *>(header), nullptr);
    if (flags <= 0) return flags;
    if (encrypted != nullptr)
        *encrypted = (flags & (VEX_MAGIC_ENCRYPTED | VEX_MAGIC_PLUGIN)) != 0 ? 1 : 0;
    if (compressed != nullptr)
        *compressed = (flags & (VEX_MAGIC_DEFLATE | VEX_MAGIC_LZO)) != 0 ? 1 : 0;
    return flags;
}
