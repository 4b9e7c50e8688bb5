#include "containers/mapped_memory.h"

#include <sys/mman.h>

#include <cstdint>

#include "base/checked.h"

namespace vex {
namespace {

void *mapAnywhere(size_t size) {
    void *const p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}

}  // namespace

// Maps more than is wanted and cuts off what is too much at both ends.
void *mapAligned(size_t size) {
    size_t wide = 0;
    if (!checkedAdd(size, 2 * kHugePage, &wide)) return nullptr;
    char *const all = static_cast<char *>(mapAnywhere(wide));
    if (all == nullptr) return nullptr;
    const size_t before = -reinterpret_cast<uintptr_t>(all) % kHugePage;
    const size_t kept = (size + kPage - 1) / kPage * kPage;
    // an end that stays mapped costs address space only
    if (before != 0) (void)munmap(all, before);
    (void)munmap(all + before + kept, wide - before - kept);
    (void)madvise(all + before, kept, MADV_HUGEPAGE);  // a wish: small pages work as well
    return all + before;
}

void *mapZeroed(size_t size) {
    if (size >= kHugePage)
        if (void *const aligned = mapAligned(size)) return aligned;
    return mapAnywhere(size);
}

}  // namespace vex
