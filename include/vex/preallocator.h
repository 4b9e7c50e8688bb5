/**
 * @file preallocator.h
 * @ingroup containers
 * Blocks of one size out of large slabs: the memory under the library's containers.
 *
 * A preallocator maps slabs, carves each into equal blocks and keeps the free ones on one doubly
 * linked list. Blocks carry no header; a free block is known by its first 64-bit word, which holds
 * the marker that the caller chose. A live block belongs to the caller wholly, except that its
 * first word must never equal the marker: iteration, printing, validation and reclaiming go by that
 * word.
 *
 * Blocks are packed against the end of their slab, so they are aligned to 8 bytes only when the
 * slab size and the block size both are multiples of 8.
 *
 * Unless an entry says otherwise: a NULL state or iterator is reported ("invalid NULL parameter",
 * EINVAL) and gives 0 or NULL; nothing else is logged; cost is constant.
 *
 * @threads one thread at a time per state; callers serialise. The budget alone may be shared by
 * several states in several threads: it is counted under the caller's mutex.
 */
#ifndef VEX_PREALLOCATOR_H
#define VEX_PREALLOCATOR_H

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** Bit of the flags: every slab is locked into memory, as far as the process's limit lets it. */
#define PREALLOCATOR_MLOCK 1u

/** The state; made by preallocator_construct, read-only for callers. */
typedef struct preallocator {
    uint32_t flags;             /**< PREALLOCATOR_MLOCK; other bits are stored and given back */
    uint64_t free_block_marker; /**< first word of every free block */
    uint64_t block_size;        /**< bytes a block, 24 and more */
    uint64_t blocks_per_slab;   /**< (slab_size - 12) / block_size */
    uint64_t slab_size;         /**< bytes a slab, block_size + 12 and more */
    void *slabs;                /**< newest slab first, linked through the slabs' first word */
    uint64_t num_slabs;         /**< slabs on that list */
    void *free_blocks;          /**< head of the free list */
    uint64_t num_free_blocks;   /**< blocks counted free; too high after preallocator_reset */
    uint64_t *slab_budget; /**< slabs that may still be added, or NULL for no limit; the caller's */
    pthread_mutex_t *slab_budget_mutex; /**< guards *slab_budget; the caller's */
} preallocator;

/** A walk over the live blocks, in caller storage. */
typedef struct preallocator_iterator {
    preallocator *allocator; /**< the state that is walked */
    void *slab;              /**< the slab of the current block */
    void *block;             /**< the current block, NULL at the end */
} preallocator_iterator;

/**
 * Moves a live block during a reclaim: must copy its contents to @p newBlock and redirect every
 * reference to it. It cannot fail and must not call the preallocator.
 *
 * @param oldBlock   the live block; its slab is released when all of its blocks have moved.
 * @param newBlock   a block of another slab; what it holds is to be overwritten.
 * @param blockSize  bytes to copy.
 * @param user       what the caller passed to the reclaim.
 */
typedef void (*preallocator_move_fn)(void *oldBlock, void *newBlock, uint64_t blockSize,
                                     void *user);

/**
 * Makes a state. No slab is taken before the first block is.
 *
 * Slabs of 2 MiB and more are aligned to 2 MiB and offered to the kernel for huge pages: choose
 * such a size for large indexes. Smaller ones, if a power of two from 4096 bytes on and not locked,
 * share huge pages once there are 2 MiB of them.
 *
 * @param slab_size          bytes a slab, at least block_size + 12. 12 bytes of it are the
 * header's.
 * @param block_size         bytes a block, at least 24.
 * @param free_block_marker  a value that no live block ever has in its first word.
 * @param flags              PREALLOCATOR_MLOCK or 0.
 * @param slab_budget        how many slabs may be added, counted down and up; NULL for no limit.
 *                           Must outlive the state.
 * @param slab_budget_mutex  locked around each count; NULL when one thread alone counts.
 * @return the state, or NULL with errno: EINVAL for sizes too small, ENOMEM.
 * @owner the caller, who gives it to preallocator_destruct.
 * @logs one error line per failure.
 */
VEX_API preallocator *preallocator_construct(uint64_t slab_size, uint64_t block_size,
                                             uint64_t free_block_marker, uint32_t flags,
                                             uint64_t *slab_budget,
                                             pthread_mutex_t *slab_budget_mutex);
/** Releases every slab, with the live blocks in it, and the state; NULL is accepted. Cost: one
 * unmapping a slab. */
VEX_API void preallocator_destruct(preallocator *a);
/** Releases every slab, with the live blocks in it; the state is as new. NULL is accepted. */
VEX_API void preallocator_reinit(preallocator *a);
/**
 * Puts every block of every slab back on the free list, live ones too; slabs are kept.
 *
 * @note The count of free blocks keeps its old value and grows by all blocks, so it is too high
 * afterwards (and the count of allocated ones wraps below 0). Use it only where nobody looks at the
 * counts; preallocator_reinit counts truly.
 * Cost: every block is written.
 */
VEX_API void preallocator_reset(preallocator *a);

/**
 * Takes a block; a slab is added when none is free.
 *
 * Last freed, first taken; the blocks of a fresh slab come in ascending order of addresses.
 *
 * @return block_size bytes: the first word holds marker + 1, the next two what the free list left
 * there. NULL with errno: ENOSPC when the budget is used up (not logged), else what the mapping
 * left.
 * @logs "could not allocate memory" when both mmap and malloc fail.
 * @standard slabs: anonymous private mmap(2), malloc(3) when that fails.
 */
VEX_API void *preallocator_alloc(preallocator *a);
/** Gives a block back; a NULL block is ignored.
 * @note Nothing is checked: a block of another state, or one that is free already, destroys the
 * free list. preallocator_validate_block looks when in doubt. */
VEX_API void preallocator_free(preallocator *a, void *block);
/**
 * Adds slabs until @p wanted_free blocks are free.
 *
 * @return 0, or -1 with errno as preallocator_alloc; slabs added until then stay.
 */
VEX_API int preallocator_preallocate(preallocator *a, uint64_t wanted_free);

/**
 * Empties the newest slab by moving its live blocks into the others and releases it.
 *
 * @param a     the state.
 * @param move  called once for each live block of the slab.
 * @param user  last argument of @p move.
 * @return 1, or 0 when there is no slab or fewer blocks are free than a slab holds.
 * @note The newest slab goes, however full it is. Not for a state that was reset.
 * Cost: one look at each block of the slab, one move a live one.
 */
VEX_API int preallocator_slab_reclaim(preallocator *a, preallocator_move_fn move, void *user);
/** Repeats preallocator_slab_reclaim until less than one slab's blocks are free; returns how many
 * slabs were released. */
VEX_API uint64_t preallocator_slab_reclaim_all(preallocator *a, preallocator_move_fn move,
                                               void *user);

/** The number of blocks in a slab: (slab_size - 12) / block_size; 0 with ERANGE, logged, for sizes
 * that preallocator_construct would refuse. */
VEX_API uint64_t preallocator_calc_num_blocks_per_slab(uint64_t slab_size, uint64_t block_size);
/** The bytes a slab of @p num_blocks blocks needs: num_blocks * block_size + 12; 0 with ERANGE,
 * logged, when that is beyond 64 bits or block_size is 0. */
VEX_API uint64_t preallocator_calc_slab_size(uint64_t num_blocks, uint64_t block_size);

/** The flags, as given to preallocator_construct but for later changes of PREALLOCATOR_MLOCK. */
VEX_API uint32_t preallocator_get_flags(const preallocator *a);
/** Locks all slabs into memory, or unlocks them, when PREALLOCATOR_MLOCK of @p flags differs from
 * the state's; its other bits are ignored. Returns 0. Cost: one system call a slab when it differs.
 */
VEX_API int preallocator_set_flags(preallocator *a, uint32_t flags);
/** Bytes a slab. */
VEX_API uint64_t preallocator_get_slab_size(const preallocator *a);
/** Bytes a block. */
VEX_API uint64_t preallocator_get_block_size(const preallocator *a);
/** Blocks a slab. */
VEX_API uint64_t preallocator_get_num_blocks_per_slab(const preallocator *a);
/** Slabs held. */
VEX_API uint64_t preallocator_get_num_slabs(const preallocator *a);
/** Blocks counted free; too high after preallocator_reset. */
VEX_API uint64_t preallocator_get_num_free_blocks(const preallocator *a);
/** Blocks of all slabs less the free ones. */
VEX_API uint64_t preallocator_get_num_allocated_blocks(const preallocator *a);

/** Starts a walk over the live blocks: newest slab first, each from high to low addresses. Returns
 * the first, or NULL. Cost of a whole walk: one look at every block. */
VEX_API void *preallocator_iterator_first(preallocator_iterator *it, preallocator *a);
/** Steps on; NULL at the end and ever after. The current block may be freed before the step; a
 * block that was taken during the walk is met or not. */
VEX_API void *preallocator_iterator_next(preallocator_iterator *it);

/** Writes the fields and one line a slab, a character a block in ascending order: '_' free,
 * '*' live. */
VEX_API void preallocator_print(FILE *stream, preallocator *a);
/**
 * Checks slabs, markers, the free list and the counts against one another.
 *
 * @param stream  gets one line a finding, or NULL.
 * @param a       the state.
 * @return 0 when consistent, else -1.
 * @note A state that was reset is not consistent: its count of free blocks is too high.
 * Cost: one look at every block, and a search among the slabs for every free one.
 */
VEX_API int preallocator_validate(FILE *stream, preallocator *a);
/** 0 when @p block is the start of a live block of this state, else -1 with a line on @p stream
 * (which may be NULL). Cost: a walk over the slabs. */
VEX_API int preallocator_validate_block(FILE *stream, preallocator *a, void *block);

VEX_END_DECLS

#endif
