// Steps across buckets, inlined into those who walk: a walk takes millions of them. Nodes of one
// bucket after the other lie all over the slabs, so a walk asks for the roots of coming buckets,
// and then for their children, ahead of time.
#ifndef VEX_CONTAINERS_HASH_TREE_STEPS_H
#define VEX_CONTAINERS_HASH_TREE_STEPS_H

#include "containers/hash_tree.h"
#include "log/report.h"

namespace vex::tree {

inline constexpr uint64_t kRootsAhead = 64;
inline constexpr uint64_t kChildrenAhead = 32;

/// Asks for what lies some buckets behind @p at in the direction of the walk; @p count ends the
/// table in either direction because indices below 0 wrap.
[[gnu::always_inline]] inline void prefetchBuckets(const VexHashTree *tree, uint64_t at,
                                                   uint64_t step, uint64_t count) {
    const uint64_t far = at + kRootsAhead * step;
    if (far < count) prefetchNode(tree->buckets[far], tree, 2);
    const uint64_t near = at + kChildrenAhead * step;
    if (near >= count) return;
    if (Node *const root = tree->buckets[near]) {
        prefetchNode(child(root, kLeft), tree, 2);
        prefetchNode(child(root, kRight), tree, 2);
    }
}

/// The outermost record on the side opposite to the walk in the first bucket from @p bucket on that
/// is not empty; leaves @p bucket there.
inline Outcome scan(const char *who, const VexHashTree *tree, uint64_t *bucket, Side side,
                    Path *path, Node **found) {
    const uint64_t count = bucketCount(tree->bits);
    const uint64_t step = side == kRight ? 1 : UINT64_MAX;
    for (uint64_t at = *bucket; at < count; at += step) {
        prefetchBuckets(tree, at, step, count);
        if (Node *const root = tree->buckets[at]) {
            *bucket = at;
            if (path == nullptr || child(root, opposite(side)) != nullptr)
                return outermost(who, root, opposite(side), path, found);
            path->nodes[0] = root;  // mostly it stands alone
            path->depth = 1;
            *found = root;
            return Outcome::kFound;
        }
    }
    return Outcome::kAbsent;
}

/// The first (kLeft) or last record of the tree, and its bucket; the path, when given, must be
/// empty.
inline Outcome endOfTree(const char *who, const VexHashTree *tree, Side side, uint64_t *bucket,
                         Path *path, Node **found) {
    if (tree->buckets == nullptr) return Outcome::kAbsent;
    *bucket = side == kLeft ? 0 : bucketCount(tree->bits) - 1;
    const Outcome outcome = scan(who, tree, bucket, opposite(side), path, found);
    if (outcome != Outcome::kError) return outcome;
    return VEX_FAIL_AS(who, errno, errno, outcome, "failed to find end of tree: %m");
}

/// The record on @p side of the one at the path's end, or of @p key when the path is empty. @p
/// bucket must be that record's and becomes the found one's.
inline Outcome stepInTree(const char *who, const VexHashTree *tree, uint64_t *bucket,
                          const void *key, Side side, Path *path, Node **found) {
    Outcome outcome = Outcome::kAbsent;
    if (path->depth == 1 && child(path->nodes[0], side) == nullptr)
        path->depth = 0;  // the root was the bucket's last
    else
        outcome =
            neighbour(side == kRight ? "VexHashTreeNodeNext" : "VexHashTreeNodePrev",
                      {tree->compare, tree->user}, tree->buckets[*bucket], key, side, path, found);
    if (outcome == Outcome::kAbsent) {
        *bucket += side == kRight ? 1 : UINT64_MAX;
        outcome = scan(who, tree, bucket, side, path, found);
    }
    if (outcome != Outcome::kError) return outcome;
    return VEX_FAIL_AS(who, errno, errno, outcome, "error occurred: %m");
}

}  // namespace vex::tree

#endif
