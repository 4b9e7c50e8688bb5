// What the tree's files share: its buckets, the ready block, positions across buckets.
#ifndef VEX_CONTAINERS_HASH_TREE_H
#define VEX_CONTAINERS_HASH_TREE_H

#include "containers/tree_node.h"

namespace vex::tree {

inline constexpr uint32_t kMaxBits = 29;

inline uint64_t bucketCount(uint32_t bits) {
    return uint64_t{1} << bits;
}
inline Order orderOf(const VexHashTree *tree) {
    return {tree->compare, tree->user};
}
inline uint64_t bucketOf(const VexHashTree *tree, const void *data) {
    return tree->hash(tree->user, data) & (bucketCount(tree->bits) - 1);
}
/// Copies a node's record out, when the caller wants it.
inline void giveRecord(const VexHashTree *tree, Node *node, void *out) {
    if (out != nullptr) copyRecord(out, dataOf(node), tree->nodeDataSize);
}

/// Every keyed operation first makes sure of a free block, so that it can insert and so that it
/// takes the same slabs whatever it finds. False after a report under @p who.
bool haveBlock(const char *who, VexHashTree *tree);

/// Zeroed bucket table of 2^bits entries; nullptr with errno. Given back with its bits.
Node **newBuckets(uint32_t bits);
void freeBuckets(Node **buckets, uint32_t bits);

/// The first (kLeft) or last (kRight) record of the tree; the path, when given, must be empty.
Outcome endOfTree(const char *who, const VexHashTree *tree, Side side, Path *path, Node **found);
/// The record on @p side of the one at the path's end, or of @p key when the path is empty. @p key
/// must be set in both cases: it tells the bucket.
Outcome stepInTree(const char *who, const VexHashTree *tree, const void *key, Side side, Path *path,
                   Node **found);

}  // namespace vex::tree

#endif
