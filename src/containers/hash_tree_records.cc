// Operations by record: which instance of each serves the tree's keys.
#include "containers/hash_tree_operations.h"

namespace vex::tree {

bool addBlocks(const char *who, VexHashTree *tree) {
    if (preallocator_preallocate(tree->allocator, 1) == 0) {
        if (hasBlock(tree)) return true;
        errno = EINVAL;  // somebody has reset the tree's allocator, whose count now lies
    }
    return VEX_FAIL_AS(who, errno, errno, false, "unable to create new node: %m");
}

Outcome insertFailed(const char *node_function, Path *path) {
    if (path != nullptr) path->depth = 0;
    return VEX_FAIL_AS(node_function, errno, errno, Outcome::kError,
                       "unable to probe tree path: %m");
}

int lookUpFailed() {
    return VEX_FAIL_AS("VexHashTreeFindNode", errno, errno, -1, "error occurred: %m");
}

}  // namespace vex::tree

namespace {

using namespace vex::tree;

/// The operation again after adding a slab; -1 after a report under @p who. Apart from the
/// operations, which without a call need to save nothing on the stack.
template <auto operation, typename... Rest>
[[gnu::cold, gnu::noinline]] int makeReady(const char *who, VexHashTree *tree, const void *key,
                                           Rest... rest) {
    if (tree == nullptr || key == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    return addBlocks(who, tree) ? operation(tree, key, rest...) : -1;
}

int lookUpWithPath(VexHashTree *tree, const void *key, void *out, Path *path) {
    const Spot spot = spotOf(CallerKeys(tree), tree, key);
    if (!spot.mayHold()) return 0;
    Node *node = nullptr;
    const Outcome outcome = findWithPath({tree->compare, tree->user}, *spot.root, key, path, &node);
    if (outcome == Outcome::kError) return lookUpFailed();
    if (outcome == Outcome::kAbsent) return 0;
    giveRecord(tree, node, out);
    return 1;
}

// Nearly all buckets hold one or two records. These changes of trees of digests do what such
// buckets need without a call or a trail, and leave the others to the general functions: those
// compare anew, which no caller can tell of digests.

int findOrInsertDigest(VexHashTree *tree, const void *data, void *out) {
    const DigestKeys keys(tree);
    const Spot spot = spotOf(keys, tree, data);
    __builtin_prefetch(spot.root, 1);
    if (spot.isEmpty()) {
        (void)insertFirst(tree, spot, data);
        return 1;
    }
    Node *const root = *spot.root;
    if (root == nullptr) return findOrInsert<DigestKeys>(tree, data, out);
    const int result = keys(root, data);
    const Side side = sideFrom(result);
    if (result == 0 || child(root, side) != nullptr)
        return findOrInsert<DigestKeys>(tree, data, out);
    Node *const node = newNode(tree, data);
    makeLeaf(node);
    *linkOf(root, side) = node;
    root->balance = static_cast<int8_t>(root->balance + lean(side));  // beside a leaf or nothing
    spot.noteInsertion();
    return 1;
}

bool isLeaf(Node *node) {
    return child(node, kLeft) == nullptr && child(node, kRight) == nullptr;
}

/// Unlinks the root's child that is the equal of @p key, if it is a leaf and can go without a
/// rotation; else returns nullptr.
Node *detachLeaf(Node *root, Side side, const void *key) {
    Node *const node = child(root, side);
    if (node == nullptr || !areEqualDigests(dataOf(node), key) || !isLeaf(node) ||
        root->balance == lean(opposite(side)))
        return nullptr;
    root->balance = static_cast<int8_t>(root->balance - lean(side));
    *linkOf(root, side) = nullptr;
    return node;
}

int removeDigest(VexHashTree *tree, const void *key, void *out) {
    const DigestKeys keys(tree);
    const Spot spot = spotOf(keys, tree, key);
    if (!spot.mayHold()) return 0;
    Node *node = *spot.root;
    if (node == nullptr) return 0;
    if (const int result = keys(node, key); result != 0)
        node = detachLeaf(node, sideFrom(result), key);
    else if (child(node, kRight) == nullptr)
        *spot.root = child(node, kLeft);
    else if (child(node, kLeft) == nullptr)
        *spot.root = child(node, kRight);
    else
        node = nullptr;
    return node != nullptr ? giveBack(tree, spot, node, out)
                           : removeEqual<DigestKeys>(tree, key, out);
}

}  // namespace

int VexHashTreeFindOrInsert(VexHashTree *tree, const void *data, void *out) {
    if (isReadyForDigest(tree, data)) return findOrInsertDigest(tree, data, out);
    if (!isReady(tree, data)) return makeReady<VexHashTreeFindOrInsert>(__func__, tree, data, out);
    return findOrInsert<CallerKeys>(tree, data, out);
}

int VexHashTreeFindOrInsertNode(VexHashTree *tree, const void *data, void *out,
                                VexHashTreePath *path) {
    if (path != nullptr) path->depth = 0;
    if (!isReady(tree, data))
        return makeReady<VexHashTreeFindOrInsertNode>(__func__, tree, data, out, path);
    Place place;
    Node *node = nullptr;
    const Outcome outcome =
        insert<CallerKeys>("VexHashTreeNodeFindOrInsert", tree, data, path, &place, &node);
    if (outcome == Outcome::kError) return VEX_FAIL(errno, -1, "unable to find or insert node: %m");
    giveRecord(tree, node, out);
    return outcome == Outcome::kFound ? 1 : 0;
}

int VexHashTreeReplaceOrInsert(VexHashTree *tree, const void *data, void *out) {
    if (!isReady(tree, data))
        return makeReady<VexHashTreeReplaceOrInsert>(__func__, tree, data, out);
    return tree->digestMask != 0 ? replaceOrInsert<DigestKeys>(tree, data, out)
                                 : replaceOrInsert<CallerKeys>(tree, data, out);
}

int VexHashTreeRemove(VexHashTree *tree, const void *key, void *out) {
    if (isReadyForDigest(tree, key)) return removeDigest(tree, key, out);
    if (!isReady(tree, key)) return makeReady<VexHashTreeRemove>(__func__, tree, key, out);
    return removeEqual<CallerKeys>(tree, key, out);
}

int VexHashTreeGet(VexHashTree *tree, const void *key, void *out) {
    if (isReadyForDigest(tree, key)) return lookUpInline<DigestKeys>(tree, key, out);
    if (!isReady(tree, key))
        return makeReady<VexHashTreeGet>("VexHashTreeFindNode", tree, key, out);
    return lookUp<CallerKeys>(tree, key, out);
}

int VexHashTreeFindNode(VexHashTree *tree, const void *key, void *out, VexHashTreePath *path) {
    if (path == nullptr) return VexHashTreeGet(tree, key, out);
    path->depth = 0;
    if (!isReady(tree, key)) return makeReady<VexHashTreeFindNode>(__func__, tree, key, out, path);
    return lookUpWithPath(tree, key, out, path);
}

int VexHashTreeCompareDigest(void *, const void *a, const void *b) {
    return compareDigests(a, b);
}

uint64_t VexHashTreeHashDigest(void *, const void *data) {
    return DigestKeys::hash(data);
}
