#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <vex/file.h>

#include "base/adler32.h"
#include "base/eintr.h"
#include "base/unique_fd.h"
#include "fs/reader.h"
#include "log/report.h"

namespace {

uint32_t checksum(const char *who, const char *path, off_t offset, int whence) {
    if (path == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, 0U, "invalid NULL parameter");
    const vex::UniqueFd file(vex::retryOnEintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    if (!file) return VEX_FAIL_AS(who, errno, errno, 0U, "failed to open file: %m");
    if (offset > 0 && lseek(file.get(), offset, whence) < 0)
        return VEX_FAIL_AS(who, errno, errno, 0U, "failed to seek file: %m");
    unsigned char block[vex::fs::kBlock];
    uint32_t sum = vex::kAdler32Start;
    ssize_t got;
    while ((got = safe_read(file.get(), block, sizeof block)) > 0)
        sum = vex::adler32(sum, block, static_cast<size_t>(got));
    return got == 0 ? sum : VEX_FAIL_AS(who, errno, errno, 0U, "failed to read file: %m");
}

}  // namespace

uint32_t CRCFromFile(const char *path) {
    return checksum(__func__, path, 0, SEEK_SET);
}

uint32_t CRCFromPartFile(const char *path, off_t offset, int whence) {
    return checksum(__func__, path, offset, whence);
}
