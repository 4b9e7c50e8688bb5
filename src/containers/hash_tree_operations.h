// Operations by record, for any way to hash and compare. Searches compare with the caller's data
// where it lies: nothing can tell that from a search with a copy in a node, since the free block
// for that copy is made sure of. Each instance is a function of its own, because one that calls
// nothing saves no registers and so lets the processor see further ahead of the memory it waits
// for.
#ifndef VEX_CONTAINERS_HASH_TREE_OPERATIONS_H
#define VEX_CONTAINERS_HASH_TREE_OPERATIONS_H

#include "containers/hash_tree.h"
#include "containers/slab.h"
#include "log/report.h"

namespace vex::tree {

/// True when neither is null and a block is free, as the operations below need it.
inline bool isReady(const VexHashTree *tree, const void *key) {
    return tree != nullptr && key != nullptr && hasBlock(tree);
}

/// The same for a tree of digests. Its mask, unless 0, tells that there is an allocator.
inline bool isReadyForDigest(const VexHashTree *tree, const void *key) {
    return tree != nullptr && key != nullptr && tree->digestMask != 0 &&
           tree->allocator->free_blocks != nullptr;
}

[[gnu::always_inline]] inline Node *newNode(VexHashTree *tree, const void *data) {
    auto *const node = static_cast<Node *>(slab::takeBlock(tree->allocator));
    copyRecord(dataOf(node), data, tree->nodeDataSize);
    ++tree->layout;
    return node;
}

/// Makes the record its bucket's first.
[[gnu::always_inline]] inline Node *insertFirst(VexHashTree *tree, const Spot &spot,
                                                const void *data) {
    Node *const node = newNode(tree, data);
    makeLeaf(node);
    *spot.root = node;
    spot.noteInsertion();
    return node;
}

/// What is left to do for a node that was unlinked: the record goes to the caller, the node back.
[[gnu::always_inline]] inline int giveBack(VexHashTree *tree, const Spot &spot, Node *node,
                                           void *out) {
    spot.noteRemoval(emptyNote(tree->bits));
    giveRecord(tree, node, out);
    slab::giveBlock(tree->allocator, node);
    ++tree->numDeletes;
    ++tree->layout;
    return 1;
}

/// Report, under the names that callers know, what a search has reported already.
Outcome insertFailed(const char *node_function, Path *path);
int lookUpFailed();

/// Finds the record's place and, where its equal is not there, inserts it. @p node_function is the
/// node-level function that this stands for in the log.
template <typename Keys>
Outcome insert(const char *node_function, VexHashTree *tree, const void *data, Path *path,
               Place *place, Node **node) {
    const Keys keys(tree);
    const Spot spot = spotOf(keys, tree, data);
    __builtin_prefetch(spot.root, 1);
    if (spot.isEmpty()) {  // mostly known before memory delivers the bucket
        *node = insertFirst(tree, spot, data);
        if (path != nullptr) path->nodes[path->depth++] = *node;
        return Outcome::kAbsent;
    }
    const Outcome outcome = descend(keys, spot.root, data, path, place);
    if (outcome == Outcome::kError) return insertFailed(node_function, path);
    if (outcome == Outcome::kFound) {
        *node = *place->slot;
    } else {
        *node = newNode(tree, data);
        attach(*place, *node, path);
        spot.noteInsertion();
    }
    return outcome;
}

template <typename Keys>
[[gnu::noinline]] int findOrInsert(VexHashTree *tree, const void *data, void *out) {
    Place place;
    Node *node = nullptr;
    const Outcome outcome =
        insert<Keys>("VexHashTreeNodeFindOrInsert", tree, data, nullptr, &place, &node);
    if (outcome == Outcome::kAbsent) return 1;
    if (outcome == Outcome::kError)
        return VEX_FAIL_AS("VexHashTreeFindOrInsert", errno, errno, -1,
                           "unable to find or insert: %m");
    giveRecord(tree, node, out);
    return 0;
}

template <typename Keys>
[[gnu::noinline]] int replaceOrInsert(VexHashTree *tree, const void *data, void *out) {
    Place place;
    Node *present = nullptr;
    const Outcome outcome =
        insert<Keys>("VexHashTreeNodeReplaceOrInsert", tree, data, nullptr, &place, &present);
    if (outcome == Outcome::kAbsent) return 0;
    if (outcome == Outcome::kError)
        return VEX_FAIL_AS("VexHashTreeReplaceOrInsert", errno, errno, -1,
                           "unable to replace or insert node");
    (void)substitute(place.slot, newNode(tree, data), nullptr);
    giveRecord(tree, present, out);
    slab::giveBlock(tree->allocator, present);
    return 1;
}

template <typename Keys>
[[gnu::noinline]] int removeEqual(VexHashTree *tree, const void *key, void *out) {
    const Keys keys(tree);
    Node *node = nullptr;
    const Spot spot = spotOf(keys, tree, key);
    if (!spot.mayHold()) return 0;
    const Outcome outcome = detach(keys, spot.root, key, &node);
    if (outcome == Outcome::kError)
        return VEX_FAIL_AS("VexHashTreeRemove", errno, errno, -1, "error occurred: %m");
    if (outcome == Outcome::kAbsent) return 0;
    return giveBack(tree, spot, node, out);
}

template <typename Keys>
[[gnu::always_inline]] inline int lookUpInline(VexHashTree *tree, const void *key, void *out) {
    const Keys keys(tree);
    const Spot spot = spotOf(keys, tree, key);
    if (!spot.mayHold()) return 0;
    Node *node = nullptr;
    const Outcome outcome = find(keys, *spot.root, key, &node);
    if (outcome == Outcome::kError) return lookUpFailed();
    if (outcome == Outcome::kAbsent) return 0;
    keys.give(tree, node, key, out);
    return 1;
}

template <typename Keys>
[[gnu::noinline]] int lookUp(VexHashTree *tree, const void *key, void *out) {
    return lookUpInline<Keys>(tree, key, out);
}

}  // namespace vex::tree

#endif
