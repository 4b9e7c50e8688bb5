// Search and steps in one bucket's tree.
#include <vex/log.h>

#include "containers/tree_search.h"
#include "log/report.h"

namespace vex::tree {
namespace {

Outcome noRoom(const char *who, Path *path) {
    const auto depth = static_cast<unsigned>(path->depth);
    path->depth = 0;
    errno = ENOBUFS;
    ErrorA(ENOBUFS, "%s (%u): unable to push tree path: %m", who, depth);  // keeps errno
    return Outcome::kError;
}

/// Goes from the path's last node down its @p side, then all the way on the other one.
Outcome descendTo(const char *who, Node *from, Side side, Path *path, Node **found) {
    for (Node *node = from; node != nullptr; node = child(node, side)) {
        if (!push(path, node)) return noRoom(who, path);
        *found = node;
    }
    return Outcome::kFound;
}

/// The neighbour on @p side of the node that the path ends at.
Outcome step(const char *who, Side side, Path *path, Node **found) {
    Node *const node = path->nodes[path->depth - 1];
    if (Node *const down = child(node, side))
        return descendTo(who, down, opposite(side), path, found);
    // climb until arriving from the other side
    for (Node *below = node; --path->depth != 0;) {
        Node *const above = path->nodes[path->depth - 1];
        if (child(above, side) != below) {
            *found = above;
            return Outcome::kFound;
        }
        below = above;
    }
    return Outcome::kAbsent;
}

/// Searches the key's neighbour: where the search for the key itself ends, that node is the answer
/// when it lies on @p side, and the neighbour's other neighbour when it does not.
Outcome search(const char *who, const CallerOrder &order, Node *root, const void *key, Side side,
               Path *path, Node **found) {
    int result = 0;
    for (Node *node = root; node != nullptr; node = child(node, sideFrom(result))) {
        if (!push(path, node)) return noRoom(who, path);
        result = order(node, key);
        if (result == 0) break;
        if (result == VexHashTreeCompareFailed) {
            path->depth = 0;
            const int err = comparisonError();
            return VEX_FAIL_AS(who, err, err, Outcome::kError, "unable to compare tree nodes: %m");
        }
    }
    if (path->depth == 0) return Outcome::kAbsent;
    const bool beyond = side == kRight ? result > 0 : result < 0;
    if (!beyond) return step(who, side, path, found);
    *found = path->nodes[path->depth - 1];
    return Outcome::kFound;
}

}  // namespace

Outcome findFailed() {
    const int err = comparisonError();
    return VEX_FAIL_AS("VexHashTreeNodeFind", err, err, Outcome::kError,
                       "unable to compare nodes: %m");
}

Outcome findWithPath(const CallerOrder &order, Node *root, const void *key, Path *path,
                     Node **found) {
    path->depth = 0;
    Outcome outcome = Outcome::kAbsent;
    for (Node *node = root; node != nullptr;) {
        if (!push(path, node)) return noRoom("VexHashTreeNodeFind", path);
        const int result = order(node, key);
        if (result == 0) {
            *found = node;
            return Outcome::kFound;
        }
        if (result == VexHashTreeCompareFailed) {
            outcome = findFailed();
            break;
        }
        node = child(node, sideFrom(result));
    }
    path->depth = 0;
    return outcome;
}

Outcome outermost(const char *who, Node *root, Side side, Path *path, Node **found) {
    if (root == nullptr) return Outcome::kAbsent;
    if (path != nullptr) return descendTo(who, root, side, path, found);
    for (Node *node = root; node != nullptr; node = child(node, side)) *found = node;
    return Outcome::kFound;
}

Outcome neighbour(const char *who, const CallerOrder &order, Node *root, const void *key, Side side,
                  Path *path, Node **found) {
    return path->depth != 0 ? step(who, side, path, found)
                            : search(who, order, root, key, side, path, found);
}

}  // namespace vex::tree

namespace {

using namespace vex::tree;

/// What the node functions return: the node, or null with ENOENT where there is none.
Node *result(Outcome outcome, Node *found) {
    if (outcome == Outcome::kAbsent) errno = ENOENT;
    return outcome == Outcome::kFound ? found : nullptr;
}

Node *stepFrom(const char *who, Node *root, Node *key, const CallerOrder &order, Side side,
               Path *path) {
    if (key == nullptr || order.compare == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    Path own;
    if (path == nullptr) {
        own.depth = 0;
        path = &own;
    }
    Node *found = nullptr;
    const Outcome outcome = neighbour(who, order, root, dataOf(key), side, path, &found);
    return result(outcome, found);
}

}  // namespace

void *VexHashTreeNodeGetNodeData(VexHashTreeNode *node) {
    return node != nullptr ? dataOf(node) : VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
}

VexHashTreeNode *VexHashTreeNodeFind(VexHashTreeNode *root, VexHashTreeNode *key,
                                     VexHashTreeCompare compare, void *user,
                                     VexHashTreePath *path) {
    if (key == nullptr || compare == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    const CallerOrder order{compare, user};
    Node *found = nullptr;
    const Outcome outcome = path != nullptr ? findWithPath(order, root, dataOf(key), path, &found)
                                            : find(order, root, dataOf(key), &found);
    return result(outcome, found);
}

VexHashTreeNode *VexHashTreeNodeFirst(VexHashTreeNode *root, VexHashTreePath *path) {
    Node *found = nullptr;
    const Outcome outcome = outermost(__func__, root, kLeft, path, &found);
    return result(outcome, found);
}

VexHashTreeNode *VexHashTreeNodeLast(VexHashTreeNode *root, VexHashTreePath *path) {
    Node *found = nullptr;
    const Outcome outcome = outermost(__func__, root, kRight, path, &found);
    return result(outcome, found);
}

VexHashTreeNode *VexHashTreeNodeNext(VexHashTreeNode *root, VexHashTreeNode *key,
                                     VexHashTreeCompare compare, void *user,
                                     VexHashTreePath *path) {
    return stepFrom(__func__, root, key, {compare, user}, kRight, path);
}

VexHashTreeNode *VexHashTreeNodePrev(VexHashTreeNode *root, VexHashTreeNode *key,
                                     VexHashTreeCompare compare, void *user,
                                     VexHashTreePath *path) {
    return stepFrom(__func__, root, key, {compare, user}, kLeft, path);
}

int VexHashTreeNodeHasChild(VexHashTreeNode *node, VexHashTreeNode *child) {
    if (node == nullptr || child == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return node->left == child || node->right == child ? 1 : 0;
}
