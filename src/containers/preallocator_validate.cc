// Looks for damage in a preallocator: its slabs, the markers of its blocks, its free list and its
// counts. Damage may be anywhere, so nothing outside a known slab is read and no walk is endless.
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <vector>

#include <vex/preallocator.h>

#include "containers/slab.h"
#include "log/report.h"

namespace {

using namespace vex::slab;

/// Tells @p stream, when there is one, what is wrong; yields the failure value.
int finding(FILE *stream, const char *format, ...) VEX_PRINTF(2, 3);

int finding(FILE *stream, const char *format, ...) {
    if (stream == nullptr) return -1;
    va_list args;
    va_start(args, format);
    (void)vfprintf(stream, format, args);
    va_end(args);
    return -1;
}

class Validator {
public:
    Validator(FILE *stream, const preallocator *a) : stream_(stream), a_(a) {}

    int run() {
        countSlabs();
        const uint64_t visited = walkFreeList();
        if (visited < a_->num_free_blocks)
            result_ = finding(
                stream_,
                "Error: a->num_free_blocks = %lu, but found only %lu blocks in a->free_blocks\n",
                a_->num_free_blocks, visited);
        return result_;
    }

private:
    uint64_t countMarkers(Slab *slab) const {
        uint64_t markers = 0;
        FreeBlock *block = lowestBlock(a_, slab);
        for (uint64_t i = 0; i < a_->blocks_per_slab; ++i, block = stepBlock(a_, block, 1))
            if (isFree(a_, block)) ++markers;
        return markers;
    }

    void countSlabs() {
        uint64_t markers = 0;
        uint64_t next_milestone = 1;
        const Slab *milestone = nullptr;
        uint64_t found = 0;
        for (Slab *slab = newestSlab(a_); slab != nullptr; slab = slab->older) {
            if (slab == milestone) {  // a circle never ends: there are more than counted
                found = std::max(a_->num_slabs + 1, slabs_.size());
                break;
            }
            if (slabs_.size() == next_milestone) {
                milestone = slab;
                next_milestone *= 2;
            }
            slabs_.push_back(slab);
            found = slabs_.size();
            markers += countMarkers(slab);
        }
        // the messages' ends differ: the first has never had a newline, and scripts compare it
        if (found > a_->num_slabs)
            result_ = finding(stream_, "Error: %lu slabs counted, a->num_slabs = %lu", found,
                              a_->num_slabs);
        else if (found < a_->num_slabs)
            result_ = finding(stream_,
                              "Error: a->num_slabs = %lu, but found only %lu slabs in a->slabs\n",
                              a_->num_slabs, found);
        if (markers != a_->num_free_blocks)
            result_ = finding(
                stream_,
                "Error: %lu blocks with free block markers found, a->num_free_blocks = %lu\n",
                markers, a_->num_free_blocks);
        std::sort(slabs_.begin(), slabs_.end());
    }

    /// True when the three words of a free block at @p block can be read and lie behind a slab's
    /// head.
    bool isInSomeSlab(const FreeBlock *block) const {
        const auto address = reinterpret_cast<uintptr_t>(block);
        const auto above = std::upper_bound(
            slabs_.begin(), slabs_.end(), address,
            [](uintptr_t at, Slab *slab) { return at < reinterpret_cast<uintptr_t>(slab); });
        if (above == slabs_.begin()) return false;
        const uint64_t offset = address - reinterpret_cast<uintptr_t>(*std::prev(above));
        return offset >= sizeof(Slab) && offset <= a_->slab_size - sizeof(FreeBlock);
    }

    /// Returns how many blocks it passed before the end or the first error.
    uint64_t walkFreeList() {
        uint64_t visited = 0;
        const FreeBlock *before = nullptr;
        for (FreeBlock *block = freeHead(a_); block != nullptr; block = block->next) {
            void *const named = block;
            if (!isInSomeSlab(block)) {
                result_ = finding(stream_,
                                  "Error: block %p in a->free_blocks but not in any slab\n", named);
                return visited;
            }
            if (block->prev != before) {
                result_ = finding(
                    stream_,
                    "Error: block->next->prev != block->next in a->free_blocks for block %p\n",
                    before != nullptr ? static_cast<const void *>(before) : named);
                return visited;
            }
            if (!isFree(a_, block)) {
                result_ = finding(
                    stream_,
                    "Error: block->free_block_marker != a->free_block_marker in a->free_blocks "
                    "for block %p\n",
                    named);
                return visited;
            }
            if (visited == a_->num_free_blocks) {
                result_ = finding(
                    stream_, "Error: more than a->num_free_blocks = %lu blocks in a->free_blocks\n",
                    a_->num_free_blocks);
                return visited;
            }
            ++visited;
            before = block;
        }
        return visited;
    }

    FILE *stream_;
    const preallocator *a_;
    std::vector<Slab *> slabs_;
    int result_ = 0;
};

}  // namespace

int preallocator_validate(FILE *stream, preallocator *a) {
    if (a == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] { return Validator(stream, a).run(); });
}

int preallocator_validate_block(FILE *stream, preallocator *a, void *block) {
    if (a == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    Slab *slab = newestSlab(a);
    while (slab != nullptr && !isInside(a, slab, block)) slab = slab->older;
    if (slab == nullptr)
        return finding(
            stream, "Error: the specified block %p is not inside any slab of the preallocator.\n",
            block);
    const auto below_end = static_cast<uint64_t>(endOf(a, slab) - static_cast<char *>(block));
    if (below_end % a->block_size != 0 || asBlock(block) < lowestBlock(a, slab))
        return finding(stream,
                       "Error: the specified block %p is inside slab %p-%p but does not point to "
                       "the begin of a block.\n",
                       block, static_cast<void *>(slab), static_cast<void *>(endOf(a, slab)));
    if (isFree(a, asBlock(block)))
        return finding(stream,
                       "Error: the specified block %p is not allocated (it's free_block_marker is "
                       "set).",
                       block);
    return 0;
}
