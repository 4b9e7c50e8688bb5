// Removal from one bucket's height-balanced tree: the way down is kept on a stack, and balances are
// mended upward until a subtree keeps its height.
#include "containers/tree_node.h"
#include "log/report.h"

namespace vex::tree {
namespace {

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
    void shrink() {
        while (size_ > 0) {
            Link *const link = links_[--size_];
            Node *const node = *link;
            const int8_t heavy = lean(opposite(sides_[size_]));
            if (node->balance == 0) {  // was even: the height stays
                node->balance = heavy;
                return;
            }
            if (node->balance != heavy) {
                node->balance = 0;
                continue;
            }
            *link = rotate(node, opposite(sides_[size_]));
            if ((*link)->balance != 0) return;
        }
    }

private:
    Link *links_[kMaxHeight];
    Side sides_[kMaxHeight];
    unsigned size_ = 0;
};

/// Puts the in-order successor into the place of @p node, which has a right child.
bool replaceBySuccessor(Trail *trail, Link *slot, Node *node) {
    const unsigned at = trail->size();
    if (!trail->push(slot, kRight)) return false;
    Link *link = linkOf(node, kRight);
    while (child(*link, kLeft) != nullptr) {
        if (!trail->push(link, kLeft)) return false;
        link = linkOf(*link, kLeft);
    }
    Node *const successor = *link;
    *link = child(successor, kRight);
    *linkOf(successor, kLeft) = child(node, kLeft);
    *linkOf(successor, kRight) = child(node, kRight);
    successor->balance = node->balance;
    *slot = successor;
    // the way to the right subtree now begins at the successor
    if (trail->size() > at + 1) trail->relink(at + 1, linkOf(successor, kRight));
    return true;
}

Outcome failed(const char *text, int err) {
    return VEX_FAIL_AS("VexHashTreeNodeRemove", err, err, Outcome::kError, "%s: %m", text);
}

}  // namespace

Outcome detach(Order order, Link *root, const void *key, Node **removed) {
    Trail trail;
    Link *slot = root;
    for (;;) {
        Node *const node = *slot;
        if (node == nullptr) return Outcome::kAbsent;
        const int result = order(node, key);
        if (result == 0) break;
        if (result == VexHashTreeCompareFailed)
            return failed("bad comparison result", comparisonError());
        const Side side = result < 0 ? kRight : kLeft;
        if (!trail.push(slot, side)) return failed("unable to push tree path", ENOBUFS);
        slot = linkOf(node, side);
    }
    Node *const node = *slot;
    if (child(node, kRight) == nullptr)
        *slot = child(node, kLeft);
    else if (!replaceBySuccessor(&trail, slot, node))
        return failed("unable to push tree path", ENOBUFS);
    trail.shrink();
    *removed = node;
    return Outcome::kFound;
}

}  // namespace vex::tree

VexHashTreeNode *VexHashTreeNodeRemove(VexHashTreeNode **root, VexHashTreeNode *key,
                                       VexHashTreeCompare compare, void *user) {
    using namespace vex::tree;
    if (root == nullptr || key == nullptr || compare == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    Node *removed = nullptr;
    if (detach({compare, user}, reinterpret_cast<Link *>(root), dataOf(key), &removed) ==
        Outcome::kAbsent)
        errno = ENOENT;
    return removed;
}
