// The layout of slabs and free blocks, and the two operations on the free list that the containers
// inline: taking and giving back a block.
#ifndef VEX_CONTAINERS_SLAB_H
#define VEX_CONTAINERS_SLAB_H

#include <cstddef>
#include <cstdint>

#include <vex/preallocator.h>

namespace vex::slab {

// A slab whose size is no multiple of 8 has all its blocks at odd addresses: both records are read
// through packed types, which costs nothing on this platform.

/// Head of a slab. Slack and the blocks follow, packed against the slab's end.
struct [[gnu::packed, gnu::may_alias]] Slab {
    Slab *older;
    uint32_t flags;
};
static_assert(sizeof(Slab) == 12);

struct [[gnu::packed, gnu::may_alias]] FreeBlock {
    uint64_t marker;
    FreeBlock *prev;
    FreeBlock *next;
};
static_assert(sizeof(FreeBlock) == 24);

inline FreeBlock *asBlock(void *p) {
    return static_cast<FreeBlock *>(p);
}
inline Slab *newestSlab(const preallocator *a) {
    return static_cast<Slab *>(a->slabs);
}
inline FreeBlock *freeHead(const preallocator *a) {
    return static_cast<FreeBlock *>(a->free_blocks);
}
inline char *endOf(const preallocator *a, Slab *slab) {
    return reinterpret_cast<char *>(slab) + a->slab_size;
}
inline FreeBlock *topBlock(const preallocator *a, Slab *slab) {
    return reinterpret_cast<FreeBlock *>(endOf(a, slab) - a->block_size);
}
inline FreeBlock *lowestBlock(const preallocator *a, Slab *slab) {
    return reinterpret_cast<FreeBlock *>(endOf(a, slab) - a->blocks_per_slab * a->block_size);
}
/// The block @p by blocks above @p block; negative for below.
inline FreeBlock *stepBlock(const preallocator *a, FreeBlock *block, int64_t by) {
    return reinterpret_cast<FreeBlock *>(reinterpret_cast<char *>(block) +
                                         by * static_cast<int64_t>(a->block_size));
}
inline bool isInside(const preallocator *a, const Slab *slab, const void *p) {
    return reinterpret_cast<uintptr_t>(p) - reinterpret_cast<uintptr_t>(slab) < a->slab_size;
}
inline bool isFree(const preallocator *a, const FreeBlock *block) {
    return block->marker == a->free_block_marker;
}

/// Takes the head of the free list, which must not be empty.
inline void *takeBlock(preallocator *a) {
    FreeBlock *const block = freeHead(a);
    FreeBlock *const next = block->next;
    if (next != nullptr) next->prev = nullptr;
    a->free_blocks = next;
    --a->num_free_blocks;
    ++block->marker;
    return block;
}

inline void giveBlock(preallocator *a, void *p) {
    FreeBlock *const block = asBlock(p);
    __builtin_prefetch(block, 1);  // a block that was long in use comes while the list is read
    FreeBlock *const head = freeHead(a);
    block->marker = a->free_block_marker;
    block->prev = nullptr;
    block->next = head;
    if (head != nullptr) head->prev = block;
    a->free_blocks = block;
    ++a->num_free_blocks;
}

/// Memory for one more slab, with its flags set; nullptr with errno.
Slab *obtainSlab(const preallocator *a);
/// Whether the slabs older than one that is released stay or follow it.
enum class Older { kStay, kFollow };
/// Gives back the memory of the slab that was the newest.
void discardSlab(const preallocator *a, Slab *slab, Older older);

/// Unlocks and discards the slab that was the newest and is off the list, and gives it back to the
/// budget.
void releaseSlab(preallocator *a, Slab *slab, Older older);

}  // namespace vex::slab

#endif
