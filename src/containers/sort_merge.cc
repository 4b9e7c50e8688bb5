#include "containers/sort_merge.h"

#include <vector>

#include <vex/log.h>

#include "log/report.h"

namespace vex::sort {
namespace {

constexpr auto kWho = "_binarySortFilesMerge";
constexpr size_t kCopyBlock = 32768;
constexpr size_t kNone = SIZE_MAX;

bool copyRun(FILE *run, Output *out) {
    char block[kCopyBlock];
    for (;;) {
        const size_t count = fread(block, 1, sizeof block, run);
        if (count != 0 && fwrite(block, 1, count, out->stream) != count)
            return VEX_FAIL_AS(kWho, errno, errno, false, "fwrite failed: %m");
        out->offset += count;
        if (count == sizeof block) continue;
        return feof(run) != 0 || VEX_FAIL_AS(kWho, EIO, EIO, false, "ferror failed (%m)");
    }
}

class Merger {
public:
    Merger(const BinarySortCtx &ctx, std::span<const std::unique_ptr<Run>> runs)
        : ctx_(ctx), runs_(runs) {
        heads_.reserve(runs.size());
    }
    Merger(const Merger &) = delete;
    Merger &operator=(const Merger &) = delete;
    ~Merger() {
        for (const Head &head : heads_) const OwnedEntry freed(ctx_, head.entry);
    }

    bool merge(Output *out) {
        for (size_t run = 0; run < runs_.size(); ++run)
            if (!refill(run)) return false;
        while (!heads_.empty()) {
            const size_t run = heads_.back().run;
            if (!writeLeast(out)) return false;
            if (!refill(run)) return false;
        }
        return true;
    }

private:
    struct Head {
        Entry entry;
        size_t run;
    };

    bool writeLeast(Output *out) {
        const OwnedEntry least(ctx_, heads_.back().entry);
        heads_.pop_back();
        return writeObject(ctx_, least.get(), out) ||
               VEX_FAIL_AS(kWho, errno, errno, false, "_binarySortObjectWrite failed");
    }

    /// Gives the run a head again, as long as it has objects. When an equal head is dropped for it,
    /// or it for an equal head, the run that lost its head reads on.
    bool refill(size_t run) {
        while (run != kNone) {
            OwnedEntry entry(ctx_);
            const ReadResult result = readRun(ctx_, runs_[run]->stream(), &entry);
            if (result == ReadResult::kFailed)
                return VEX_FAIL_AS(kWho, errno, errno, false, "_binarySortObjectRead failed");
            if (result == ReadResult::kEnd) return true;
            run = insert(&entry, run);
        }
        return true;
    }

    /// Puts the entry among the heads, which stand in falling order; equal ones in the order of
    /// their runs, which is that of the input. The run that has no head now, or kNone.
    size_t insert(OwnedEntry *entry, size_t run) {
        size_t low = 0;
        size_t high = heads_.size();
        while (low < high) {
            const size_t middle = low + (high - low) / 2;
            const Head &head = heads_[middle];
            int order = ctx_.order(entry->get(), head.entry);
            if (order == 0 && ctx_.compare_equal != nullptr)
                return collapse(entry, run, &heads_[middle]);
            if (order == 0) order = run < head.run ? -1 : 1;
            if (order < 0)
                low = middle + 1;
            else
                high = middle;
        }
        heads_.insert(heads_.begin() + static_cast<ptrdiff_t>(low), Head{entry->release(), run});
        return kNone;
    }

    size_t collapse(OwnedEntry *entry, size_t run, Head *present) {
        if (ctx_.dropsFresh(entry->get(), present->entry)) return run;
        const OwnedEntry displaced(ctx_, present->entry);
        const size_t starved = present->run;
        *present = {entry->release(), run};
        return starved;
    }

    const BinarySortCtx &ctx_;
    std::span<const std::unique_ptr<Run>> runs_;
    std::vector<Head> heads_;
};

}  // namespace

bool mergeRuns(const BinarySortCtx &ctx, std::span<const std::unique_ptr<Run>> runs, Output *out) {
    if (TraceOn()) {
        __Trace("Merging files:");
        for (const auto &run : runs) __Trace("%s", run->name());
    }
    for (const auto &run : runs)
        if (!run->startReading()) return false;
    if (runs.size() == 1 && !ctx.has(BINARY_SORT_NUMBERS)) return copyRun(runs[0]->stream(), out);
    return Merger(ctx, runs).merge(out);
}

}  // namespace vex::sort
