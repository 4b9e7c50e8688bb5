// Removal from one bucket's height-balanced tree: the way down is kept on a stack, and balances are
// mended upward until a subtree keeps its height.
#include "containers/tree_search.h"
#include "log/report.h"

namespace vex::tree {

void Trail::shrink() {
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

bool replaceBySuccessor(Trail *trail, Link *slot) {
    Node *const node = *slot;
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
    trail->shrink();
    return true;
}

Outcome removeFailed(const char *text, int err) {
    return VEX_FAIL_AS("VexHashTreeNodeRemove", err, err, Outcome::kError, "%s: %m", text);
}

}  // namespace vex::tree

VexHashTreeNode *VexHashTreeNodeRemove(VexHashTreeNode **root, VexHashTreeNode *key,
                                       VexHashTreeCompare compare, void *user) {
    using namespace vex::tree;
    if (root == nullptr || key == nullptr || compare == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    Node *removed = nullptr;
    const CallerOrder order{compare, user};
    if (detach(order, reinterpret_cast<Link *>(root), dataOf(key), &removed) == Outcome::kAbsent)
        errno = ENOENT;
    return removed;
}
