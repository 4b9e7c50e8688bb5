// Construction, slabs in and out, and the free list. A slab's blocks are threaded onto the free
// list top-down, so the list runs upward through the newest slab and then on into the older ones.
#include <errno.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <vex/preallocator.h>

#include "base/checked.h"
#include "base/errno_guard.h"
#include "containers/slab.h"
#include "log/report.h"

static_assert(offsetof(preallocator, free_block_marker) == 8 &&
              offsetof(preallocator, blocks_per_slab) == 24 &&
              offsetof(preallocator, slabs) == 40 && offsetof(preallocator, free_blocks) == 56 &&
              offsetof(preallocator, slab_budget) == 72 && sizeof(preallocator) == 88);
static_assert(sizeof(preallocator_iterator) == 24);

namespace {

using namespace vex::slab;

/// Counts under the caller's mutex; without one the caller promises that nobody else counts.
class BudgetLock {
public:
    explicit BudgetLock(pthread_mutex_t *mutex) : mutex_(mutex) {
        if (mutex_ != nullptr) pthread_mutex_lock(mutex_);
    }
    ~BudgetLock() {
        if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
    }
    BudgetLock(const BudgetLock &) = delete;
    BudgetLock &operator=(const BudgetLock &) = delete;

private:
    pthread_mutex_t *mutex_;
};

bool takeFromBudget(preallocator *a) {
    if (a->slab_budget == nullptr) return true;
    const BudgetLock lock(a->slab_budget_mutex);
    if (*a->slab_budget == 0) return false;
    --*a->slab_budget;
    return true;
}

void giveToBudget(preallocator *a) {
    if (a->slab_budget == nullptr) return;
    const BudgetLock lock(a->slab_budget_mutex);
    ++*a->slab_budget;
}

void threadBlocks(preallocator *a, Slab *slab) {
    FreeBlock *above = freeHead(a);
    FreeBlock *block = topBlock(a, slab);
    if (above != nullptr) above->prev = block;
    for (uint64_t i = a->blocks_per_slab; i > 0; --i) {
        FreeBlock *const below = stepBlock(a, block, -1);
        *block = {a->free_block_marker, i > 1 ? below : nullptr, above};
        above = block;
        block = below;
    }
    a->free_blocks = above;
    a->num_free_blocks += a->blocks_per_slab;
}

bool addSlab(preallocator *a) {
    if (!takeFromBudget(a)) {
        errno = ENOSPC;  // callers try and go without: no line
        return false;
    }
    Slab *const slab = obtainSlab(a);
    if (slab == nullptr) {
        const int err = errno;
        giveToBudget(a);
        return VEX_FAIL_AS("preallocator_slab_add", err, err, false,
                           "could not allocate memory (%s:%i)", "../preallocator", 285);
    }
    // a limit on locked memory is no reason to fail: the slab serves unlocked
    if ((a->flags & PREALLOCATOR_MLOCK) != 0) (void)mlock(slab, a->slab_size);
    slab->older = newestSlab(a);
    a->slabs = slab;
    ++a->num_slabs;
    threadBlocks(a, slab);
    return true;
}

bool isTooSmall(uint64_t slab_size, uint64_t block_size) {
    uint64_t least = 0;
    return !vex::checkedAdd<uint64_t>(block_size, sizeof(Slab), &least) || least > slab_size;
}

/// Checks the sizes; false after one line under @p who with @p err.
bool checkSizes(const char *who, int err, uint64_t slab_size, uint64_t block_size) {
    if (isTooSmall(slab_size, block_size))
        return VEX_FAIL_AS(who, err, err, false, "slab size smaller than block size");
    if (block_size < sizeof(FreeBlock))
        return VEX_FAIL_AS(who, err, err, false, "block size smaller than block");
    return true;
}

/// Apart from preallocator_alloc, which then calls nothing and saves no register.
[[gnu::noinline]] void *takeFromNewSlab(preallocator *a) {
    return addSlab(a) ? takeBlock(a) : nullptr;
}

}  // namespace

void vex::slab::releaseSlab(preallocator *a, Slab *slab, Older older) {
    const vex::ErrnoGuard errno_guard;
    if ((a->flags & PREALLOCATOR_MLOCK) != 0) (void)munlock(slab, a->slab_size);
    discardSlab(a, slab, older);
    giveToBudget(a);
}

preallocator *preallocator_construct(uint64_t slab_size, uint64_t block_size,
                                     uint64_t free_block_marker, uint32_t flags,
                                     uint64_t *slab_budget, pthread_mutex_t *slab_budget_mutex) {
    if (!checkSizes(__func__, EINVAL, slab_size, block_size)) return nullptr;
    auto *const a = static_cast<preallocator *>(malloc(sizeof(preallocator)));
    if (a == nullptr) return VEX_FAIL(errno, nullptr, "could not allocate memory");
    *a = {};
    a->flags = flags;
    a->free_block_marker = free_block_marker;
    a->block_size = block_size;
    a->blocks_per_slab = (slab_size - sizeof(Slab)) / block_size;
    a->slab_size = slab_size;
    a->slab_budget = slab_budget;
    a->slab_budget_mutex = slab_budget_mutex;
    return a;
}

void preallocator_destruct(preallocator *a) {
    preallocator_reinit(a);
    free(a);
}

void preallocator_reinit(preallocator *a) {
    if (a == nullptr) return;
    for (Slab *slab = newestSlab(a); slab != nullptr;) {
        Slab *const older = slab->older;
        releaseSlab(a, slab, Older::kFollow);
        slab = older;
    }
    a->slabs = nullptr;
    a->num_slabs = 0;
    a->free_blocks = nullptr;
    a->num_free_blocks = 0;
}

void preallocator_reset(preallocator *a) {
    if (a == nullptr) return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    a->free_blocks = nullptr;
    for (Slab *slab = newestSlab(a); slab != nullptr; slab = slab->older) threadBlocks(a, slab);
}

void *preallocator_alloc(preallocator *a) {
    if (a == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    // the list itself decides: after a reset the count says more than there is
    return a->free_blocks != nullptr ? takeBlock(a) : takeFromNewSlab(a);
}

void preallocator_free(preallocator *a, void *block) {
    if (a == nullptr) return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    if (block != nullptr) giveBlock(a, block);
}

int preallocator_preallocate(preallocator *a, uint64_t wanted_free) {
    if (a == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (a->num_free_blocks >= wanted_free) return 0;
    const uint64_t missing = wanted_free - a->num_free_blocks;
    for (uint64_t n = (missing - 1) / a->blocks_per_slab + 1; n > 0; --n)
        if (!addSlab(a)) return -1;
    return 0;
}

uint64_t preallocator_calc_num_blocks_per_slab(uint64_t slab_size, uint64_t block_size) {
    if (!checkSizes(__func__, ERANGE, slab_size, block_size)) return 0;
    return (slab_size - sizeof(Slab)) / block_size;
}

uint64_t preallocator_calc_slab_size(uint64_t num_blocks, uint64_t block_size) {
    uint64_t size = 0;
    if (block_size == 0 || !vex::checkedMultiply(num_blocks, block_size, &size) ||
        !vex::checkedAdd<uint64_t>(size, sizeof(Slab), &size))
        return VEX_FAIL(ERANGE, uint64_t{0}, "too many blocks per slab");
    return size;
}

int preallocator_set_flags(preallocator *a, uint32_t flags) {
    if (a == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    if (((a->flags ^ flags) & PREALLOCATOR_MLOCK) == 0) return 0;
    const auto change = (flags & PREALLOCATOR_MLOCK) != 0 ? mlock : munlock;
    for (Slab *slab = newestSlab(a); slab != nullptr; slab = slab->older)
        (void)change(slab, a->slab_size);  // as when a slab is added: it serves unlocked
    a->flags ^= PREALLOCATOR_MLOCK;
    return 0;
}

uint32_t preallocator_get_flags(const preallocator *a) {
    return a != nullptr ? a->flags : VEX_FAIL(EINVAL, 0U, "invalid NULL parameter");
}

uint64_t preallocator_get_slab_size(const preallocator *a) {
    return a != nullptr ? a->slab_size : VEX_FAIL(EINVAL, 0UL, "invalid NULL parameter");
}

uint64_t preallocator_get_block_size(const preallocator *a) {
    return a != nullptr ? a->block_size : VEX_FAIL(EINVAL, 0UL, "invalid NULL parameter");
}

uint64_t preallocator_get_num_blocks_per_slab(const preallocator *a) {
    return a != nullptr ? a->blocks_per_slab : VEX_FAIL(EINVAL, 0UL, "invalid NULL parameter");
}

uint64_t preallocator_get_num_slabs(const preallocator *a) {
    return a != nullptr ? a->num_slabs : VEX_FAIL(EINVAL, 0UL, "invalid NULL parameter");
}

uint64_t preallocator_get_num_free_blocks(const preallocator *a) {
    return a != nullptr ? a->num_free_blocks : VEX_FAIL(EINVAL, 0UL, "invalid NULL parameter");
}

uint64_t preallocator_get_num_allocated_blocks(const preallocator *a) {
    if (a == nullptr) return VEX_FAIL(EINVAL, 0UL, "invalid NULL parameter");
    return a->num_slabs * a->blocks_per_slab - a->num_free_blocks;
}
