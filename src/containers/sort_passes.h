// The runs that wait to be merged, and the passes over them.
#ifndef VEX_CONTAINERS_SORT_PASSES_H
#define VEX_CONTAINERS_SORT_PASSES_H

#include <memory>
#include <span>
#include <vector>

#include "containers/sort_run.h"

namespace vex::sort {

/// Runs stand in levels: level 0 holds those written from batches, a run of the next level is made
/// of as many of them as are merged at once, and so on. Only neighbours are merged, so that the
/// levels from the highest down, each in its order, stand in the order of the input.
class Passes {
public:
    explicit Passes(BinarySortCtx *ctx) : ctx_(ctx) {}

    /// Takes a sorted batch; false, here and below, when the failure was reported.
    bool add(std::unique_ptr<Run> run) { return add(std::move(run), 0); }
    /// Merges all runs into the destination.
    bool finish(FILE *destination);

private:
    using Runs = std::vector<std::unique_ptr<Run>>;
    struct Level {
        Runs runs;
        unsigned merges = 0;
    };

    bool add(std::unique_ptr<Run> run, size_t level);
    std::unique_ptr<Run> merge(std::span<const std::unique_ptr<Run>> runs, size_t pass,
                               unsigned step);
    bool mergeCheapest(Runs *runs, size_t count, unsigned step);
    void announce(size_t pass, unsigned step);

    BinarySortCtx *ctx_;
    std::vector<Level> levels_;
    int64_t quiet_until_ = 0;  ///< seconds of the monotonic clock
};

}  // namespace vex::sort

#endif
