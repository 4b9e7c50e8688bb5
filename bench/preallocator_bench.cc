// The preallocator against the best general allocators. This program's malloc is jemalloc's. Both
// peers are shared libraries, whose calls take longer by themselves: set BUILD_SHARED_LIBS to see
// the preallocator called so.
#include <gperftools/tcmalloc.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include <vex/preallocator.h>

#include "peer.h"

namespace {

constexpr size_t kLive = 1000000, kChurn = 4000000, kTurn = 100000;

struct Cost {
    double hot, churn;  ///< nanoseconds a pair of calls
};

/// A million blocks of one allocator, and the time that its turns took.
class Side {
public:
    virtual ~Side() = default;
    virtual void hot(size_t pairs) = 0;
    virtual void churn(const uint32_t *victims, size_t count) = 0;
    Cost cost{};
};

void touch(void *block) {
    *static_cast<volatile char *>(block) = 1;
}

/// Both calls are named at compile time, as in a program that uses the allocator.
template <typename Heap>
class HeapSide : public Side {
public:
    explicit HeapSide(size_t size) : heap_(size), live_(kLive) {
        for (void *&p : live_) touch(p = heap_.take());
    }
    ~HeapSide() override {
        for (void *p : live_) heap_.give(p);
    }
    void hot(size_t pairs) override {
        for (size_t i = 0; i < pairs; ++i) {
            void *const p = heap_.take();
            touch(p);
            heap_.give(p);
        }
    }
    void churn(const uint32_t *victims, size_t count) override {
        for (size_t i = 0; i < count; ++i) {
            void *&p = live_[victims[i]];
            heap_.give(p);
            p = heap_.take();
            touch(p);
        }
    }

private:
    Heap heap_;
    std::vector<void *> live_;
};

struct Preallocator {
    explicit Preallocator(size_t size)
        : a(preallocator_construct(2UL << 20, size, ~0UL, 0, nullptr, nullptr)) {}
    ~Preallocator() { preallocator_destruct(a); }
    void *take() { return preallocator_alloc(a); }
    void give(void *p) { preallocator_free(a, p); }
    preallocator *a;
};

struct Jemalloc {
    explicit Jemalloc(size_t block) : size(block) {}
    void *take() { return malloc(size); }
    void give(void *p) { free(p); }
    size_t size;
};

struct Tcmalloc {
    explicit Tcmalloc(size_t block) : size(block) {}
    void *take() { return tc_malloc(size); }
    void give(void *p) { tc_free(p); }
    size_t size;
};

enum { kOurs, kJemalloc, kTcmalloc, kSides };

/// Nanoseconds of each side.
std::vector<Cost> takeTurns(size_t size) {
    std::vector<std::unique_ptr<Side>> sides;
    sides.push_back(std::make_unique<HeapSide<Preallocator>>(size));
    sides.push_back(std::make_unique<HeapSide<Jemalloc>>(size));
    sides.push_back(std::make_unique<HeapSide<Tcmalloc>>(size));
    std::mt19937_64 random(7);
    std::vector<uint32_t> victims(kChurn);
    for (uint32_t &v : victims) v = static_cast<uint32_t>(random() % kLive);
    for (size_t from = 0; from < kChurn; from += kTurn)
        for (const auto &side : sides) {
            side->cost.churn += bench::cpuSeconds([&] { side->churn(&victims[from], kTurn); });
            side->cost.hot += bench::cpuSeconds([&] { side->hot(kTurn); });
        }
    std::vector<Cost> costs;
    for (const auto &side : sides)
        costs.push_back({side->cost.hot * 1e9 / kChurn, side->cost.churn * 1e9 / kChurn});
    return costs;
}

void compareAllocators(size_t size) {
    std::vector<double> hot[kSides], churn[kSides];
    for (int round = 0; round < 5; ++round) {
        const std::vector<Cost> costs = takeTurns(size);
        for (size_t i = 0; i < kSides; ++i) {
            hot[i].push_back(costs[i].hot);
            churn[i].push_back(costs[i].churn);
        }
    }
    const auto row = [&](const char *what, const std::vector<double> *times, const char *target) {
        const double jemalloc = bench::median(times[kJemalloc]);
        const double tcmalloc = bench::median(times[kTcmalloc]);
        bench::show(size, what, bench::median(times[kOurs]),
                    jemalloc < tcmalloc ? "jemalloc" : "tcmalloc", std::min(jemalloc, tcmalloc),
                    target);
    };
    row("preallocator, hot alloc and free", hot, "<= 0.7");
    row("preallocator, free and alloc among 1e6", churn, "<= 0.9");
}

}  // namespace

int main() {
    for (const size_t size : {72, 512}) compareAllocators(size);
    return 0;
}
