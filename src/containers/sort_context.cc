#include "containers/sort_context.h"

#include <cstdlib>
#include <cstring>

#include "base/checked.h"
#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

constexpr uint64_t kMaxFiles = 128;
constexpr uint64_t kLeastFilesToMerge = 2;

/// Memory for the entries of a batch; the kernel gives it page by page as the batch fills.
vex::sort::Entry *allocateEntries(uint64_t count) {
    uint64_t size;
    if (!vex::checkedMultiply(count, uint64_t{sizeof(vex::sort::Entry)}, &size)) {
        errno = ENOMEM;
        return nullptr;
    }
    return static_cast<vex::sort::Entry *>(malloc(size));
}

struct ContextDeleter {
    void operator()(BinarySortCtx *ctx) const { BinarySortCtxDestruct(&ctx); }
};

}  // namespace

BinarySortCtx *BinarySortCtxConstruct(BinarySortRead read, BinarySortCompare compare,
                                      BinarySortCompare compareEqual, BinarySortWrite write,
                                      BinarySortFree freeFn, void *value, void *user,
                                      uint64_t maxObjects, uint64_t maxBatchSize,
                                      const char *tmpdir, uint64_t filesToMerge,
                                      uint64_t streamBufferSize, uint32_t flags) {
    if (read == nullptr || compare == nullptr || write == nullptr || freeFn == nullptr ||
        tmpdir == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (filesToMerge < kLeastFilesToMerge || maxObjects == 0)
        return VEX_FAIL(EINVAL, nullptr,
                        "invalid parameter: num_files_to_merge=%lu, max_objects=%lu", filesToMerge,
                        maxObjects);
    std::unique_ptr<BinarySortCtx, ContextDeleter> ctx(
        static_cast<BinarySortCtx *>(calloc(1, sizeof(BinarySortCtx))));
    if (!ctx) return VEX_FAIL(errno, nullptr, "could not allocate memory: %m");
    ctx->read = read;
    ctx->compare = compare;
    ctx->compare_equal = compareEqual;
    ctx->write = write;
    ctx->free = freeFn;
    ctx->value = value;
    ctx->user = user;
    ctx->max_objects = maxObjects;
    ctx->max_batch_size = maxBatchSize;
    ctx->max_files = kMaxFiles;
    ctx->stream_buffer_size = streamBufferSize;
    ctx->files_to_merge = filesToMerge;
    ctx->flags = flags;
    if ((ctx->tmpdir = strdup(tmpdir)) == nullptr)
        return VEX_FAIL(errno, nullptr, "could not allocate memory for tmpdir: %m");
    if ((ctx->batch = allocateEntries(maxObjects)) == nullptr)
        return VEX_FAIL(errno, nullptr, "could not allocate memory for objects: %m");
    if ((ctx->scratch = allocateEntries(maxObjects)) == nullptr)
        return VEX_FAIL(errno, nullptr, "could not allocate memory for qsort objects: %m");
    return ctx.release();
}

void BinarySortCtxDestruct(BinarySortCtx **ctx) {
    if (ctx == nullptr) {
        vex::log::failure(EINVAL, EINVAL, __func__, "invalid NULL parameter");
        return;
    }
    if (*ctx == nullptr) return;
    const vex::ErrnoGuard keep;
    free((*ctx)->tmpdir);
    free((*ctx)->batch);
    free((*ctx)->scratch);
    free(*ctx);
    *ctx = nullptr;
}
