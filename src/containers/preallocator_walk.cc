// Walks over a preallocator's blocks: the iterator and the printed map.
#include <cstring>

#include <vex/preallocator.h>

#include "containers/slab.h"
#include "log/report.h"

namespace {

using namespace vex::slab;

/// The first live block at or below @p block, then in the older slabs; leaves the iterator there.
void *settle(preallocator_iterator *it, FreeBlock *block) {
    const preallocator *const a = it->allocator;
    for (auto *slab = static_cast<Slab *>(it->slab); slab != nullptr;) {
        for (FreeBlock *const lowest = lowestBlock(a, slab); block >= lowest;
             block = stepBlock(a, block, -1)) {
            if (isFree(a, block)) continue;
            it->slab = slab;
            it->block = block;
            return block;
        }
        slab = slab->older;
        if (slab != nullptr) block = topBlock(a, slab);
    }
    it->slab = nullptr;
    it->block = nullptr;
    return nullptr;
}

void printSlab(FILE *stream, const preallocator *a, Slab *slab) {
    (void)fprintf(stream, "slab %p (end %p): ", static_cast<void *>(slab),
                  static_cast<void *>(endOf(a, slab)));
    uint64_t num_free = 0;
    FreeBlock *block = lowestBlock(a, slab);
    for (uint64_t i = 0; i < a->blocks_per_slab; ++i, block = stepBlock(a, block, 1)) {
        const bool is_free = isFree(a, block);
        num_free += is_free ? 1 : 0;
        (void)fputc(is_free ? '_' : '*', stream);
    }
    (void)fprintf(stream, " (%lu blocks free, %lu used)\n", num_free,
                  a->blocks_per_slab - num_free);
}

}  // namespace

void *preallocator_iterator_first(preallocator_iterator *it, preallocator *a) {
    if (it == nullptr || a == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    Slab *const slab = newestSlab(a);
    *it = {a, slab, nullptr};
    return slab != nullptr ? settle(it, topBlock(a, slab)) : nullptr;
}

void *preallocator_iterator_next(preallocator_iterator *it) {
    if (it == nullptr || it->allocator == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (it->block == nullptr) return nullptr;
    return settle(it, stepBlock(it->allocator, asBlock(it->block), -1));
}

void preallocator_print(FILE *stream, preallocator *a) {
    if (stream == nullptr || a == nullptr)
        return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    (void)fprintf(stream, "a->flags = 0x%08x\n", a->flags);
    void *marker = nullptr;  // printed as an address, in the platform's form
    std::memcpy(&marker, &a->free_block_marker, sizeof marker);
    (void)fprintf(stream, "a->free_block_marker = %p\n", marker);
    (void)fprintf(stream, "a->block_size = %lu\n", a->block_size);
    (void)fprintf(stream, "a->blocks_per_slab = %lu\n", a->blocks_per_slab);
    (void)fprintf(stream, "a->slab_size = %lu\n", a->slab_size);
    (void)fprintf(stream, "a->num_slabs = %lu\n", a->num_slabs);
    (void)fprintf(stream, "a->num_free_blocks = %lu\n", a->num_free_blocks);
    for (Slab *slab = newestSlab(a); slab != nullptr; slab = slab->older)
        printSlab(stream, a, slab);
}
