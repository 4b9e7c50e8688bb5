// Compaction: the newest slab's live blocks move into the others and the slab goes back to the
// system.
#include <vex/frame.h>
#include <vex/preallocator.h>

#include "containers/slab.h"
#include "log/report.h"

namespace {

using namespace vex::slab;

/// Takes a free block of the slab that is being emptied off the free list. One that was popped as a
/// target before stands alone and is counted already.
void unlinkFree(preallocator *a, FreeBlock *block) {
    if (block->prev == nullptr && block->next == nullptr) {
        if (freeHead(a) != block) return;
        a->free_blocks = nullptr;
        a->num_free_blocks = 0;
        return;
    }
    if (block->prev != nullptr)
        block->prev->next = block->next;
    else
        a->free_blocks = block->next;
    if (block->next != nullptr) block->next->prev = block->prev;
    --a->num_free_blocks;
}

/// A free block outside @p slab. Those of the slab itself that come up are marked free and left
/// alone, so that the walk over the slab passes over them.
void *takeOutside(preallocator *a, const Slab *slab) {
    void *block = preallocator_alloc(a);
    while (block != nullptr && isInside(a, slab, block)) {
        *asBlock(block) = {a->free_block_marker, nullptr, nullptr};
        block = preallocator_alloc(a);
    }
    return block;
}

}  // namespace

int preallocator_slab_reclaim(preallocator *a, preallocator_move_fn move, void *user) {
    if (a == nullptr || move == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    Slab *const slab = newestSlab(a);
    if (slab == nullptr || a->num_free_blocks < a->blocks_per_slab) return 0;
    a->slabs = slab->older;
    --a->num_slabs;
    FreeBlock *block = topBlock(a, slab);
    for (uint64_t i = a->blocks_per_slab; i > 0; --i, block = stepBlock(a, block, -1)) {
        if (isFree(a, block)) {
            unlinkFree(a, block);
            continue;
        }
        void *const target = takeOutside(a, slab);
        // as many blocks as the slab holds were free, so those outside it suffice
        if (target == nullptr)
            __vex_assert_fail("target != ((void *)0)", __FILE__, __LINE__, __func__);
        move(block, target, a->block_size, user);
    }
    releaseSlab(a, slab, Older::kStay);
    return 1;
}

uint64_t preallocator_slab_reclaim_all(preallocator *a, preallocator_move_fn move, void *user) {
    if (a == nullptr || move == nullptr)
        return VEX_FAIL(EINVAL, uint64_t{0}, "invalid NULL parameter");
    uint64_t released = 0;
    while (preallocator_slab_reclaim(a, move, user) == 1) ++released;
    return released;
}
