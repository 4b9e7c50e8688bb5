// What the tree's files share: its buckets, the ready block, positions across buckets.
#ifndef VEX_CONTAINERS_HASH_TREE_H
#define VEX_CONTAINERS_HASH_TREE_H

#include "containers/bucket_notes.h"
#include "containers/digest_keys.h"
#include "containers/tree_search.h"

namespace vex::tree {

inline constexpr uint32_t kMaxBits = 29;

inline uint64_t bucketCount(uint32_t bits) {
    return uint64_t{1} << bits;
}
inline uint64_t bucketOf(const VexHashTree *tree, uint64_t hash) {
    return hash & (bucketCount(tree->bits) - 1);
}

inline bool isOfDigests(VexHashTreeCompare compare, VexHashTreeHash hash) {
    return compare == &VexHashTreeCompareDigest && hash == &VexHashTreeHashDigest;
}
/// Lets the operations of digest trees serve this one, if they can: they do not ask for the
/// allocator.
inline void setDigestMask(VexHashTree *tree) {
    const bool serves = tree->allocator != nullptr && isOfDigests(tree->compare, tree->hash);
    tree->digestMask = serves ? static_cast<uint32_t>(bucketCount(tree->bits) - 1) : 0;
}

/// Copies a node's record out, when the caller wants it.
inline void giveRecord(const VexHashTree *tree, Node *node, void *out) {
    if (out != nullptr) copyRecord(out, dataOf(node), tree->nodeDataSize);
}

/// Keys that the caller's functions hash and compare.
struct CallerKeys {
    explicit CallerKeys(const VexHashTree *keys_of) : tree(keys_of) {}
    const VexHashTree *tree;
    uint64_t bucket(uint64_t hash) const { return bucketOf(tree, hash); }
    uint64_t hash(const void *data) const { return tree->hash(tree->user, data); }
    int operator()(Node *node, const void *key) const {
        return tree->compare(tree->user, dataOf(node), key);
    }
    void give(const VexHashTree *, Node *node, const void *, void *out) const {
        giveRecord(tree, node, out);
    }
};
/// Where a record belongs: its bucket, and what is noted of that.
struct Spot {
    Link *root;
    Note *note;
    Note bits;

    /// False when the record is not in the tree.
    bool mayHold() const { return (*note & bits) == bits; }
    bool isEmpty() const { return *note == 0; }
    void noteInsertion() const { *note = static_cast<Note>(*note | bits); }
    /// Without a branch: nobody could predict it.
    void noteRemoval(Note empty) const { *note = *root != nullptr ? *note : empty; }
};
template <typename Keys>
Spot spotOf(Keys keys, const VexHashTree *tree, const void *data) {
    const uint64_t hash = keys.hash(data);
    const uint64_t bucket = keys.bucket(hash);
    return {reinterpret_cast<Link *>(tree->buckets + bucket), noteOf(tree->buckets, bucket),
            noteBits(hash)};
}
/// Every keyed operation first makes sure of a free block, so that it can insert and so that it
/// takes the same slabs whatever it finds.
inline bool hasBlock(const VexHashTree *tree) {
    return tree->allocator != nullptr && tree->allocator->free_blocks != nullptr;
}
/// Adds a slab; false after a report under @p who.
bool addBlocks(const char *who, VexHashTree *tree);

/// Zeroed bucket table of 2^bits entries with its notes; nullptr with errno. Given back with its
/// bits.
Node **newBuckets(uint32_t bits);
void freeBuckets(Node **buckets, uint32_t bits);
void clearBuckets(Node **buckets, uint32_t bits);

}  // namespace vex::tree

#endif
