// Life of a tree, and its figures.
#include "containers/hash_tree.h"

#include <stdlib.h>
#include <sys/mman.h>

#include <algorithm>

#include "base/checked.h"
#include "containers/mapped_memory.h"
#include "log/report.h"

static_assert(sizeof(VexHashTreeNode) == VexHashTreeNodeDataOffset);
static_assert(offsetof(VexHashTree, slabSize) == 8 && offsetof(VexHashTree, compare) == 24 &&
              offsetof(VexHashTree, allocator) == 48 && offsetof(VexHashTree, buckets) == 56 &&
              offsetof(VexHashTree, numDeletes) == 64 && sizeof(VexHashTree) == 80);

namespace vex::tree {
namespace {

/// Bytes of the notes before the bucket pointers, which keep those at their alignment.
uint64_t notesSize(uint32_t bits) {
    return std::max(bucketCount(bits) * sizeof(Note), sizeof(Node *));
}
uint64_t tableSize(uint32_t bits) {
    return notesSize(bits) + bucketCount(bits) * sizeof(Node *);
}
char *tableOf(Node **buckets, uint32_t bits) {
    return reinterpret_cast<char *>(buckets) - notesSize(bits);
}
/// Smaller tables come from malloc.
bool isMapped(uint32_t bits) {
    return tableSize(bits) >= kHugePage;
}

}  // namespace

Node **newBuckets(uint32_t bits) {
    const uint64_t size = tableSize(bits);
    auto *const table = static_cast<char *>(isMapped(bits) ? mapZeroed(size) : calloc(1, size));
    if (table == nullptr) return nullptr;
    auto *const buckets = reinterpret_cast<Node **>(table + notesSize(bits));
    if (emptyNote(bits) != 0) clearBuckets(buckets, bits);
    return buckets;
}

void freeBuckets(Node **buckets, uint32_t bits) {
    if (buckets == nullptr) return;
    if (isMapped(bits))
        (void)munmap(tableOf(buckets, bits), tableSize(bits));  // what mapZeroed gave
    else
        free(tableOf(buckets, bits));
}

void clearBuckets(Node **buckets, uint32_t bits) {
    memset(tableOf(buckets, bits), emptyNote(bits), notesSize(bits));
    memset(buckets, 0, bucketCount(bits) * sizeof(Node *));
}

}  // namespace vex::tree

namespace {

using namespace vex::tree;

/// (offset + data) rounded up to a multiple of 8; 2^64 - 1, which no slab can hold, beyond 64 bits.
uint64_t nodeSize(uint64_t data_size) {
    uint64_t size = 0;
    if (!vex::checkedAdd<uint64_t>(data_size, VexHashTreeNodeDataOffset + 7, &size))
        return UINT64_MAX;
    return size & ~uint64_t{7};
}

}  // namespace

size_t VexHashTreeSize(void) {
    return sizeof(VexHashTree);
}

VexHashTree *VexHashTreeInit(VexHashTree *tree, uint32_t bits, uint64_t nodeDataSize,
                             VexHashTreeCompare compare, VexHashTreeHash hash, void *user,
                             uint64_t slabSize) {
    if (tree == nullptr || bits > kMaxBits || compare == nullptr || hash == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (isOfDigests(compare, hash) && nodeDataSize < VexHashTreeDigestSize)
        return VEX_FAIL(EINVAL, nullptr, "record smaller than a digest");
    *tree = {bits, 0, slabSize, nodeDataSize, compare, hash, user, nullptr, nullptr, 0, 0};
    // taking a block adds 1 to its first word, so all ones make a fresh node's left link null; no
    // live node's left link can be all ones
    tree->allocator =
        preallocator_construct(slabSize, nodeSize(nodeDataSize), UINT64_MAX, 0, nullptr, nullptr);
    if (tree->allocator == nullptr)
        return VEX_FAIL(errno, nullptr, "failed to initialize preallocator");
    tree->buckets = newBuckets(bits);
    setDigestMask(tree);
    if (tree->buckets != nullptr) return tree;
    const int err = errno;
    VexHashTreeDeinit(tree);
    return VEX_FAIL(err, nullptr, "failed to allocate memory");
}

VexHashTree *VexHashTreeNew(uint32_t bits, uint64_t nodeDataSize, VexHashTreeCompare compare,
                            VexHashTreeHash hash, void *user, uint64_t slabSize) {
    auto *const tree = static_cast<VexHashTree *>(malloc(sizeof(VexHashTree)));
    if (tree == nullptr) return VEX_FAIL(errno, nullptr, "failed to allocate memory");
    if (VexHashTreeInit(tree, bits, nodeDataSize, compare, hash, user, slabSize) != nullptr)
        return tree;
    free(tree);
    return nullptr;
}

void VexHashTreeDeinit(VexHashTree *tree) {
    if (tree == nullptr) return;
    preallocator_destruct(tree->allocator);
    freeBuckets(tree->buckets, tree->bits);
    tree->allocator = nullptr;
    tree->buckets = nullptr;
    tree->digestMask = 0;
}

void VexHashTreeDelete(VexHashTree **tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    VexHashTreeDeinit(*tree);
    free(*tree);
    *tree = nullptr;
}

int VexHashTreeEmpty(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (tree->allocator == nullptr)
        return VEX_FAIL(EINVAL, -1, "unable to get number of allocated blocks: %m");
    tree->numDeletes += preallocator_get_num_allocated_blocks(tree->allocator);
    ++tree->layout;
    clearBuckets(tree->buckets, tree->bits);
    preallocator_reinit(tree->allocator);
    return 0;
}

uint32_t VexHashTreeGetBits(VexHashTree *tree) {
    return tree != nullptr ? tree->bits : VEX_FAIL(EINVAL, UINT32_MAX, "invalid NULL parameter");
}

uint64_t VexHashTreeGetSlabSize(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    const uint64_t size = preallocator_get_slab_size(tree->allocator);
    if (size == 0) return VEX_FAIL(errno, UINT64_MAX, "preallocator_get_slab_size failed: %m");
    return size;
}

uint64_t VexHashTreeGetNodeSize(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    const uint64_t size = preallocator_get_block_size(tree->allocator);
    // the same words as for the slab size: scripts know them
    if (size == 0) return VEX_FAIL(errno, UINT64_MAX, "preallocator_get_slab_size failed: %m");
    return size;
}

uint64_t VexHashTreeGetNodeDataSize(VexHashTree *tree) {
    return tree != nullptr ? tree->nodeDataSize
                           : VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
}

uint64_t VexHashTreeGetNumSlabs(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    return preallocator_get_num_slabs(tree->allocator);
}

uint64_t VexHashTreeGetNumUsedNodes(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    return preallocator_get_num_allocated_blocks(tree->allocator);
}

uint64_t VexHashTreeGetNumUnusedNodes(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    return preallocator_get_num_free_blocks(tree->allocator);
}

uint64_t VexHashTreeGetNumDeletes(VexHashTree *tree) {
    return tree != nullptr ? tree->numDeletes
                           : VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
}

uint64_t VexHashTreeGetMemoryUsage(VexHashTree *tree) {
    if (tree == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    return preallocator_get_num_slabs(tree->allocator) * tree->slabSize +
           bucketCount(tree->bits) * sizeof(Node *) + VexHashTreeSize();
}
