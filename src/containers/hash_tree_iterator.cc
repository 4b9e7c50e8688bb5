// Iterators: a copy of the record, the path to it, and the tree's counters that tell whether the
// path still holds.
#include "containers/hash_tree_steps.h"

static_assert(offsetof(VexHashTreeIterator, path) == 16 &&
              offsetof(VexHashTreeIterator, state) == 32 && sizeof(VexHashTreeIterator) == 48);

namespace {

using namespace vex::tree;

enum State : uint32_t { kOnRecord = 0, kBeforeFirst = 1, kPastLast = 2 };

bool isNull(const char *who, const VexHashTreeIterator *it) {
    if (it != nullptr && it->tree != nullptr && it->path != nullptr) return false;
    return VEX_FAIL_AS(who, EINVAL, EINVAL, true, "invalid NULL parameter");
}

/// True when the tree has not changed since the position was taken. Insertions do not count as
/// deletes, but a rotation makes a path wrong all the same, hence the second counter.
bool isCurrent(const VexHashTreeIterator *it) {
    return it->deletes == it->tree->numDeletes && it->layout == it->tree->layout;
}

/// Takes the position that the path describes.
int settle(VexHashTreeIterator *it, uint64_t bucket, Node *node, void *out) {
    it->state = kOnRecord;
    it->bucket = static_cast<uint32_t>(bucket);
    it->deletes = it->tree->numDeletes;
    it->layout = it->tree->layout;
    giveRecord(it->tree, node, it->buffer);
    giveRecord(it->tree, node, out);
    return 1;
}

int goToEnd(const char *who, VexHashTreeIterator *it, Side side, void *out) {
    if (isNull(who, it)) return -1;
    it->path->depth = 0;
    uint64_t bucket = 0;
    Node *node = nullptr;
    const Outcome outcome = endOfTree(who, it->tree, side, &bucket, it->path, &node);
    return outcome == Outcome::kFound ? settle(it, bucket, node, out) : static_cast<int>(outcome);
}

uint64_t bucketOfKey(const VexHashTree *tree, const void *key) {
    return bucketOf(tree, tree->hash(tree->user, key));
}

/// Leaves the path at the record that equals @p key.
int seek(VexHashTreeIterator *it, const void *key, void *out) {
    const int result = VexHashTreeFindNode(it->tree, key, nullptr, it->path);
    if (result != 1) return result;
    Node *const node = it->path->nodes[it->path->depth - 1];
    return settle(it, bucketOfKey(it->tree, key), node, out);
}

int stepTo(const char *who, VexHashTreeIterator *it, Side side, void *out) {
    if (isNull(who, it)) return -1;
    const uint32_t end = side == kRight ? kPastLast : kBeforeFirst;
    if (it->state == end) return 0;
    if (it->state != kOnRecord) return goToEnd(who, it, opposite(side), out);
    uint64_t bucket = it->bucket;
    if (!isCurrent(it)) {
        it->path->depth = 0;
        bucket = bucketOfKey(it->tree, it->buffer);
    }
    if (!hasBlock(it->tree) && !addBlocks(who, it->tree)) return -1;
    Node *node = nullptr;
    const Outcome outcome = stepInTree(who, it->tree, &bucket, it->buffer, side, it->path, &node);
    if (outcome == Outcome::kFound) return settle(it, bucket, node, out);
    if (outcome == Outcome::kAbsent) it->state = end;
    return static_cast<int>(outcome);
}

}  // namespace

int VexHashTreeIteratorBegin(VexHashTreeIterator *it) {
    if (it == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    it->state = kBeforeFirst;
    return 0;
}

int VexHashTreeIteratorEnd(VexHashTreeIterator *it) {
    if (it == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    it->state = kPastLast;
    return 0;
}

int VexHashTreeIteratorFirst(VexHashTreeIterator *it, void *out) {
    return goToEnd(__func__, it, kLeft, out);
}

int VexHashTreeIteratorLast(VexHashTreeIterator *it, void *out) {
    return goToEnd(__func__, it, kRight, out);
}

int VexHashTreeIteratorFind(VexHashTreeIterator *it, const void *key, void *out) {
    return isNull(__func__, it) ? -1 : seek(it, key, out);
}

int VexHashTreeIteratorNext(VexHashTreeIterator *it, void *out) {
    return stepTo(__func__, it, kRight, out);
}

int VexHashTreeIteratorPrev(VexHashTreeIterator *it, void *out) {
    return stepTo(__func__, it, kLeft, out);
}

int VexHashTreeIteratorCurrent(VexHashTreeIterator *it, void *out) {
    if (isNull(__func__, it)) return -1;
    if (it->state != kOnRecord) return 0;
    if (!isCurrent(it) || it->path->depth == 0) return seek(it, it->buffer, out);
    return settle(it, it->bucket, it->path->nodes[it->path->depth - 1], out);
}
