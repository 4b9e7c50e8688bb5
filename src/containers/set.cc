// A set of pointers over the hash tree. The set's own order and hash see the objects, the tree's
// see the records that hold the pointers.
#include <stdlib.h>

#include <cstring>

#include <vex/set.h>

#include "containers/hash_tree_operations.h"
#include "log/report.h"

static_assert(sizeof(VexSet) == 48);

namespace {

using namespace vex::tree;

constexpr uint64_t kSlabSize = 8192;
constexpr uint64_t kObjectsPerBucket = 16;
constexpr uint32_t kMostBits = 24;

void *objectIn(const void *record) {
    void *object;
    memcpy(&object, record, sizeof object);  // records may lie at odd addresses
    return object;
}

/// The top bits of the caller's hash, as many as the tree has: its mask keeps them all.
uint64_t hashRecord(void *user, const void *record) {
    const auto *const set = static_cast<const VexSet *>(user);
    if (set->hash == nullptr) return 0;
    const uint32_t hash = set->hash(set->user, objectIn(record));
    return hash >> ((32 - set->tree->bits) % 32);
}

int compareRecords(void *user, const void *a, const void *b) {
    const auto *const set = static_cast<const VexSet *>(user);
    return set->compare(set->user, objectIn(a), objectIn(b));
}

/// The same for the set's own calls: without the way through the tree's functions, which serve
/// where a slab is wanted first, and with the way on from a node asked for while the comparison
/// waits for the object behind its pointer.
struct ObjectKeys : CallerKeys {
    explicit ObjectKeys(const VexHashTree *keys_of) : CallerKeys(keys_of), set(keys_of->user) {}
    uint64_t hash(const void *record) const { return hashRecord(set, record); }
    int operator()(VexHashTreeNode *node, const void *record) const {
        prefetchNode(node->left, node, 1);
        prefetchNode(node->right, node, 1);
        return compareRecords(set, dataOf(node), record);
    }
    void *set;
};

uint32_t bitsFor(uint64_t max_objects, bool hashed) {
    if (!hashed) return 0;
    uint32_t bits = 0;
    while (bits < kMostBits && max_objects / kObjectsPerBucket > uint64_t{1} << bits) ++bits;
    return bits;
}

bool isUsable(const VexSet *set) {
    return set != nullptr && set->tree != nullptr && set->iterator != nullptr &&
           set->compare != nullptr;
}

/// True when the set can be used and the object is one; else false after a line under @p who.
bool accepts(const char *who, const VexSet *set, const void *object) {
    if (isUsable(set) && object != nullptr) return true;
    return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
}

/// What a call of the tree that gives 1 with a record, 0 without one and -1 after its own report
/// comes to.
void *objectFrom(const char *who, int result, void *object) {
    if (result == 1) return object;
    if (result == 0) errno = ENOENT;
    if (result == 0 || result == -1) return nullptr;
    return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "unexpected situation: %m");
}

}  // namespace

size_t VexSetSize(void) {
    return sizeof(VexSet);
}

VexSet *VexSetInit(VexSet *set, VexSetCompare compare, VexSetHash hash, void *user,
                   uint64_t maxObjects) {
    if (set == nullptr || compare == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    *set = {nullptr, nullptr, compare, hash, user, maxObjects};
    set->tree = VexHashTreeNew(bitsFor(maxObjects, hash != nullptr), sizeof(void *), compareRecords,
                               hashRecord, set, kSlabSize);
    if (set->tree == nullptr) return VEX_FAIL(errno, nullptr, "unable to create hashtree: %m");
    set->iterator = VexHashTreeIteratorNewBegin(set->tree);
    if (set->iterator != nullptr) return set;
    const int err = errno;
    VexSetDeinit(set);
    return VEX_FAIL(err, nullptr, "unable to create iterator: %m");
}

VexSet *VexSetNew(VexSetCompare compare, VexSetHash hash, void *user, uint64_t maxObjects) {
    auto *const set = static_cast<VexSet *>(malloc(sizeof(VexSet)));
    if (set == nullptr) return VEX_FAIL(errno, nullptr, "could not allocate memory");
    if (VexSetInit(set, compare, hash, user, maxObjects) != nullptr) return set;
    free(set);
    return nullptr;
}

void VexSetDeinit(VexSet *set) {
    if (set == nullptr) return;
    VexHashTreeIteratorDelete(&set->iterator);
    VexHashTreeDelete(&set->tree);
}

void VexSetDelete(VexSet **set) {
    if (set == nullptr) return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    VexSetDeinit(*set);
    free(*set);
    *set = nullptr;
}

int VexSetValidate(VexSet *set) {
    if (set == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    if (isUsable(set)) return 1;
    errno = EINVAL;
    return 0;
}

uint64_t VexSetGetNumObjects(VexSet *set) {
    if (!isUsable(set)) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    return VexHashTreeGetNumUsedNodes(set->tree);
}

void *VexSetFindOrInsert(VexSet *set, void *object, int *inserted) {
    if (!accepts(__func__, set, object)) return nullptr;
    const uint64_t used = VexHashTreeGetNumUsedNodes(set->tree);
    if (used >= set->maxObjects)
        return VEX_FAIL(ENOBUFS, nullptr,
                        "number of used nodes (%lu) greater than max objects (%lu): %m", used,
                        set->maxObjects);
    void *stored = object;
    const int result = hasBlock(set->tree) ? findOrInsert<ObjectKeys>(set->tree, &object, &stored)
                                           : VexHashTreeFindOrInsert(set->tree, &object, &stored);
    if (result != 0 && result != 1) return objectFrom(__func__, result, nullptr);
    if (inserted != nullptr) *inserted = result;
    return stored;
}

void *VexSetFind(VexSet *set, const void *object) {
    if (!accepts(__func__, set, object)) return nullptr;
    void *found = nullptr;
    const int result = hasBlock(set->tree) ? lookUp<ObjectKeys>(set->tree, &object, &found)
                                           : VexHashTreeGet(set->tree, &object, &found);
    return objectFrom(__func__, result, found);
}

void *VexSetRemove(VexSet *set, const void *object) {
    if (!accepts(__func__, set, object)) return nullptr;
    void *removed = nullptr;
    const int result = hasBlock(set->tree) ? removeEqual<ObjectKeys>(set->tree, &object, &removed)
                                           : VexHashTreeRemove(set->tree, &object, &removed);
    return objectFrom(__func__, result, removed);
}

void *VexSetGetFirstObject(VexSet *set) {
    if (!accepts(__func__, set, set)) return nullptr;
    void *object = nullptr;
    const int result = VexHashTreeIteratorFirst(set->iterator, &object);
    return objectFrom(__func__, result, object);
}

void *VexSetGetNextObject(VexSet *set) {
    if (!accepts(__func__, set, set)) return nullptr;
    void *object = nullptr;
    const int result = VexHashTreeIteratorNext(set->iterator, &object);
    return objectFrom(__func__, result, object);
}

int VexSetReset(VexSet *set) {
    if (!accepts(__func__, set, set)) return -1;
    if (VexHashTreeIteratorBegin(set->iterator) != 0)
        return VEX_FAIL(errno, -1, "unable to get beginning pointer");
    return VexHashTreeEmpty(set->tree);
}
