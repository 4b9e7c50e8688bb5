// Nodes, links and rotations of one bucket's tree, shared by search, insertion and removal.
#ifndef VEX_CONTAINERS_TREE_NODE_H
#define VEX_CONTAINERS_TREE_NODE_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vex/hash_tree.h>

namespace vex::tree {

using Node = VexHashTreeNode;
using Path = VexHashTreePath;
/// A bucket's root or one of a node's two links, which may lie at an odd address.
typedef Node *Link __attribute__((aligned(1), may_alias));

/// Which way: the left link leads to records before a node, the right one to those after it.
enum Side : unsigned { kLeft = 0, kRight = 1 };
inline Side opposite(Side side) {
    return static_cast<Side>(1U - side);
}
/// The balance of a node that is higher on @p side.
inline int8_t lean(Side side) {
    return side == kRight ? 1 : -1;
}

/// Higher than any balanced tree of nodes in a 64-bit address space.
inline constexpr unsigned kMaxHeight = 64;

inline Link *linkOf(Node *node, Side side) {
    return reinterpret_cast<Link *>(node) + side;
}
inline Node *child(Node *node, Side side) {
    return *linkOf(node, side);
}
/// Takes what a fresh or used node has in its links off it.
inline void makeLeaf(Node *node) {
    *linkOf(node, kLeft) = nullptr;
    *linkOf(node, kRight) = nullptr;
    node->balance = 0;
}
inline void *dataOf(Node *node) {
    return reinterpret_cast<char *>(node) + VexHashTreeNodeDataOffset;
}

/// What one move copies, from and to any address.
typedef long long Wide __attribute__((vector_size(16), aligned(1), may_alias));
typedef uint64_t Word __attribute__((aligned(1), may_alias));

/// Copies a record; the common sizes take a few moves, which may overlap.
inline void copyRecord(void *to, const void *from, size_t size) {
    const auto word = [&](size_t at) {
        *reinterpret_cast<Word *>(static_cast<char *>(to) + at) =
            *reinterpret_cast<const Word *>(static_cast<const char *>(from) + at);
    };
    const auto wide = [&](size_t at) {
        *reinterpret_cast<Wide *>(static_cast<char *>(to) + at) =
            *reinterpret_cast<const Wide *>(static_cast<const char *>(from) + at);
    };
    if (size > 64 || size < 8) {
        memcpy(to, from, size);
    } else if (size < 16) {
        word(0);
        word(size - 8);
    } else {
        wide(0);
        if (size > 32) wide(16);
        if (size > 48) wide(32);
        if (size > 16) wide(size - 16);
    }
}

/// Asks for a node's first line or two, or, since address 0 is not mapped and would cost a vain
/// walk through the page tables, for @p instead. Always inlined: GCC takes a function that only
/// prefetches for one without effects and drops its calls.
[[gnu::always_inline]] inline void prefetchNode(const Node *node, const void *instead, int lines) {
    const char *const at = static_cast<const char *>(node != nullptr ? node : instead);
    __builtin_prefetch(at);
    if (lines > 1) __builtin_prefetch(at + 64);
}

/// The caller's comparison of a stored record with a given one.
struct Order {
    VexHashTreeCompare compare;
    void *user;
    bool far = false;  ///< records are pointers: comparing waits for what they point to
    int operator()(Node *node, const void *key) const {
        if (far) {  // have the way on ready by then
            prefetchNode(child(node, kLeft), node, 1);
            prefetchNode(child(node, kRight), node, 1);
        }
        return compare(user, dataOf(node), key);
    }
};

enum class Outcome { kError = -1, kAbsent = 0, kFound = 1 };

/// errno for a comparison that failed: what it set itself. An ENOENT left over from an earlier
/// look-up must not pass for "no such node".
inline int comparisonError() {
    return errno == 0 || errno == ENOENT ? EINVAL : errno;
}

/// Appends to a path; false when it is full, with the line and errno of VexHashTreePathPush.
inline bool push(Path *path, Node *node) {
    if (path->depth >= VexHashTreePathMaxDepth) return VexHashTreePathPush(path, node) == 0;
    path->nodes[path->depth++] = node;
    return true;
}

/// Turns the tree at @p top, which is two levels higher on @p side, and sets the balances. Returns
/// the new top.
inline Node *rotate(Node *top, Side side) {
    const Side other = opposite(side);
    const int8_t heavy = lean(side);
    Node *const upper = child(top, side);
    if (upper->balance != lean(other)) {
        // even happens in removals only and leaves the height as it was
        const bool even = upper->balance == 0;
        *linkOf(top, side) = child(upper, other);
        *linkOf(upper, other) = top;
        top->balance = even ? heavy : int8_t{0};
        upper->balance = even ? lean(other) : int8_t{0};
        return upper;
    }
    Node *const middle = child(upper, other);
    *linkOf(upper, other) = child(middle, side);
    *linkOf(middle, side) = upper;
    *linkOf(top, side) = child(middle, other);
    *linkOf(middle, other) = top;
    upper->balance = middle->balance == lean(other) ? heavy : int8_t{0};
    top->balance = middle->balance == heavy ? lean(other) : int8_t{0};
    middle->balance = 0;
    return middle;
}

/// Where a descent ended: at an equal node, or at the link where a new one belongs.
struct Place {
    Link *slot;
    Link *pivot;           ///< link to the deepest node on the way with a balance other than 0
    uint64_t pivot_depth;  ///< its index in the path
    uint64_t sides;        ///< the ways taken from there, the first in the lowest bit
};

/// Descends to the place of @p key, pushing every visited node on a path that is not null. Reports
/// errors as VexHashTreeNodeProbe.
Outcome descend(Order order, Link *root, const void *key, Path *path, Place *place);
/// Links @p node at a place where a descent found nothing, and keeps tree and path in shape.
void attach(const Place &place, Node *node, Path *path);
/// Puts @p node where its equal stands; returns that one.
Node *substitute(Link *slot, Node *node, Path *path);
/// Unlinks the equal of @p key. Reports errors as VexHashTreeNodeRemove.
Outcome detach(Order order, Link *root, const void *key, Node **removed);
/// The equal of @p key, with a path that is not null left at it, or empty. Reports errors as
/// VexHashTreeNodeFind.
Outcome find(Order order, Node *root, const void *key, Path *path, Node **found);
/// The line of a search whose comparison failed; errno as comparisonError() has it.
void reportFailedFind();
/// The outermost node on @p side; null for an empty tree. The path must have been emptied; false in
/// @p *ok after a report when it is full.
Outcome outermost(const char *who, Node *root, Side side, Path *path, Node **found);
/// The neighbour on @p side of the node that the path ends at, or of @p key when the path is empty.
/// The path ends at the neighbour, or is empty when this bucket has none.
Outcome neighbour(const char *who, Order order, Node *root, const void *key, Side side, Path *path,
                  Node **found);

}  // namespace vex::tree

#endif
