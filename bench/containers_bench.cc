// The set and the preallocator against what an engineer would reach for instead.
#include <dlfcn.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <vex/preallocator.h>
#include <vex/set.h>

#include "peer.h"

namespace {

using bench::cpuSeconds;
using bench::show;

volatile uint64_t sink;

struct Object {
    char bytes[48];
};

int comparePointers(void *, const void *a, const void *b) {
    const auto x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return x < y ? -1 : x > y;
}
uint32_t hashPointer(void *, const void *object) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object) * 0x9e3779b97f4a7c15 >> 32);
}

void compareSets(size_t count) {
    std::vector<Object> objects(count);
    std::vector<Object *> order;
    for (Object &object : objects) order.push_back(&object);
    std::shuffle(order.begin(), order.end(), std::mt19937_64(5));
    std::vector<Object *> lookups = order;
    std::shuffle(lookups.begin(), lookups.end(), std::mt19937_64(6));
    const double n = static_cast<double>(count);
    VexSet *set = VexSetNew(comparePointers, hashPointer, nullptr, count + 1);
    std::set<Object *> peer;
    const auto time = [&](auto work) { return cpuSeconds(work) * 1e9 / n; };
    const double insert = time([&] {
        for (Object *p : order) (void)VexSetFindOrInsert(set, p, nullptr);
    });
    const double peer_insert = time([&] {
        for (Object *p : order) peer.insert(p);
    });
    const double find = time([&] {
        for (Object *p : lookups) sink = VexSetFind(set, p) != nullptr;
    });
    const double peer_find = time([&] {
        for (Object *p : lookups) sink = peer.find(p) != peer.end();
    });
    const double remove = time([&] {
        for (Object *p : lookups) (void)VexSetRemove(set, p);
    });
    const double peer_remove = time([&] {
        for (Object *p : lookups) peer.erase(p);
    });
    VexSetDelete(&set);
    show(count, "set of pointers, insert", insert, "std::set", peer_insert, "<= 0.30");
    show(count, "set of pointers, find", find, "std::set", peer_find, "<= 0.30");
    show(count, "set of pointers, remove", remove, "std::set", peer_remove, "<= 0.30");
}

/// A general allocator loaded aside, so that each peer serves its own calls only.
struct Allocator {
    Allocator(const char *library, const char *take, const char *give) {
        void *const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
        if (handle == nullptr) return;
        alloc = reinterpret_cast<void *(*)(size_t)>(dlsym(handle, take));
        release = reinterpret_cast<void (*)(void *)>(dlsym(handle, give));
    }
    void *(*alloc)(size_t) = nullptr;
    void (*release)(void *) = nullptr;
};

struct Pair {
    double hot, churn;
};

template <typename Take, typename Give>
Pair measureAllocator(Take take, Give give) {
    constexpr size_t kHot = 20000000, kLive = 1000000, kChurn = 4000000;
    Pair result{};
    result.hot = cpuSeconds([&] {
                     for (size_t i = 0; i < kHot; ++i) {
                         void *const p = take();
                         *static_cast<volatile char *>(p) = 1;
                         give(p);
                     }
                 }) *
                 1e9 / kHot;
    std::vector<void *> live(kLive);
    for (void *&p : live) p = take();
    std::mt19937_64 random(7);
    std::vector<uint32_t> victims(kChurn);
    for (uint32_t &v : victims) v = static_cast<uint32_t>(random() % kLive);
    result.churn = cpuSeconds([&] {
                       for (const uint32_t v : victims) {
                           give(live[v]);
                           live[v] = take();
                           *static_cast<volatile char *>(live[v]) = 1;
                       }
                   }) *
                   1e9 / kChurn;
    for (void *p : live) give(p);
    return result;
}

void compareAllocators(size_t size) {
    static const Allocator kPeers[] = {{"libjemalloc.so.2", "malloc", "free"},
                                       {"libtcmalloc_minimal.so.4", "tc_malloc", "tc_free"}};
    Pair best{1e9, 1e9}, ours{1e9, 1e9};
    for (int round = 0; round < 3; ++round) {
        preallocator *const a = preallocator_construct(2UL << 20, size, ~0UL, 0, nullptr, nullptr);
        const Pair mine = measureAllocator([&] { return preallocator_alloc(a); },
                                           [&](void *p) { preallocator_free(a, p); });
        preallocator_destruct(a);
        ours = {std::min(ours.hot, mine.hot), std::min(ours.churn, mine.churn)};
        for (const Allocator &peer : kPeers) {
            if (peer.alloc == nullptr) continue;
            const Pair theirs = measureAllocator([&] { return peer.alloc(size); }, peer.release);
            best = {std::min(best.hot, theirs.hot), std::min(best.churn, theirs.churn)};
        }
    }
    show(size, "preallocator, hot alloc and free", ours.hot, "best of jemalloc, tcmalloc", best.hot,
         "<= 0.7");
    show(size, "preallocator, free and alloc among 1e6", ours.churn, "best of jemalloc, tcmalloc",
         best.churn, "<= 0.9");
}

}  // namespace

int main() {
    for (const size_t size : {72, 512}) compareAllocators(size);
    compareSets(1000000);
    return 0;
}
