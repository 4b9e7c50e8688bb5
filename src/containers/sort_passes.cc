#include "containers/sort_passes.h"

#include <algorithm>

#include <vex/log.h>

#include "base/monotonic.h"
#include "containers/sort_merge.h"
#include "log/report.h"

namespace vex::sort {
namespace {

constexpr int64_t kProgressSeconds = 300;

}  // namespace

void Passes::announce(size_t pass, unsigned step) {
    const int64_t now = coarseMs() / 1000;
    if (ctx_->has(BINARY_SORT_QUIET) || now < quiet_until_) return;
    quiet_until_ = now + kProgressSeconds;
    const auto number = static_cast<unsigned>(pass);
    if (step == 1)
        InfoA(-1, "Sorting tlog files: starting pass %u.", number);
    else
        InfoA(-1, "Sorting tlog files: starting pass %u.%u.", number, step);
}

std::unique_ptr<Run> Passes::merge(std::span<const std::unique_ptr<Run>> runs, size_t pass,
                                   unsigned step) {
    announce(pass, step);
    std::unique_ptr<Run> merged = Run::create(ctx_);
    if (!merged) return nullptr;
    Output out = merged->output();
    if (!mergeRuns(*ctx_, runs, &out)) return nullptr;
    if (!merged->finishWriting(out))
        return VEX_FAIL_AS("_binarySortFilesMerge", errno, errno, nullptr,
                           "Unknown error occurred: %m");
    return merged;
}

/// A full level is merged when its next run comes, not before: it may be the last one, and then the
/// level goes to the destination without another pass.
bool Passes::add(std::unique_ptr<Run> run, size_t level) {
    if (level == levels_.size()) levels_.emplace_back();
    if (levels_[level].runs.size() == ctx_->files_to_merge) {
        std::unique_ptr<Run> merged =
            merge(levels_[level].runs, level + 1, ++levels_[level].merges);
        if (!merged) return false;
        levels_[level].runs.clear();
        if (!add(std::move(merged), level + 1)) return false;
    }
    if (levels_[level].runs.size() == ctx_->max_files)
        return VEX_FAIL_AS("BinarySortFp", ENOBUFS, ENOBUFS, false,
                           "max_files=%lu exceeded. Please try a lower number of "
                           "num_files_to_merge.",
                           ctx_->max_files);
    levels_[level].runs.push_back(std::move(run));
    return true;
}

/// Merges the @p count neighbours that hold the least.
bool Passes::mergeCheapest(Runs *runs, size_t count, unsigned step) {
    uint64_t size = 0;
    for (size_t i = 0; i < count; ++i) size += (*runs)[i]->size();
    uint64_t least = size;
    size_t best = 0;
    for (size_t i = 1; i + count <= runs->size(); ++i) {
        size += (*runs)[i + count - 1]->size() - (*runs)[i - 1]->size();
        if (size < least) best = i;
        least = std::min(least, size);
    }
    std::unique_ptr<Run> merged =
        merge(std::span(*runs).subspan(best, count), levels_.size() + 1, step);
    if (!merged) return false;
    const auto first = runs->begin() + static_cast<ptrdiff_t>(best);
    *first = std::move(merged);
    runs->erase(first + 1, first + static_cast<ptrdiff_t>(count));
    return true;
}

bool Passes::finish(FILE *destination) {
    Runs runs;
    for (auto level = levels_.rbegin(); level != levels_.rend(); ++level)
        std::move(level->runs.begin(), level->runs.end(), std::back_inserter(runs));
    const size_t most = ctx_->files_to_merge;
    for (unsigned step = 1; runs.size() > most; ++step)
        if (!mergeCheapest(&runs, std::min(most, runs.size() - most + 1), step)) return false;
    if (!ctx_->has(BINARY_SORT_QUIET)) InfoA(-1, "Sorting tlog files: starting final merge step.");
    if (runs.empty()) return true;
    Output out{destination, false};
    return mergeRuns(*ctx_, runs, &out);
}

}  // namespace vex::sort
