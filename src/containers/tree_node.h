// Nodes, links, paths and rotations of one bucket's tree.
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

/// Copies the 16 bytes @p at bytes behind either address.
inline void copyWide(void *to, const void *from, size_t at) {
    *reinterpret_cast<Wide *>(static_cast<char *>(to) + at) =
        *reinterpret_cast<const Wide *>(static_cast<const char *>(from) + at);
}

/// Copies a record in a few moves, which may overlap, and without a call, for which its caller
/// would have to save registers. A digest with a few words behind it is what large trees hold, so
/// these sizes are asked for first.
inline void copyRecord(void *to, const void *from, size_t size) {
    auto *const target = static_cast<char *>(to);
    const auto *const source = static_cast<const char *>(from);
    const auto wide = [&](size_t at) { copyWide(target, source, at); };
    const auto word = [&](size_t at) {
        *reinterpret_cast<Word *>(target + at) = *reinterpret_cast<const Word *>(source + at);
    };
    if (size > 32 && size <= 48) {
        wide(0);
        wide(16);
        wide(size - 16);
    } else if (size >= 16) {
        for (size_t at = 0; at < size - 16; at += 16) wide(at);
        wide(size - 16);
    } else if (size >= 8) {
        word(0);
        word(size - 8);
    } else {
        for (size_t at = 0; at < size; ++at) target[at] = source[at];
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

enum class Outcome { kError = -1, kAbsent = 0, kFound = 1 };

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

}  // namespace vex::tree

#endif
