#include <algorithm>
#include <cstring>
#include <new>

#include <vex/alloc.h>
#include <vex/log.h>

#include "frame/memory_report.h"

void vex::reportMemory(const char *name, long bytes) {
    InfoA(-1, "Memory usage of %s: %.2f MB", name, static_cast<double>(bytes) * 0x1p-20);
}

void VexFastAtomic::add(uint64_t n) {
    // a lost increment of the index spreads the load a little less evenly, which costs less than an
    // atomic one
    const uint64_t at = __atomic_load_n(&index_, __ATOMIC_RELAXED);
    __atomic_store_n(&index_, at + 1, __ATOMIC_RELAXED);
    __atomic_fetch_add(&cells_[at & 63U], n, __ATOMIC_RELAXED);
}

VexFastAtomic &VexFastAtomic::operator+=(long n) {
    add(static_cast<uint64_t>(n));
    return *this;
}

VexFastAtomic &VexFastAtomic::operator-=(long n) {
    add(-static_cast<uint64_t>(n));
    return *this;
}

long VexFastAtomic::GetValue() const {
    uint64_t sum = 0;
    for (const uint64_t &cell : cells_) sum += __atomic_load_n(&cell, __ATOMIC_RELAXED);
    return static_cast<long>(sum);
}

VexAllocator::VexAllocator(const char *name, bool enabled) : name_{}, enabled_(enabled) {
    std::strncpy(name_, name != nullptr ? name : "", sizeof name_ - 1);
}

void *VexAllocator::Alloc(size_t n) {
    void *p = ::operator new(n);
    if (enabled_) counter_ += static_cast<long>(n);
    return p;
}

void VexAllocator::Free(void *p, size_t n) {
    if (enabled_ && p != nullptr) counter_ -= static_cast<long>(n);
    ::operator delete(p);
}

void VexAllocator::Report() const {
    if (!enabled_) return;
    long value = std::max(counter_.GetValue(), 0L);
    if (std::strcmp(name_, "datastore") == 0)
        value += static_cast<long>(__atomic_load_n(&datastore_malloc_total_size, __ATOMIC_RELAXED) +
                                   __atomic_load_n(&datastore_thread_total_size, __ATOMIC_RELAXED));
    vex::reportMemory(name_, value);
}

VexAllocator *VexAllocator::GetDefaultAllocator() {
    static VexAllocator allocator("default", false);
    return &allocator;
}

namespace {
// there from load on, so that the first use on a thread finds it made
[[maybe_unused]] const VexAllocator *const made_at_load = VexAllocator::GetDefaultAllocator();
}  // namespace
