// What the tree's files share: its buckets, the ready block, positions across buckets.
#ifndef VEX_CONTAINERS_HASH_TREE_H
#define VEX_CONTAINERS_HASH_TREE_H

#include "containers/bucket_notes.h"
#include "containers/tree_node.h"

namespace vex::tree {

inline constexpr uint32_t kMaxBits = 29;

inline uint64_t bucketCount(uint32_t bits) {
    return uint64_t{1} << bits;
}
inline Order orderOf(const VexHashTree *tree) {
    return {tree->compare, tree->user, tree->nodeDataSize == sizeof(void *)};
}
inline uint64_t bucketOf(const VexHashTree *tree, const void *data) {
    return tree->hash(tree->user, data) & (bucketCount(tree->bits) - 1);
}
/// The notes, which follow the bucket pointers in a table that has them.
inline Note *notesOf(const VexHashTree *tree) {
    return reinterpret_cast<Note *>(tree->buckets + bucketCount(tree->bits));
}

/// Where a record belongs: its bucket, and what is noted of that.
struct Spot {
    Link *root;
    Note *note;  ///< null in a table without notes
    Note bits;

    /// False when the record is not in the tree.
    bool mayHold() const { return note == nullptr || (*note & bits) == bits; }
    bool isEmpty() const { return note != nullptr ? *note == 0 : *root == nullptr; }
    void noteInsertion() const {
        if (note != nullptr) *note = static_cast<Note>(*note | bits);
    }
    void noteRemoval() const {
        if (note != nullptr && *root == nullptr) *note = 0;
    }
};
inline Spot spotOf(const VexHashTree *tree, const void *data) {
    const uint64_t hash = tree->hash(tree->user, data);
    const uint64_t bucket = hash & (bucketCount(tree->bits) - 1);
    Link *const root = reinterpret_cast<Link *>(tree->buckets + bucket);
    if (!hasNotes(tree->bits)) return {root, nullptr, 0};
    return {root, notesOf(tree) + bucket, noteBits(hash, tree->bits)};
}
/// Copies a node's record out, when the caller wants it.
inline void giveRecord(const VexHashTree *tree, Node *node, void *out) {
    if (out != nullptr) copyRecord(out, dataOf(node), tree->nodeDataSize);
}

/// Adds a slab; false after a report under @p who.
bool addBlocks(const char *who, VexHashTree *tree);
/// Every keyed operation first makes sure of a free block, so that it can insert and so that it
/// takes the same slabs whatever it finds. False after a report under @p who.
inline bool haveBlock(const char *who, VexHashTree *tree) {
    if (tree->allocator != nullptr && tree->allocator->free_blocks != nullptr) return true;
    return addBlocks(who, tree);
}

/// Zeroed bucket table of 2^bits entries with its notes; nullptr with errno. Given back with its
/// bits.
Node **newBuckets(uint32_t bits);
void freeBuckets(Node **buckets, uint32_t bits);
void clearBuckets(Node **buckets, uint32_t bits);

/// The first (kLeft) or last (kRight) record of the tree; the path, when given, must be empty.
Outcome endOfTree(const char *who, const VexHashTree *tree, Side side, Path *path, Node **found);
/// The record on @p side of the one at the path's end, or of @p key when the path is empty. @p key
/// must be set in both cases: it tells the bucket.
Outcome stepInTree(const char *who, const VexHashTree *tree, const void *key, Side side, Path *path,
                   Node **found);

}  // namespace vex::tree

#endif
