// Merging runs.
#ifndef VEX_CONTAINERS_SORT_MERGE_H
#define VEX_CONTAINERS_SORT_MERGE_H

#include <memory>
#include <span>

#include "containers/sort_run.h"

namespace vex::sort {

/// Merges neighbouring runs, given oldest first, into @p out; false when the failure was reported.
bool mergeRuns(const BinarySortCtx &ctx, std::span<const std::unique_ptr<Run>> runs, Output *out);

}  // namespace vex::sort

#endif
