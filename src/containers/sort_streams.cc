// BinarySortFp: batches become runs, runs are merged.
#include <vex/log.h>

#include "containers/merge_core.h"
#include "containers/sort_passes.h"
#include "log/report.h"

namespace {

using vex::sort::Entry;
using vex::sort::OwnedEntry;
using vex::sort::ReadResult;

constexpr auto kWho = "BinarySortFp";

struct EntryOrder {
    bool isAfter(const char *a, const char *b) const { return ctx->order(entry(a), entry(b)) > 0; }
    /// Has the object in the cache when its turn comes: most of the time of a sort would otherwise
    /// be spent waiting for memory.
    static void prepare(const char *element) { __builtin_prefetch(entry(element).object); }
    static const Entry &entry(const char *element) {
        return *reinterpret_cast<const Entry *>(element);
    }

    const BinarySortCtx *ctx;
};

/// The objects of one batch, in the context's entries. Those that were given up have no object.
class Batch {
public:
    explicit Batch(BinarySortCtx *ctx) : ctx_(ctx) { ctx->num_objects = ctx->objects_size = 0; }
    Batch(const Batch &) = delete;
    Batch &operator=(const Batch &) = delete;
    ~Batch() {
        for (uint64_t i = 0; i < ctx_->num_objects; ++i) take(i);
        ctx_->num_objects = ctx_->objects_size = 0;
    }

    bool empty() const { return ctx_->num_objects == 0; }

    /// Reads until the batch is full (kObject) or the source ends.
    ReadResult fill(FILE *source) {
        while (ctx_->num_objects < ctx_->max_objects && !fullBySize()) {
            OwnedEntry entry(*ctx_);
            uint64_t size = 0;
            const ReadResult result = vex::sort::readSource(ctx_, source, &entry, &size);
            if (result != ReadResult::kObject) return result;
            ctx_->batch[ctx_->num_objects++] = entry.release();
            if (__builtin_add_overflow(ctx_->objects_size, size, &ctx_->objects_size))
                ctx_->objects_size = UINT64_MAX;
        }
        return ReadResult::kObject;
    }

    void sort() {
        const EntryOrder order{ctx_};
        vex::sort::MergeSorter(vex::sort::FixedSize<sizeof(Entry)>(), order)
            .sort(reinterpret_cast<char *>(ctx_->batch), ctx_->num_objects,
                  reinterpret_cast<char *>(ctx_->scratch));
    }

    /// Writes the sorted objects and frees them; of equal ones the one to be kept, when there is a
    /// callback for that.
    bool write(vex::sort::Output *out) {
        uint64_t present = 0;
        for (uint64_t next = 1; next < ctx_->num_objects; ++next) {
            const Entry &kept = ctx_->batch[present];
            const Entry &fresh = ctx_->batch[next];
            if (ctx_->compare_equal != nullptr && ctx_->order(kept, fresh) == 0) {
                if (ctx_->dropsFresh(fresh, kept)) {
                    take(next);
                    continue;
                }
                take(present);
            } else if (!writeOne(present, out)) {
                return false;
            }
            present = next;
        }
        return writeOne(present, out);
    }

private:
    bool fullBySize() const { return !empty() && ctx_->objects_size >= ctx_->max_batch_size; }

    /// Takes an object out of the batch; it is freed at the end of the statement or scope.
    OwnedEntry take(uint64_t index) {
        return OwnedEntry(*ctx_, std::exchange(ctx_->batch[index], Entry{}));
    }

    bool writeOne(uint64_t index, vex::sort::Output *out) {
        const OwnedEntry entry = take(index);
        return vex::sort::writeObject(*ctx_, entry.get(), out) ||
               VEX_FAIL_AS(kWho, errno, errno, false, "_binarySortObjectWrite failed");
    }

    BinarySortCtx *ctx_;
};

bool writeRun(Batch *batch, vex::sort::Run *run) {
    vex::sort::Output out = run->output();
    if (!batch->write(&out)) return false;
    return run->finishWriting(out) ||
           VEX_FAIL_AS(kWho, errno, errno, false, "Unknown error occurred: %m");
}

/// Turns the source into runs; false, here and below, when the failure was reported.
bool makeRuns(BinarySortCtx *ctx, FILE *source, vex::sort::Passes *passes) {
    const bool traced = TraceOn() && !ctx->has(BINARY_SORT_QUIET);
    for (uint64_t i = 0;; ++i) {
        Batch batch(ctx);
        const ReadResult result = batch.fill(source);
        if (result == ReadResult::kFailed) return false;
        if (traced) {
            __Trace("%s: i=%lu", kWho, i);
            __Trace("%s: num_objects=%lu, objects_size=%lu", kWho, ctx->num_objects,
                    ctx->objects_size);
        }
        if (!batch.empty()) {
            batch.sort();
            std::unique_ptr<vex::sort::Run> run = vex::sort::Run::create(ctx);
            if (!run || !writeRun(&batch, run.get()) || !passes->add(std::move(run))) return false;
        }
        if (result == ReadResult::kEnd) return true;
    }
}

bool sortStreams(BinarySortCtx *ctx, FILE *source, FILE *destination) {
    ctx->last_number = 0;
    vex::sort::Passes passes(ctx);
    if (!makeRuns(ctx, source, &passes) || !passes.finish(destination)) return false;
    return vex::sort::flushOutput(destination) ||
           VEX_FAIL_AS(kWho, errno, errno, false, "Unknown error occurred: %m");
}

}  // namespace

int BinarySortFp(BinarySortCtx *ctx, FILE *src, FILE *dst) {
    if (ctx == nullptr || dst == nullptr)
        return VEX_FAIL(EINVAL, -1, "Required input was null: binary_sort_ctx (%p), dst_fp (%p)",
                        static_cast<void *>(ctx), static_cast<void *>(dst));
    return vex::guard(__func__, -1, [&] { return sortStreams(ctx, src, dst) ? 0 : -1; });
}
