// Searches in one bucket's tree, and the insertions and removals that begin with one. What compares
// is a template argument, so that a comparison known to the compiler costs no call.
#ifndef VEX_CONTAINERS_TREE_SEARCH_H
#define VEX_CONTAINERS_TREE_SEARCH_H

#include "containers/tree_node.h"

namespace vex::tree {

/// The caller's comparison of a stored record with a given one.
struct CallerOrder {
    VexHashTreeCompare compare;
    void *user;
    int operator()(Node *node, const void *key) const { return compare(user, dataOf(node), key); }
};

/// errno for a comparison that failed: what it set itself. An ENOENT left over from an earlier
/// look-up must not pass for "no such node".
inline int comparisonError() {
    return errno == 0 || errno == ENOENT ? EINVAL : errno;
}

/// Which way to go from a node that compared so.
inline Side sideFrom(int result) {
    return result < 0 ? kRight : kLeft;
}

/// Where a descent ended: at an equal node, or at the link where a new one belongs.
struct Place {
    Link *slot;
    Link *pivot;           ///< link to the deepest node on the way with a balance other than 0
    uint64_t pivot_depth;  ///< its index in the path
    uint64_t sides;        ///< the ways taken from there, the first in the lowest bit
};

/// The links from the root down, each with the way taken at the node it points to.
class Trail {
public:
    /// False when the tree is higher than any balanced tree: its links are damaged.
    bool push(Link *link, Side side) {
        if (size_ == kMaxHeight) return false;
        links_[size_] = link;
        sides_[size_++] = side;
        return true;
    }
    unsigned size() const { return size_; }
    void relink(unsigned at, Link *link) { links_[at] = link; }
    /// The subtree on the last entry's side has become one lower: mends what is above it.
    void shrink();

private:
    Link *links_[kMaxHeight];
    Side sides_[kMaxHeight];
    unsigned size_ = 0;
};

/// Report, as the function that callers know them from, why a search ended early.
Outcome probeFailed(const char *text, int err);
Outcome removeFailed(const char *text, int err);
Outcome findFailed();

/// Descends to the place of @p key, pushing every visited node on a path that is not null.
template <typename Order>
Outcome descend(Order order, Link *root, const void *key, Path *path, Place *place) {
    *place = {root, root, path != nullptr ? path->depth : 0, 0};
    unsigned steps = 0;
    while (Node *const node = *place->slot) {
        if (path != nullptr && !push(path, node))
            return probeFailed("unable to push tree path", errno);
        const int result = order(node, key);
        if (result == 0) return Outcome::kFound;
        if (result == VexHashTreeCompareFailed)
            return probeFailed("bad comparission value", comparisonError());
        if (node->balance != 0) {
            place->pivot = place->slot;
            place->pivot_depth = path != nullptr ? path->depth - 1 : 0;
            place->sides = 0;
            steps = 0;
        }
        const Side side = sideFrom(result);
        place->sides |= uint64_t{side} << steps++;
        place->slot = linkOf(node, side);
    }
    if (path != nullptr && path->depth >= VexHashTreePathMaxDepth)
        return probeFailed("unable to push tree path", ENOBUFS);
    return Outcome::kAbsent;
}

/// Links @p node at a place where a descent found nothing, and keeps tree and path in shape.
void attach(const Place &place, Node *node, Path *path);
/// Puts @p node where its equal stands; returns that one.
Node *substitute(Link *slot, Node *node, Path *path);

/// Puts the in-order successor into the place of the node at @p slot, which has a right child, and
/// mends the tree; false for a damaged one.
bool replaceBySuccessor(Trail *trail, Link *slot);

/// Unlinks the equal of @p key.
template <typename Order>
Outcome detach(Order order, Link *root, const void *key, Node **removed) {
    Trail trail;
    Link *slot = root;
    for (;;) {
        Node *const node = *slot;
        if (node == nullptr) return Outcome::kAbsent;
        const int result = order(node, key);
        if (result == 0) break;
        if (result == VexHashTreeCompareFailed)
            return removeFailed("bad comparison result", comparisonError());
        const Side side = sideFrom(result);
        if (!trail.push(slot, side)) return removeFailed("unable to push tree path", ENOBUFS);
        slot = linkOf(node, side);
    }
    Node *const node = *slot;
    if (child(node, kRight) == nullptr) {
        *slot = child(node, kLeft);
        if (trail.size() > 0) trail.shrink();
    } else if (!replaceBySuccessor(&trail, slot)) {
        return removeFailed("unable to push tree path", ENOBUFS);
    }
    *removed = node;
    return Outcome::kFound;
}

/// The equal of @p key, without a path. Small and in one piece: look-ups that do not depend on each
/// other overlap only as far as the processor can see ahead of the memory it waits for.
template <typename Order>
Outcome find(Order order, Node *root, const void *key, Node **found) {
    for (Node *node = root; node != nullptr;) {
        const int result = order(node, key);
        if (result == 0) {
            *found = node;
            return Outcome::kFound;
        }
        if (result == VexHashTreeCompareFailed) return findFailed();
        node = child(node, sideFrom(result));
    }
    return Outcome::kAbsent;
}

/// The equal of @p key, with the path left at it, or empty. Reports errors as VexHashTreeNodeFind.
Outcome findWithPath(const CallerOrder &order, Node *root, const void *key, Path *path,
                     Node **found);
/// The outermost node on @p side; absent for an empty tree. The path, when given, must have been
/// emptied.
Outcome outermost(const char *who, Node *root, Side side, Path *path, Node **found);
/// The neighbour on @p side of the node that the path ends at, or of @p key when the path is empty.
/// The path ends at the neighbour, or is empty when this bucket has none.
Outcome neighbour(const char *who, const CallerOrder &order, Node *root, const void *key, Side side,
                  Path *path, Node **found);

}  // namespace vex::tree

#endif
