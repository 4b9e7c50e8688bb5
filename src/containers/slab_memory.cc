// Where slabs come from. Each is a mapping of its own, or memory from malloc when none is to be
// had. Once a preallocator has a huge page's worth of small slabs, further ones share huge pages: a
// random access then misses the cache, but not the translation buffer as well. Slabs leave newest
// first, so those of a shared page end at the newest one, and its first slab, which goes last,
// takes the page along.
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include "containers/mapped_memory.h"
#include "containers/slab.h"

namespace vex::slab {
namespace {

enum : uint32_t {
    kFromMalloc = 1,  ///< released with free() instead of munmap()
    kInHugePage = 2,  ///< one of those that share a huge page
    kLastInPage = 4,  ///< nothing behind it in its huge page is in use
};

bool isFirstInHugePage(const void *slab) {
    return reinterpret_cast<uintptr_t>(slab) % kHugePage == 0;
}

Slab *slabBefore(const preallocator *a, Slab *slab) {
    return reinterpret_cast<Slab *>(reinterpret_cast<char *>(slab) - a->slab_size);
}

/// Only what fills huge pages without a rest shares them, and not locked slabs, because a lock on a
/// part splits a huge page.
bool sharesHugePages(const preallocator *a) {
    return a->slab_size < kHugePage && kHugePage % a->slab_size == 0 && a->slab_size % kPage == 0 &&
           a->num_slabs >= kHugePage / a->slab_size && (a->flags & PREALLOCATOR_MLOCK) == 0;
}

/// The place behind the newest slab, or the first of another huge page; nullptr when there is none.
void *placeInHugePage(const preallocator *a) {
    Slab *const newest = newestSlab(a);
    char *const behind = endOf(a, newest);
    if ((newest->flags & kLastInPage) == 0 || isFirstInHugePage(behind))
        return mapAligned(kHugePage);
    newest->flags &= ~uint32_t{kLastInPage};
    return behind;
}

void *mapSlab(const preallocator *a, uint32_t *flags) {
    if (sharesHugePages(a)) {
        if (void *const place = placeInHugePage(a)) {
            *flags = kInHugePage | kLastInPage;
            return place;
        }
    }
    return mapZeroed(a->slab_size);
}

}  // namespace

Slab *obtainSlab(const preallocator *a) {
    uint32_t flags = 0;
    void *p = mapSlab(a, &flags);
    if (p == nullptr) {
        flags = kFromMalloc;
        p = malloc(a->slab_size);
        if (p == nullptr) return nullptr;
    }
    memset(p, 0, 16);
    auto *const slab = static_cast<Slab *>(p);
    slab->flags = flags;
    return slab;
}

void discardSlab(const preallocator *a, Slab *slab, Older older) {
    const uint32_t flags = slab->flags;
    if ((flags & kFromMalloc) != 0) {
        free(slab);
    } else if ((flags & kInHugePage) == 0) {
        (void)munmap(slab, a->slab_size);  // fails only for addresses that were never mapped
    } else if (isFirstInHugePage(slab)) {
        (void)munmap(slab, kHugePage);
    } else if (older == Older::kStay) {  // else the page goes in one piece with its first slab
        (void)madvise(slab, a->slab_size, MADV_DONTNEED);
        slabBefore(a, slab)->flags |= kLastInPage;
    }
}

}  // namespace vex::slab
