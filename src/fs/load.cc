#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <vex/file.h>

#include "base/unique_ptr.h"
#include "fs/reader.h"
#include "log/report.h"

namespace {

constexpr char kEngine[] = "__doLoad";  // the name that its messages carry

/// Reads a whole file into memory that @p reserve(size) gives; the size, or -1. Without memory
/// reserve has reported.
template <typename Reserve>
ssize_t doLoad(const char *who, const char *path, Reserve reserve) {
    if (path == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    const vex::UniqueFd file = vex::fs::openReader(who, path);
    if (!file) return -1;
    const off_t size = lseek(file.get(), 0, SEEK_END);
    if (size < 0) return VEX_FAIL_AS(kEngine, errno, errno, -1, "seek failed");
    void *const memory = reserve(static_cast<size_t>(size));
    if (memory == nullptr) return -1;
    if (lseek(file.get(), 0, SEEK_SET) < 0)
        return VEX_FAIL_AS(kEngine, errno, errno, -1, "seek failed");
    errno = EIO;  // for a file that has become shorter
    if (safe_read(file.get(), memory, size) != size)
        return VEX_FAIL_AS(kEngine, errno, errno, -1, "failed to read file");
    return size;
}

/// The content in new memory, with one NUL behind it.
vex::UniqueMalloc<char> loadNew(const char *who, const char *path, size_t *size_out) {
    vex::UniqueMalloc<char> memory;
    const ssize_t size = doLoad(who, path, [&](size_t needed) -> void * {
        memory.reset(static_cast<char *>(malloc(needed + 1)));
        if (!memory)
            return VEX_FAIL_AS(kEngine, ENOMEM, ENOMEM, nullptr, "could not allocate memory");
        return memory.get();
    });
    if (size < 0) return nullptr;
    memory.get()[size] = '\0';
    if (size_out != nullptr) *size_out = static_cast<size_t>(size);
    return memory;
}

}  // namespace

char *FileToText(const char *path) {
    return loadNew(__func__, path, nullptr).release();
}

void *FileToBuffer(const char *path, size_t *size_out) {
    return loadNew(__func__, path, size_out).release();
}

ssize_t FileLoadToBuffer(const char *path, void *buffer, size_t size) {
    if (buffer == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return doLoad(__func__, path, [&](size_t needed) -> void * {
        if (needed > size)
            return VEX_FAIL_AS(kEngine, ENOBUFS, ENOBUFS, nullptr, "buffer too small");
        return buffer;
    });
}
