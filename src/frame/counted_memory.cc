// Allocation by slot: while a slot counts, each block carries its size in the eight bytes before
// it.
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/alloc.h>
#include <vex/log.h>

#include "base/checked.h"
#include "base/environment.h"
#include "frame/memory_report.h"

namespace {

struct Slot {
    char name[32] = {};
    std::atomic<bool> enabled{false};
    VexFastAtomic counter;
};

constexpr unsigned kSlots = 16;
constinit std::array<Slot, kSlots> slots;

/// The slot when it counts, else nullptr.
Slot *counting(int number) {
    const unsigned index = static_cast<unsigned>(number) & 0xffffU;
    return index < kSlots && slots[index].enabled.load(std::memory_order_relaxed) ? &slots[index]
                                                                                  : nullptr;
}

uint64_t *headerOf(void *p) {
    return static_cast<uint64_t *>(p) - 1;
}

/// Gives a block of n bytes and a header its size, counts it, and yields the caller's part.
void *counted(Slot &slot, void *block, size_t n) {
    if (block == nullptr) return nullptr;
    auto *header = static_cast<uint64_t *>(block);
    *header = n;
    slot.counter += static_cast<long>(n);
    return header + 1;
}

void *tooLarge() {
    errno = ENOMEM;
    return nullptr;
}

}  // namespace

uint64_t datastore_malloc_total_size = 0;
uint64_t datastore_thread_total_size = 0;

void XAllocInit() {
    const char *text = vex::environmentValue("MEMSTAT");
    const bool on = text != nullptr && strtoul(text, nullptr, 10) != 0;
    for (Slot &slot : slots) {
        slot.enabled = on;
        std::memset(slot.name, 0, sizeof slot.name);
    }
    std::memcpy(slots[0].name, "libcr", sizeof "libcr");
}

void XAllocReport() {
    for (const Slot &slot : slots)
        if (slot.enabled && *slot.name != '\0')
            vex::reportMemory(slot.name, slot.counter.GetValue());
}

void *XMalloc(int slot, size_t n) {
    Slot *on = counting(slot);
    if (on == nullptr) return std::malloc(n);
    size_t total = 0;
    if (!vex::checkedAdd(n, sizeof(uint64_t), &total)) return tooLarge();
    return counted(*on, std::malloc(total), n);
}

void *XCalloc(int slot, size_t count, size_t size) {
    if (counting(slot) == nullptr) return std::calloc(count, size);
    size_t total = 0;
    if (!vex::checkedMultiply(count, size, &total)) return tooLarge();
    void *p = XMalloc(slot, total);
    if (p != nullptr) std::memset(p, 0, total);
    return p;
}

void *XRealloc(int slot, void *p, size_t n) {
    Slot *on = counting(slot);
    if (on == nullptr) return std::realloc(p, n);
    if (p == nullptr) return XMalloc(slot, n);
    size_t total = 0;
    if (!vex::checkedAdd(n, sizeof(uint64_t), &total)) return tooLarge();
    const auto old = static_cast<long>(*headerOf(p));
    void *block = std::realloc(headerOf(p), total);
    if (block != nullptr) on->counter -= old;
    return counted(*on, block, n);
}

void XFree(int slot, void *p) {
    Slot *on = counting(slot);
    if (p == nullptr || on == nullptr) return std::free(p);
    on->counter -= static_cast<long>(*headerOf(p));
    std::free(headerOf(p));
}
