// The sort's context, and how its objects are read and written.
#ifndef VEX_CONTAINERS_SORT_CONTEXT_H
#define VEX_CONTAINERS_SORT_CONTEXT_H

#include <stdio.h>

#include <cstdint>

#include <vex/merge_sort.h>

#include "base/errno_guard.h"

namespace vex::sort {

/// An object and its number in the order of reading.
struct Entry {
    void *object;
    uint64_t number;
};
static_assert(sizeof(Entry) == 16);

}  // namespace vex::sort

struct BinarySortCtx {
    BinarySortRead read;
    BinarySortCompare compare;
    BinarySortCompare compare_equal;
    BinarySortWrite write;
    BinarySortFree free;
    void *value;
    void *user;
    uint64_t max_objects;
    uint64_t max_batch_size;
    uint64_t max_files;
    uint64_t stream_buffer_size;
    uint64_t files_to_merge;
    char *tmpdir;
    uint32_t flags;
    uint64_t num_objects;   ///< in the batch
    uint64_t objects_size;  ///< in the batch
    uint64_t last_number;
    uint64_t file_counter;
    vex::sort::Entry *batch;
    vex::sort::Entry *scratch;

    bool has(uint32_t flag) const { return (flags & flag) != 0; }
    int order(const vex::sort::Entry &a, const vex::sort::Entry &b) const {
        return compare(user, a.object, a.number, b.object, b.number);
    }
    /// True when @p fresh, which equals @p present, is the one to be dropped.
    bool dropsFresh(const vex::sort::Entry &fresh, const vex::sort::Entry &present) const {
        return compare_equal(user, fresh.object, fresh.number, present.object, present.number) < 0;
    }
};

namespace vex::sort {

/// Owns an object until it is freed or handed on.
class OwnedEntry {
public:
    explicit OwnedEntry(const BinarySortCtx &ctx) : ctx_(ctx) {}
    OwnedEntry(const BinarySortCtx &ctx, Entry entry) : ctx_(ctx), entry_(entry) {}
    OwnedEntry(const OwnedEntry &) = delete;
    OwnedEntry &operator=(const OwnedEntry &) = delete;
    ~OwnedEntry() {
        const ErrnoGuard keep;
        if (entry_.object != nullptr) ctx_.free(ctx_.user, entry_.object);
    }

    const Entry &get() const { return entry_; }
    void reset(Entry entry) { entry_ = entry; }
    Entry release() {
        const Entry entry = entry_;
        entry_.object = nullptr;
        return entry;
    }

private:
    const BinarySortCtx &ctx_;
    Entry entry_{};
};

enum class ReadResult { kObject, kEnd, kFailed };

/// The next object of the source, numbered; failures are reported as the sort's own.
ReadResult readSource(BinarySortCtx *ctx, FILE *source, OwnedEntry *out, uint64_t *size);
/// The next object of a run, with its number when runs have numbers.
ReadResult readRun(const BinarySortCtx &ctx, FILE *run, OwnedEntry *out);

/// A stream that objects are written to.
struct Output {
    FILE *stream;
    bool numbers;         ///< each object follows its number
    uint64_t offset = 0;  ///< bytes written so far
};

bool writeObject(const BinarySortCtx &ctx, const Entry &entry, Output *out);
/// Pushes everything to the file; false, with errno, when any write to the stream failed before or
/// fails now.
bool flushOutput(FILE *stream);

}  // namespace vex::sort

#endif
