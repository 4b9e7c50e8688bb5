// Moving all nodes to a table of another size. Nodes come in the order of the slabs, their buckets
// in any: a batch of buckets, then of the nodes there, is asked for before it is used.
#include "containers/hash_tree_operations.h"

namespace {

using namespace vex::tree;

struct Move {
    Node *node;
    Spot spot;
};

constexpr size_t kBatch = 32;

/// Takes the next nodes of the walk, @p node first; returns how many and leaves @p node at the one
/// after them.
template <typename Keys>
size_t collect(Keys keys, VexHashTree *tree, preallocator_iterator *it, Node **node, Move *batch) {
    size_t size = 0;
    for (; size < kBatch && *node != nullptr; ++size) {
        batch[size] = {*node, spotOf(keys, tree, dataOf(*node))};
        __builtin_prefetch(batch[size].spot.root, 1);
        __builtin_prefetch(batch[size].spot.note, 1);
        *node = static_cast<Node *>(preallocator_iterator_next(it));
    }
    return size;
}

/// Links the node in its new bucket; false when that held its equal, whose place it has taken, or
/// cannot be searched.
template <typename Keys>
bool relink(Keys keys, const Move &move) {
    Outcome outcome = Outcome::kAbsent;
    if (move.spot.isEmpty()) {
        makeLeaf(move.node);
        *move.spot.root = move.node;
    } else {
        Place place;
        outcome = descend(keys, move.spot.root, dataOf(move.node), nullptr, &place);
        if (outcome == Outcome::kError)
            (void)insertFailed("VexHashTreeNodeReplaceOrInsert", nullptr);
        else if (outcome == Outcome::kFound)
            (void)substitute(place.slot, move.node, nullptr);
        else
            attach(place, move.node, nullptr);
    }
    if (outcome != Outcome::kError) move.spot.noteInsertion();
    return outcome == Outcome::kAbsent;
}

/// Links all nodes into the new table; false as relink().
template <typename Keys>
bool relinkAll(Keys keys, VexHashTree *tree) {
    preallocator_iterator it;
    Move batch[kBatch];
    auto *node = static_cast<Node *>(preallocator_iterator_first(&it, tree->allocator));
    while (const size_t size = collect(keys, tree, &it, &node, batch)) {
        for (size_t i = 0; i < size; ++i)
            if (!batch[i].spot.isEmpty()) prefetchNode(*batch[i].spot.root, tree, 2);
        for (size_t i = 0; i < size; ++i)
            if (!relink(keys, batch[i])) return false;
    }
    return true;
}

}  // namespace

int VexHashTreeSetBits(VexHashTree *tree, uint32_t bits) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (bits > kMaxBits) return VEX_FAIL(EINVAL, -1, "invalid parameter");
    if (bits == tree->bits) return 0;
    Node **const buckets = newBuckets(bits);
    if (buckets == nullptr) return VEX_FAIL(errno, -1, "could not allocate memory");
    freeBuckets(tree->buckets, tree->bits);
    tree->buckets = buckets;
    tree->bits = bits;
    ++tree->layout;
    setDigestMask(tree);
    const bool linked = tree->digestMask != 0 ? relinkAll(DigestKeys(tree), tree)
                                              : relinkAll(CallerKeys(tree), tree);
    return linked ? 0 : VEX_FAIL(EINVAL, -1, "failed to replace or insert node");
}
