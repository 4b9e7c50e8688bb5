// Operations by record. Searches compare with the caller's data where it lies: nothing can tell
// that from a search with a copy in a node, since the free block for that copy is made sure of.
#include "containers/hash_tree.h"
#include "containers/slab.h"
#include "log/report.h"

namespace vex::tree {

bool addBlocks(const char *who, VexHashTree *tree) {
    if (preallocator_preallocate(tree->allocator, 1) == 0) return true;
    return VEX_FAIL_AS(who, errno, errno, false, "unable to create new node: %m");
}

}  // namespace vex::tree

namespace {

using namespace vex::tree;

/// True when neither is null and a block is free; else false after a report under @p who.
inline bool ready(const char *who, VexHashTree *tree, const void *key) {
    if (tree == nullptr || key == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
    return haveBlock(who, tree);
}

Node *newNode(VexHashTree *tree, const void *data) {
    auto *const node = static_cast<Node *>(vex::slab::takeBlock(tree->allocator));
    copyRecord(dataOf(node), data, tree->nodeDataSize);
    ++tree->layout;
    return node;
}

/// Finds the record's place and, where its equal is not there, inserts it. @p node_function is the
/// node-level function that this stands for in the log.
Outcome insert(const char *node_function, VexHashTree *tree, const void *data, Path *path,
               Place *place, Node **node) {
    const Spot spot = spotOf(tree, data);
    __builtin_prefetch(spot.root, 1);
    if (spot.isEmpty()) {  // mostly known before memory delivers the bucket
        *node = newNode(tree, data);
        makeLeaf(*node);
        *spot.root = *node;
        if (path != nullptr) path->nodes[path->depth++] = *node;
        spot.noteInsertion();
        return Outcome::kAbsent;
    }
    const Outcome outcome = descend(orderOf(tree), spot.root, data, path, place);
    if (outcome == Outcome::kFound) {
        *node = *place->slot;
    } else if (outcome == Outcome::kAbsent) {
        *node = newNode(tree, data);
        attach(*place, *node, path);
        spot.noteInsertion();
    } else {
        if (path != nullptr) path->depth = 0;
        return VEX_FAIL_AS(node_function, errno, errno, outcome, "unable to probe tree path: %m");
    }
    return outcome;
}

int findFailed(const char *who) {
    return VEX_FAIL_AS(who, errno, errno, -1, "error occurred: %m");
}

/// Find without a path, small and in one piece: look-ups that do not depend on each other overlap
/// only as far as the processor can see ahead of the memory it waits for.
int lookUp(const char *who, VexHashTree *tree, const void *key, void *out) {
    if (!ready(who, tree, key)) return -1;
    const Spot spot = spotOf(tree, key);
    if (!spot.mayHold()) return 0;
    const Order order = orderOf(tree);
    for (Node *node = *spot.root; node != nullptr;) {
        const int result = order(node, key);
        if (result == 0) {
            giveRecord(tree, node, out);
            return 1;
        }
        if (result == VexHashTreeCompareFailed) {
            reportFailedFind();
            return findFailed(who);
        }
        node = child(node, result < 0 ? kRight : kLeft);
    }
    return 0;
}

int findWithPath(const char *who, VexHashTree *tree, const void *key, void *out, Path *path) {
    path->depth = 0;
    if (!ready(who, tree, key)) return -1;
    const Spot spot = spotOf(tree, key);
    if (!spot.mayHold()) return 0;
    Node *node = nullptr;
    const Outcome outcome = find(orderOf(tree), *spot.root, key, path, &node);
    if (outcome == Outcome::kError) return findFailed(who);
    if (outcome == Outcome::kAbsent) return 0;
    giveRecord(tree, node, out);
    return 1;
}

}  // namespace

int VexHashTreeFindOrInsert(VexHashTree *tree, const void *data, void *out) {
    if (!ready(__func__, tree, data)) return -1;
    Place place;
    Node *node = nullptr;
    const Outcome outcome =
        insert("VexHashTreeNodeFindOrInsert", tree, data, nullptr, &place, &node);
    if (outcome == Outcome::kAbsent) return 1;
    if (outcome == Outcome::kError) return VEX_FAIL(errno, -1, "unable to find or insert: %m");
    giveRecord(tree, node, out);
    return 0;
}

int VexHashTreeFindOrInsertNode(VexHashTree *tree, const void *data, void *out,
                                VexHashTreePath *path) {
    if (path != nullptr) path->depth = 0;
    if (!ready(__func__, tree, data)) return -1;
    Place place;
    Node *node = nullptr;
    const Outcome outcome = insert("VexHashTreeNodeFindOrInsert", tree, data, path, &place, &node);
    if (outcome == Outcome::kError) return VEX_FAIL(errno, -1, "unable to find or insert node: %m");
    giveRecord(tree, node, out);
    return outcome == Outcome::kFound ? 1 : 0;
}

int VexHashTreeReplaceOrInsert(VexHashTree *tree, const void *data, void *out) {
    if (!ready(__func__, tree, data)) return -1;
    Place place;
    Node *present = nullptr;
    const Outcome outcome =
        insert("VexHashTreeNodeReplaceOrInsert", tree, data, nullptr, &place, &present);
    if (outcome == Outcome::kAbsent) return 0;
    if (outcome == Outcome::kError) return VEX_FAIL(errno, -1, "unable to replace or insert node");
    (void)substitute(place.slot, newNode(tree, data), nullptr);
    giveRecord(tree, present, out);
    vex::slab::giveBlock(tree->allocator, present);
    return 1;
}

int VexHashTreeRemove(VexHashTree *tree, const void *key, void *out) {
    if (!ready(__func__, tree, key)) return -1;
    Node *node = nullptr;
    const Spot spot = spotOf(tree, key);
    if (!spot.mayHold()) return 0;
    const Outcome outcome = detach(orderOf(tree), spot.root, key, &node);
    if (outcome == Outcome::kError) return VEX_FAIL(errno, -1, "error occurred: %m");
    if (outcome == Outcome::kAbsent) return 0;
    spot.noteRemoval();
    giveRecord(tree, node, out);
    vex::slab::giveBlock(tree->allocator, node);
    ++tree->numDeletes;
    ++tree->layout;
    return 1;
}

int VexHashTreeGet(VexHashTree *tree, const void *key, void *out) {
    return lookUp("VexHashTreeFindNode", tree, key, out);
}

int VexHashTreeFindNode(VexHashTree *tree, const void *key, void *out, VexHashTreePath *path) {
    return path == nullptr ? lookUp(__func__, tree, key, out)
                           : findWithPath(__func__, tree, key, out, path);
}
