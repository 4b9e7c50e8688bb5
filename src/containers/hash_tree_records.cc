// Operations by record: which instance of each serves the tree's keys.
#include "containers/hash_tree_operations.h"

namespace vex::tree {

bool addBlocks(const char *who, VexHashTree *tree) {
    if (preallocator_preallocate(tree->allocator, 1) == 0) return true;
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

// The common cases of trees of digests, apart from the others so that they call nothing.

int findOrInsertDigest(VexHashTree *tree, const void *data, void *out) {
    const Spot spot = spotOf(DigestKeys(tree), tree, data);
    __builtin_prefetch(spot.root, 1);
    if (!spot.isEmpty()) return findOrInsert<DigestKeys>(tree, data, out);
    (void)insertFirst(tree, spot, data);
    return 1;
}

int removeDigest(VexHashTree *tree, const void *key, void *out) {
    const DigestKeys keys(tree);
    const Spot spot = spotOf(keys, tree, key);
    if (!spot.mayHold()) return 0;
    Node *const node = *spot.root;
    if (node == nullptr || keys(node, key) != 0 || child(node, kRight) != nullptr)
        return removeEqual<DigestKeys>(tree, key, out);
    *spot.root = child(node, kLeft);
    return giveBack(tree, spot, node, out);
}

}  // namespace

int VexHashTreeFindOrInsert(VexHashTree *tree, const void *data, void *out) {
    if (!isReady(tree, data)) return makeReady<VexHashTreeFindOrInsert>(__func__, tree, data, out);
    return tree->ofDigests != 0 ? findOrInsertDigest(tree, data, out)
                                : findOrInsert<CallerKeys>(tree, data, out);
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
    return tree->ofDigests != 0 ? replaceOrInsert<DigestKeys>(tree, data, out)
                                : replaceOrInsert<CallerKeys>(tree, data, out);
}

int VexHashTreeRemove(VexHashTree *tree, const void *key, void *out) {
    if (!isReady(tree, key)) return makeReady<VexHashTreeRemove>(__func__, tree, key, out);
    return tree->ofDigests != 0 ? removeDigest(tree, key, out)
                                : removeEqual<CallerKeys>(tree, key, out);
}

int VexHashTreeGet(VexHashTree *tree, const void *key, void *out) {
    if (!isReady(tree, key))
        return makeReady<VexHashTreeGet>("VexHashTreeFindNode", tree, key, out);
    return tree->ofDigests != 0 ? lookUp<DigestKeys>(tree, key, out)
                                : lookUp<CallerKeys>(tree, key, out);
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
