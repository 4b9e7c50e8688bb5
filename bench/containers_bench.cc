// The index containers against what an engineer would reach for instead. Every table prints our
// figure, the peer's and the ratio; both sides see the same keys, the same comparison and the same
// hash.
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_set.h>
#include <dlfcn.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include <vex/hash_tree.h>
#include <vex/preallocator.h>
#include <vex/set.h>

#include "peer.h"

namespace {

volatile uint64_t sink;

/// Time that the calling thread really ran, so that a busy machine spoils the figures less.
double cpuSeconds(const std::function<void()> &work) {
    const auto now = [] {
        timespec t;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    };
    const double start = now();
    work();
    return now() - start;
}

struct Record {
    unsigned char key[32];
    unsigned char payload[16];
};
uint64_t word(const unsigned char *p) {
    uint64_t value;
    std::memcpy(&value, p, sizeof value);
    return value;
}
struct Hash {
    size_t operator()(const Record &r) const { return word(r.key + 8); }
};
struct Equal {
    bool operator()(const Record &a, const Record &b) const {
        return std::memcmp(a.key, b.key, sizeof a.key) == 0;
    }
};
struct Less {
    bool operator()(const Record &a, const Record &b) const {
        return std::memcmp(a.key, b.key, sizeof a.key) < 0;
    }
};
int compareRecords(void *, const void *a, const void *b) {
    const int order = std::memcmp(a, b, sizeof Record::key);
    return order < 0 ? -1 : order > 0;
}
uint64_t hashRecord(void *, const void *data) {
    return Hash{}(*static_cast<const Record *>(data));
}

std::vector<Record> randomRecords(size_t count, uint64_t seed) {
    std::mt19937_64 random(seed);
    std::vector<Record> records(count);
    for (Record &record : records)
        for (size_t at = 0; at < sizeof record; at += 8) {
            const uint64_t value = random();
            std::memcpy(reinterpret_cast<char *>(&record) + at, &value, 8);
        }
    return records;
}

/// Nanoseconds per record of each phase.
/// The look-ups called "chained" need the previous one's result first, as in a store that acts on
/// each.
struct Figures {
    double insert, hit, miss, chained_hit, chained_miss, iterate, erase;
};

/// Makes both sides deliver the record: a compiler that sees how little of it is used would leave
/// out the copy, where it can.
void use(const Record &record) {
    asm volatile("" : : "r"(&record) : "memory");
}

/// Makes the next look-up's address depend on a result; always 0.
size_t chain(size_t value) {
    asm volatile("" : "+r"(value));
    return value >> 8;
}

/// What the phases work on: the records in order of insertion, the same shuffled, and absent ones.
struct Load {
    explicit Load(size_t count)
        : records(randomRecords(count, 1)), shuffled(records), absent(randomRecords(count, 2)) {
        std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937_64(3));
    }
    std::vector<Record> records, shuffled, absent;
};

template <typename Work>
double perRecord(const Load &load, Work work) {
    return cpuSeconds(work) * 1e9 / static_cast<double>(load.records.size());
}

/// As many buckets as absl::flat_hash_set reserves slots, which fills at most 7 of 8.
uint32_t bitsFor(size_t count) {
    uint32_t bits = 0;
    while ((1UL << bits) / 8 * 7 < count) ++bits;
    return bits;
}

/// The library's functions for digests, or the same written by a caller.
enum class Keys { kDigests, kCallers };

struct Tree {
    explicit Tree(size_t count, Keys keys = Keys::kDigests)
        : tree(keys == Keys::kDigests
                   ? VexHashTreeNew(bitsFor(count), sizeof(Record), VexHashTreeCompareDigest,
                                    VexHashTreeHashDigest, nullptr, 2UL << 20)
                   : VexHashTreeNew(bitsFor(count), sizeof(Record), compareRecords, hashRecord,
                                    nullptr, 2UL << 20)) {}
    ~Tree() { VexHashTreeDelete(&tree); }
    VexHashTree *tree;
};

Figures measureTree(const Load &load, Keys keys) {
    Figures f{};
    const Tree owner(load.records.size(), keys);
    VexHashTree *const tree = owner.tree;
    Record out;
    f.insert = perRecord(load, [&] {
        for (const Record &r : load.records) (void)VexHashTreeFindOrInsert(tree, &r, nullptr);
    });
    f.hit = perRecord(load, [&] {
        for (const Record &r : load.shuffled) {
            (void)VexHashTreeGet(tree, &r, &out);
            use(out);
        }
    });
    f.miss = perRecord(load, [&] {
        for (const Record &r : load.absent)
            sink = static_cast<uint64_t>(VexHashTreeGet(tree, &r, &out));
    });
    f.chained_hit = perRecord(load, [&] {
        for (size_t i = 0, link = 0; i < load.shuffled.size(); ++i) {
            (void)VexHashTreeGet(tree, &load.shuffled[i + link], &out);
            link = chain(out.payload[0]);
        }
    });
    f.chained_miss = perRecord(load, [&] {
        for (size_t i = 0, link = 0; i < load.absent.size(); ++i)
            link = chain(static_cast<size_t>(VexHashTreeGet(tree, &load.absent[i + link], &out)));
    });
    f.iterate = perRecord(load, [&] {
        VexHashTreeIterator *it = VexHashTreeIteratorNewBegin(tree);
        while (VexHashTreeIteratorNext(it, &out) == 1) use(out);
        VexHashTreeIteratorDelete(&it);
    });
    f.erase = perRecord(load, [&] {
        for (const Record &r : load.shuffled) (void)VexHashTreeRemove(tree, &r, nullptr);
    });
    return f;
}

void showMemory(const Load &load) {
    const Tree owner(load.records.size());
    for (const Record &r : load.records) (void)VexHashTreeFindOrInsert(owner.tree, &r, nullptr);
    const double buckets = static_cast<double>(1UL << VexHashTreeGetBits(owner.tree));
    const double records = static_cast<double>(load.records.size());
    const double slabs = static_cast<double>(VexHashTreeGetMemoryUsage(owner.tree)) - 8 * buckets;
    const auto row = [&](const char *what, double bytes) {
        std::printf(
            "%-58s ours %10.2f B, 72 B, ratio %.3f (target <= 1.02)\n",
            (std::string(what) + ", " + std::to_string(load.records.size()) + " records").c_str(),
            bytes / records, bytes / records / 72);
    };
    row("memory a record", slabs);
    row("memory a record with the notes of buckets", slabs + buckets);
}

/// The same phases for a container of the standard shape.
template <typename Container>
Figures measurePeer(const Load &load, Container &container) {
    Figures f{};
    f.insert = perRecord(load, [&] {
        for (const Record &r : load.records) container.insert(r);
    });
    f.hit = perRecord(load, [&] {
        for (const Record &r : load.shuffled) {
            const Record out = *container.find(r);
            use(out);
        }
    });
    f.miss = perRecord(load, [&] {
        for (const Record &r : load.absent) sink = container.find(r) == container.end();
    });
    f.chained_hit = perRecord(load, [&] {
        for (size_t i = 0, link = 0; i < load.shuffled.size(); ++i) {
            const Record out = *container.find(load.shuffled[i + link]);
            link = chain(out.payload[0]);
        }
    });
    f.chained_miss = perRecord(load, [&] {
        for (size_t i = 0, link = 0; i < load.absent.size(); ++i)
            link = chain(container.find(load.absent[i + link]) != container.end() ? 1 : 0);
    });
    f.iterate = perRecord(load, [&] {
        for (const Record &r : container) {
            const Record out = r;
            use(out);
        }
    });
    f.erase = perRecord(load, [&] {
        for (const Record &r : load.shuffled) container.erase(r);
    });
    return f;
}

void show(size_t count, const char *what, double ours, const char *peer, double theirs,
          const char *target) {
    std::printf(
        "%-58s ours %10.2f ns, %s %10.2f ns, time ratio %.2f (target %s)\n",
        (std::string(what) + ", " + std::to_string(count) + (count < 1000 ? " B" : " records"))
            .c_str(),
        ours, peer, theirs, ours / theirs, target);
    std::fflush(stdout);
}

Figures median(const std::vector<Figures> &all) {
    const auto of = [&](double Figures::*phase) {
        std::vector<double> values;
        for (const Figures &f : all) values.push_back(f.*phase);
        return bench::median(values);
    };
    return {of(&Figures::insert),      of(&Figures::hit),          of(&Figures::miss),
            of(&Figures::chained_hit), of(&Figures::chained_miss), of(&Figures::iterate),
            of(&Figures::erase)};
}

void compareIndexes(size_t count, int rounds) {
    const Load load(count);
    if (count >= 1000000) showMemory(load);
    std::vector<Figures> tree, called, flat, hashed;
    for (int i = 0; i < rounds; ++i) {
        tree.push_back(measureTree(load, Keys::kDigests));
        called.push_back(measureTree(load, Keys::kCallers));
        absl::flat_hash_set<Record, Hash, Equal> peer;
        peer.reserve(count);
        flat.push_back(measurePeer(load, peer));
    }
    const Figures a = median(tree), w = median(called), b = median(flat);
    const bool small = count < 1000000;
    const char *const flat_name = "absl::flat_hash_set";
    show(count, "insert", a.insert, flat_name, b.insert, small ? "<= 2.2" : "<= 0.65");
    show(count, "hit", a.hit, flat_name, b.hit, small ? "<= 2.2" : "<= 1.15");
    show(count, "miss", a.miss, flat_name, b.miss, small ? "<= 2.2" : "<= 1.35");
    show(count, "chained hit", a.chained_hit, flat_name, b.chained_hit,
         small ? "<= 2.2" : "<= 1.15");
    show(count, "chained miss", a.chained_miss, flat_name, b.chained_miss,
         small ? "<= 2.2" : "<= 1.35");
    show(count, "erase", a.erase, flat_name, b.erase, small ? "<= 2.2" : "<= 0.80");
    show(count, "insert, caller's functions", w.insert, flat_name, b.insert, "none");
    show(count, "hit, caller's functions", w.hit, flat_name, b.hit, "none");
    show(count, "miss, caller's functions", w.miss, flat_name, b.miss, "none");
    show(count, "erase, caller's functions", w.erase, flat_name, b.erase, "none");
    if (small) {
        for (int i = 0; i < rounds; ++i) {
            std::unordered_set<Record, Hash, Equal> peer;
            peer.reserve(count);
            hashed.push_back(measurePeer(load, peer));
        }
        const Figures c = median(hashed);
        const char *const name = "std::unordered_set";
        show(count, "insert", a.insert, name, c.insert, "<= 1.0");
        show(count, "hit", a.hit, name, c.hit, "<= 1.0");
        show(count, "miss", a.miss, name, c.miss, "<= 1.0");
        show(count, "erase", a.erase, name, c.erase, "<= 1.0");
        return;
    }
    {
        absl::btree_set<Record, Less> peer;
        show(count, "iterate in order", a.iterate, "absl::btree_set",
             measurePeer(load, peer).iterate, "<= 0.8");
    }
    std::set<Record, Less> peer;
    const Figures c = measurePeer(load, peer);
    show(count, "insert", a.insert, "std::set", c.insert, "<= 0.10");
    show(count, "hit", a.hit, "std::set", c.hit, "<= 0.10");
    show(count, "miss", a.miss, "std::set", c.miss, "<= 0.10");
    show(count, "erase", a.erase, "std::set", c.erase, "<= 0.10");
}

/// Both sides grow when there is about a record a bucket.
void compareResize(size_t count, int rounds) {
    const Load load(count);
    std::vector<double> ours, theirs;
    for (int i = 0; i < rounds; ++i) {
        const Tree owner(count);
        uint32_t bits = 0;
        while (1UL << bits < count) ++bits;
        (void)VexHashTreeSetBits(owner.tree, bits);
        for (const Record &r : load.records) (void)VexHashTreeFindOrInsert(owner.tree, &r, nullptr);
        ours.push_back(perRecord(load, [&] { (void)VexHashTreeSetBits(owner.tree, bits + 1); }));
        std::unordered_set<Record, Hash, Equal> peer;
        peer.reserve(count);
        for (const Record &r : load.records) peer.insert(r);
        theirs.push_back(perRecord(load, [&] { peer.rehash(peer.bucket_count() * 2); }));
    }
    show(count, "SetBits to twice the buckets", bench::median(ours), "std::unordered_set::rehash",
         bench::median(theirs), "<= 0.5");
}

int comparePointers(void *, const void *a, const void *b) {
    const auto x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return x < y ? -1 : x > y;
}
uint32_t hashPointer(void *, const void *object) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object) * 0x9e3779b97f4a7c15 >> 32);
}

void compareSets(size_t count) {
    std::vector<Record> objects(count);
    std::vector<Record *> order;
    for (Record &object : objects) order.push_back(&object);
    std::shuffle(order.begin(), order.end(), std::mt19937_64(5));
    std::vector<Record *> lookups = order;
    std::shuffle(lookups.begin(), lookups.end(), std::mt19937_64(6));
    const double n = static_cast<double>(count);
    VexSet *set = VexSetNew(comparePointers, hashPointer, nullptr, count + 1);
    std::set<Record *> peer;
    const auto time = [&](auto work) { return cpuSeconds(work) * 1e9 / n; };
    const double insert = time([&] {
        for (Record *p : order) (void)VexSetFindOrInsert(set, p, nullptr);
    });
    const double peer_insert = time([&] {
        for (Record *p : order) peer.insert(p);
    });
    const double find = time([&] {
        for (Record *p : lookups) sink = VexSetFind(set, p) != nullptr;
    });
    const double peer_find = time([&] {
        for (Record *p : lookups) sink = peer.find(p) != peer.end();
    });
    const double remove = time([&] {
        for (Record *p : lookups) (void)VexSetRemove(set, p);
    });
    const double peer_remove = time([&] {
        for (Record *p : lookups) peer.erase(p);
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

/// bench_containers [MILLIONS]: the largest index measured, 10 million records by default.
int main(int argc, char **argv) {
    const size_t millions = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10;
    for (const size_t size : {72, 512}) compareAllocators(size);
    compareSets(1000000);
    compareIndexes(100000, 9);
    compareIndexes(1000000, 3);
    compareResize(1000000, 5);
    if (millions > 1) {
        compareIndexes(millions * 1000000, 1);
        compareResize(millions * 1000000, 1);
    }
    return 0;
}
