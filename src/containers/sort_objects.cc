// Reading and writing single objects through the caller's callbacks.
#include <cerrno>

#include "containers/sort_context.h"
#include "log/report.h"

// Reports a failed transfer with code and errno @p left, while %m shows @p shown: why the transfer
// failed is told once, in the line. A quiet sort tells the place instead.
#define SORT_FAIL(ctx, who, left, shown, ...)                                                    \
    ((ctx).has(BINARY_SORT_QUIET)                                                                \
         ? VEX_FAIL_AS(who, left, shown, 0, "Failed for unknown reason (line %d): %m", __LINE__) \
         : VEX_FAIL_AS(who, left, shown, 0, __VA_ARGS__),                                        \
     errno = (left))

namespace vex::sort {
namespace {

constexpr auto kReader = "_binarySortObjectRead";
constexpr auto kWriter = "_binarySortObjectWrite";

/// One call of the read callback. NULL with errno: ENOENT at the end, 0 for a skipped record.
void *callRead(const BinarySortCtx &ctx, FILE *stream, uint64_t *size) {
    *size = 0;
    errno = 0;  // what earlier calls left must not be taken for the end, or for an error
    void *const object = ctx.read(ctx.user, stream, size);
    // a callback that takes every short read for the end must not hide a read error
    if (object == nullptr && errno == ENOENT && stream != nullptr && ferror(stream) != 0)
        errno = EIO;
    return object;
}

/// The end is no failure: its errno must not be taken for that of a later one.
ReadResult atEnd() {
    errno = 0;
    return ReadResult::kEnd;
}

/// The number in front of an object: kEnd when the run ends before its first byte.
ReadResult readNumber(const BinarySortCtx &ctx, FILE *run, uint64_t *number) {
    const size_t got = fread(number, 1, sizeof *number, run);
    if (got == sizeof *number) return ReadResult::kObject;
    if (got == 0 && feof(run) != 0 && ferror(run) == 0) return ReadResult::kEnd;
    SORT_FAIL(ctx, kReader, EFAULT, EFAULT, "Could not read object number.");
    return ReadResult::kFailed;
}

}  // namespace

ReadResult readSource(BinarySortCtx *ctx, FILE *source, OwnedEntry *out, uint64_t *size) {
    for (;;) {
        void *const object = callRead(*ctx, source, size);
        if (object == nullptr && errno == ENOENT) return atEnd();
        if (object == nullptr && errno != 0) {
            const int err = errno;
            SORT_FAIL(*ctx, "BinarySortFp", err, err, "Could not read object: %m");
            return ReadResult::kFailed;
        }
        ++ctx->last_number;  // skipped records have numbers, too
        if (object == nullptr) continue;
        out->reset({object, ctx->last_number});
        return ReadResult::kObject;
    }
}

ReadResult readRun(const BinarySortCtx &ctx, FILE *run, OwnedEntry *out) {
    const bool numbers = ctx.has(BINARY_SORT_NUMBERS);
    for (;;) {
        uint64_t number = 0;
        if (numbers)
            if (const ReadResult result = readNumber(ctx, run, &number);
                result != ReadResult::kObject)
                return result;
        uint64_t size;
        void *const object = callRead(ctx, run, &size);
        if (object != nullptr) {
            out->reset({object, number});
            return ReadResult::kObject;
        }
        if (errno == 0) continue;
        if (errno == ENOENT && !numbers) return atEnd();
        // a number without its object is a run that was cut off
        const int err = errno == ENOENT ? EIO : errno;
        SORT_FAIL(ctx, kReader, err, err, "Could not read object: %m");
        return ReadResult::kFailed;
    }
}

bool writeObject(const BinarySortCtx &ctx, const Entry &entry, Output *out) {
    errno = 0;
    if (out->numbers) {
        if (fwrite(&entry.number, sizeof entry.number, 1, out->stream) != 1) {
            SORT_FAIL(ctx, kWriter, EFAULT, errno, "Could not write object number: %m");
            return false;
        }
        out->offset += sizeof entry.number;
    }
    const uint64_t written = ctx.write(ctx.user, entry.object, out->stream, out->offset);
    if (written == UINT64_MAX) {
        SORT_FAIL(ctx, kWriter, EFAULT, errno, "Could not write object: %m");
        return false;
    }
    out->offset += written;
    return true;
}

bool flushOutput(FILE *stream) {
    if (fflush(stream) != 0) return false;
    if (ferror(stream) == 0) return true;
    // an error that the write callback did not tell
    errno = EIO;
    return false;
}

}  // namespace vex::sort
