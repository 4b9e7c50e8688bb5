#include <stdio.h>
#include <unistd.h>

#include <vex/io.h>
#include <vex/log.h>

#include "base/ascii.h"
#include "base/checked.h"
#include "base/unique_fd.h"
#include "log/report.h"

namespace {

/// Reports a NULL stream under the caller's name.
bool valid(const char *who, FILE *stream) {
    return stream != nullptr || VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid stream");
}

/// Flushes the stream, then applies @p operation to its descriptor.
template <typename Operation>
int afterFlush(const char *who, FILE *stream, Operation operation) {
    if (!valid(who, stream) || fflush(stream) != 0) return -1;
    return operation(fileno(stream));
}

}  // namespace

size_t safe_fread(void *buffer, size_t size, size_t count, FILE *stream) {
    if (!valid(__func__, stream)) return 0;
    if (size == 0 || count == 0) return 0;
    size_t total;
    if (buffer == nullptr || !vex::checkedMultiply(size, count, &total))
        return VEX_FAIL(EINVAL, size_t{0}, "invalid NULL parameter");
    size_t done = 0;
    for (;;) {
        done += fread(static_cast<char *>(buffer) + done, 1, total - done, stream);
        if (done == total || ferror(stream) == 0 || errno != EINTR) break;
        clearerr(stream);
    }
    if (done < total && ferror(stream) != 0) {
        const int err = errno;
        ErrorA(err, "%s could not read from file due to error: %m", __func__);
        return VEX_FAIL(err, done / size, "could not read");
    }
    return done / size;
}

size_t safe_fwrite(const void *buffer, size_t size, size_t count, FILE *stream) {
    if (!valid(__func__, stream)) return 0;
    if (size == 0 || count == 0) return 0;
    if (buffer == nullptr) return VEX_FAIL(EINVAL, size_t{0}, "invalid NULL parameter");
    const size_t written = fwrite(buffer, size, count, stream);
    if (written < count && ferror(stream) != 0) {
        const int err = errno;
        ErrorA(err, "%s could not write to file due to error: %m", __func__);
        return VEX_FAIL(err, written, "could not write");
    }
    return written;
}

int safe_fflush(FILE *stream) {
    return afterFlush(__func__, stream, [](int) { return 0; });
}

int ffsync(FILE *stream) {
    return afterFlush(__func__, stream, ::fsync);
}

int safe_ffsync(FILE *stream) {
    return afterFlush(__func__, stream, safe_fsync);
}

int ffdatasync(FILE *stream) {
    return afterFlush(__func__, stream, ::fdatasync);
}

int safe_ffdatasync(FILE *stream) {
    return afterFlush(__func__, stream, safe_fdatasync);
}

int fftruncate(FILE *stream, off_t length) {
    return afterFlush(__func__, stream, [&](int fd) { return safe_ftruncate(fd, length); });
}

int safe_fclose(FILE *stream) {
    if (!valid(__func__, stream)) return -1;
    vex::UniqueFile file(stream);
    const bool flushed = fflush(stream) == 0;
    const int flush_errno = errno;
    const bool closed = file.close() == 0;
    if (flushed) return closed ? 0 : -1;
    errno = flush_errno;
    return -1;
}

char *fread_uint(FILE *stream, char *buffer, size_t max, size_t *count_out) {
    if (!valid(__func__, stream)) return nullptr;
    if (buffer == nullptr || count_out == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    size_t count = 0;
    for (; count < max; ++count) {
        const int c = getc(stream);
        if (c != EOF && vex::ascii::isDigit(c)) {
            buffer[count] = static_cast<char>(c);
            continue;
        }
        if (c == EOF ? ferror(stream) == 0 : ungetc(c, stream) != EOF) break;
        errno = EIO;
        return nullptr;
    }
    *count_out = count;
    return buffer;
}
