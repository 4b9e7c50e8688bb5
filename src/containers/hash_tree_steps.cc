// Steps from record to record by the caller's key or path.
#include "containers/hash_tree_steps.h"

namespace {

using namespace vex::tree;

int endNode(const char *who, VexHashTree *tree, Side side, void *out, Path *path) {
    if (path != nullptr) path->depth = 0;
    if (tree == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    uint64_t bucket = 0;
    Node *node = nullptr;
    const Outcome outcome = endOfTree(who, tree, side, &bucket, path, &node);
    if (outcome == Outcome::kFound) giveRecord(tree, node, out);
    return static_cast<int>(outcome);
}

int stepNode(const char *who, VexHashTree *tree, const void *key, Side side, void *out,
             Path *path) {
    if (tree == nullptr || key == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    if (!hasBlock(tree) && !addBlocks(who, tree)) return -1;
    Path own;
    if (path == nullptr) {
        own.depth = 0;
        path = &own;
    }
    uint64_t bucket = bucketOf(tree, tree->hash(tree->user, key));
    Node *node = nullptr;
    const Outcome outcome = stepInTree(who, tree, &bucket, key, side, path, &node);
    if (outcome == Outcome::kFound) giveRecord(tree, node, out);
    return static_cast<int>(outcome);
}

}  // namespace

int VexHashTreeFirstNode(VexHashTree *tree, void *out, VexHashTreePath *path) {
    return endNode(__func__, tree, kLeft, out, path);
}

int VexHashTreeLastNode(VexHashTree *tree, void *out, VexHashTreePath *path) {
    return endNode(__func__, tree, kRight, out, path);
}

int VexHashTreeNextNode(VexHashTree *tree, const void *key, void *out, VexHashTreePath *path) {
    return stepNode(__func__, tree, key, kRight, out, path);
}

int VexHashTreePrevNode(VexHashTree *tree, const void *key, void *out, VexHashTreePath *path) {
    return stepNode(__func__, tree, key, kLeft, out, path);
}
