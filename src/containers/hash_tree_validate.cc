// Looks for damage: balances of nodes, notes that hide a node, paths that do not fit their tree.
#include "containers/hash_tree.h"
#include "log/report.h"

namespace {

using namespace vex::tree;

/// Calls @p visit for every node, depth first, until it gives false. False then, and for a tree
/// higher than any balanced one.
template <typename Visit>
bool walk(Node *root, Visit visit) {
    Node *waiting[kMaxHeight];
    unsigned size = 0;
    for (Node *node = root; node != nullptr || size > 0;) {
        if (node == nullptr) node = waiting[--size];
        if (!visit(node)) return false;
        if (Node *const right = child(node, kRight)) {
            if (size == kMaxHeight) return false;
            waiting[size++] = right;
        }
        node = child(node, kLeft);
    }
    return true;
}

/// True when what is noted of the bucket lets each of its nodes be found, and a first one come.
bool isNotedRight(const VexHashTree *tree, uint64_t bucket) {
    Node *const root = tree->buckets[bucket];
    if (root == nullptr) return *noteOf(tree->buckets, bucket) == emptyNote(tree->bits);
    return walk(root,
                [&](Node *node) { return spotOf(CallerKeys(tree), tree, dataOf(node)).mayHold(); });
}

}  // namespace

int VexHashTreeNodeValidate(VexHashTreeNode *root) {
    const auto balanced = [](Node *node) { return node->balance >= -1 && node->balance <= 1; };
    return walk(root, balanced) ? 1 : VEX_FAIL(EINVAL, 0, "encountered invalid state");
}

uint64_t VexHashTreeNodeCount(VexHashTreeNode *root) {
    uint64_t count = 0;
    (void)walk(root, [&](Node *) { return ++count != 0; });  // what is too high counts so far
    return count;
}

uint64_t VexHashTreeNodeDepth(VexHashTreeNode *root) {
    uint64_t depth = 0;
    for (Node *node = root; node != nullptr; ++depth)
        node = child(node, node->balance < 0 ? kLeft : kRight);
    return depth;
}

int VexHashTreeValidateCompletely(VexHashTree *tree) {
    if (tree == nullptr || tree->buckets == nullptr)
        return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    for (uint64_t i = 0; i < bucketCount(tree->bits); ++i) {
        if (VexHashTreeNodeValidate(tree->buckets[i]) != 1) return 0;
        if (!isNotedRight(tree, i)) return VEX_FAIL(EINVAL, 0, "encountered invalid state");
    }
    return 1;
}

int VexHashTreePathValidateCompletely(VexHashTreePath *path, VexHashTreeNode *root,
                                      VexHashTreeNode *node) {
    if (path == nullptr || root == nullptr || node == nullptr || path->depth == 0 ||
        path->depth > VexHashTreePathMaxDepth)
        return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    if (path->nodes[0] != root)
        return VEX_FAIL(EINVAL, 0, "initial path does not point to tree root");
    if (path->nodes[path->depth - 1] != node)
        return VEX_FAIL(EINVAL, 0, "final path does not point to specified node");
    for (uint64_t i = 1; i < path->depth; ++i)
        if (VexHashTreeNodeHasChild(path->nodes[i - 1], path->nodes[i]) != 1)
            return VEX_FAIL(EINVAL, 0, "parent does not have specified node as a child");
    return 1;
}
