// Insertion into one bucket's height-balanced tree. Only the nodes below the deepest unbalanced one
// change height, so that node is remembered on the way down and is the only place that may rotate.
#include <initializer_list>

#include "containers/tree_search.h"
#include "log/report.h"

namespace vex::tree {
namespace {

/// Brings a path that ran through @p top, turned into @p new_top, down to the new node again.
void mendPath(Path *path, uint64_t depth, Node *top, Node *new_top) {
    Node **const at = path->nodes + depth;
    if (at[1] == new_top) {  // a single rotation took the old top off the way
        (void)VexHashTreePathRemove(path, depth);
        return;
    }
    // a double rotation: the grandchild is on top, and below it, if the way goes on, the old top or
    // its child
    Node *const below = at[1];
    at[0] = new_top;
    if (path->depth == depth + 3) {
        path->depth = depth + 1;  // the grandchild is the new node itself
        return;
    }
    Node *const next = at[3];
    at[1] = VexHashTreeNodeHasChild(top, next) == 1 ? top : below;
    (void)VexHashTreePathRemove(path, depth + 2);
}

}  // namespace

Outcome probeFailed(const char *text, int err) {
    return VEX_FAIL_AS("VexHashTreeNodeProbe", err, err, Outcome::kError, "%s: %m", text);
}

void attach(const Place &place, Node *node, Path *path) {
    makeLeaf(node);
    *place.slot = node;
    if (path != nullptr) path->nodes[path->depth++] = node;  // the way down left room for it
    uint64_t sides = place.sides;
    Node *const top = *place.pivot;
    for (Node *at = top; at != node; sides >>= 1) {
        const auto side = static_cast<Side>(sides & 1);
        at->balance = static_cast<int8_t>(at->balance + lean(side));
        at = child(at, side);
    }
    if (top->balance >= -1 && top->balance <= 1) return;
    Node *const new_top = rotate(top, top->balance > 0 ? kRight : kLeft);
    *place.pivot = new_top;
    if (path != nullptr) mendPath(path, place.pivot_depth, top, new_top);
}

Node *substitute(Link *slot, Node *node, Path *path) {
    Node *const old = *slot;
    *linkOf(node, kLeft) = child(old, kLeft);
    *linkOf(node, kRight) = child(old, kRight);
    node->balance = old->balance;
    *slot = node;
    if (path != nullptr) path->nodes[path->depth - 1] = node;
    return old;
}

}  // namespace vex::tree

namespace {

using namespace vex::tree;

bool isNull(const char *who, VexHashTreeNode **root, VexHashTreeNode *node,
            VexHashTreeCompare compare) {
    if (root != nullptr && node != nullptr && compare != nullptr) return false;
    return VEX_FAIL_AS(who, EINVAL, EINVAL, true, "invalid NULL parameter");
}

/// Finds the place of the node's data and links the node there when it is free.
Outcome probe(VexHashTreeNode **root, Node *node, const CallerOrder &order, int *inserted,
              Path *path, Place *place) {
    const Outcome outcome =
        descend(order, reinterpret_cast<Link *>(root), dataOf(node), path, place);
    if (outcome == Outcome::kError) return outcome;
    if (outcome == Outcome::kAbsent) attach(*place, node, path);
    if (inserted != nullptr) *inserted = outcome == Outcome::kAbsent ? 1 : 0;
    return outcome;
}

/// The link to a node just attached: a double rotation has made it the pivot's new top or one of
/// that one's grandchildren.
Link *currentLink(const Place &place, Node *node) {
    if (*place.slot == node) return place.slot;
    if (*place.pivot == node) return place.pivot;
    for (const Side first : {kLeft, kRight})
        for (const Side second : {kLeft, kRight})
            if (Link *const link = linkOf(child(*place.pivot, first), second); *link == node)
                return link;
    return place.slot;
}

}  // namespace

VexHashTreeNode **VexHashTreeNodeProbe(VexHashTreeNode **root, VexHashTreeNode *node,
                                       VexHashTreeCompare compare, void *user, int *inserted,
                                       VexHashTreePath *path) {
    if (isNull(__func__, root, node, compare)) return nullptr;
    Place place;
    const Outcome outcome = probe(root, node, {compare, user}, inserted, path, &place);
    if (outcome == Outcome::kError) return nullptr;
    Link *const slot = outcome == Outcome::kAbsent ? currentLink(place, node) : place.slot;
    return reinterpret_cast<VexHashTreeNode **>(slot);
}

VexHashTreeNode *VexHashTreeNodeFindOrInsert(VexHashTreeNode **root, VexHashTreeNode *node,
                                             VexHashTreeCompare compare, void *user, int *inserted,
                                             VexHashTreePath *path) {
    if (isNull(__func__, root, node, compare)) return nullptr;
    Place place;
    switch (probe(root, node, {compare, user}, inserted, path, &place)) {
        case Outcome::kFound:
            return *place.slot;
        case Outcome::kAbsent:
            return node;
        default:
            return VEX_FAIL(errno, nullptr, "unable to probe tree path: %m");
    }
}

VexHashTreeNode *VexHashTreeNodeReplaceOrInsert(VexHashTreeNode **root, VexHashTreeNode *node,
                                                VexHashTreeCompare compare, void *user,
                                                int *inserted, VexHashTreePath *path) {
    if (isNull(__func__, root, node, compare)) return nullptr;
    Place place;
    switch (probe(root, node, {compare, user}, inserted, path, &place)) {
        case Outcome::kFound:
            return substitute(place.slot, node, path);
        case Outcome::kAbsent:
            return node;
        default:
            return VEX_FAIL(errno, nullptr, "unable to probe tree path: %m");
    }
}
