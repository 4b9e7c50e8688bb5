// The hash tree as an index of digests against what an engineer would reach for instead. All sides
// see the same keys, the same comparison and the same hash.
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_set.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include <vex/hash_tree.h>

#include "peer.h"

namespace {

using bench::cpuSeconds;
using bench::show;

volatile uint64_t sink;

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

/// Nanoseconds per record of each phase. The look-ups called "chained" need the previous one's
/// result first, as in a store that acts on each.
struct Figures {
    double insert, hit, miss, chained_hit, chained_miss, iterate, erase;
    double insert_kernel;  ///< what of the insertion the kernel took to deliver memory
};

/// Makes every side deliver the record: a compiler that sees how little of it is used would leave
/// out the copy, where it can.
void use(const Record &record) {
    asm volatile("" : : "r"(&record) : "memory");
}

/// Makes the next look-up's address depend on a result; always 0.
size_t chain(size_t value) {
    asm volatile("" : "+r"(value));
    return value >> 8;
}

/// How hits and erasures follow one another: as the records came, like a backup that finds the
/// chunks of the one before, or without any pattern.
enum class Order { kInserted, kShuffled };

/// What the phases work on: the records in order of insertion and of look-ups, and absent ones.
struct Load {
    Load(size_t count, Order lookup_order)
        : order(lookup_order),
          records(randomRecords(count, 1)),
          lookups(records),
          absent(randomRecords(count, 2)) {
        if (order == Order::kShuffled)
            std::shuffle(lookups.begin(), lookups.end(), std::mt19937_64(3));
    }
    /// A phase's name with the order of look-ups.
    std::string named(const char *phase) const {
        return std::string(phase) + (order == Order::kInserted ? ", as inserted" : ", shuffled");
    }
    Order order;
    std::vector<Record> records, lookups, absent;
};

/// One container of a comparison. Its phases run in the order of this list, each over the whole
/// load, a range at a time.
class Side {
public:
    explicit Side(const Load &work) : load(work) {}
    virtual ~Side() = default;
    virtual void insert(size_t from, size_t to) = 0;
    virtual void hit(size_t from, size_t to) = 0;
    virtual void miss(size_t from, size_t to) = 0;
    virtual void chainedHit(size_t from, size_t to) = 0;
    virtual void chainedMiss(size_t from, size_t to) = 0;
    virtual void iterate(size_t from, size_t to) = 0;
    virtual void erase(size_t from, size_t to) = 0;

protected:
    const Load &load;
};

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

class TreeSide : public Side {
public:
    TreeSide(const Load &work, Keys keys) : Side(work), owner_(work.records.size(), keys) {}
    ~TreeSide() override { VexHashTreeIteratorDelete(&walk_); }

    void insert(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i)
            (void)VexHashTreeFindOrInsert(tree_, &load.records[i], nullptr);
    }
    void hit(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i) {
            (void)VexHashTreeGet(tree_, &load.lookups[i], &out_);
            use(out_);
        }
    }
    void miss(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i)
            sink = static_cast<uint64_t>(VexHashTreeGet(tree_, &load.absent[i], &out_));
    }
    void chainedHit(size_t from, size_t to) override {
        for (size_t i = from, link = 0; i < to; ++i) {
            (void)VexHashTreeGet(tree_, &load.lookups[i + link], &out_);
            link = chain(out_.payload[0]);
        }
    }
    void chainedMiss(size_t from, size_t to) override {
        for (size_t i = from, link = 0; i < to; ++i)
            link = chain(static_cast<size_t>(VexHashTreeGet(tree_, &load.absent[i + link], &out_)));
    }
    void iterate(size_t from, size_t to) override {
        if (from == 0) walk_ = VexHashTreeIteratorNewBegin(tree_);
        for (size_t i = from; i < to; ++i) {
            (void)VexHashTreeIteratorNext(walk_, &out_);
            use(out_);
        }
    }
    void erase(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i)
            (void)VexHashTreeRemove(tree_, &load.lookups[i], nullptr);
    }

private:
    Tree owner_;
    VexHashTree *tree_ = owner_.tree;
    VexHashTreeIterator *walk_ = nullptr;
    Record out_;
};

/// A container of the standard shape.
template <typename Container>
class PeerSide : public Side {
public:
    explicit PeerSide(const Load &work) : Side(work) {
        if constexpr (requires(Container & c) { c.reserve(1); })
            container_.reserve(work.records.size());
    }

    void insert(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i) container_.insert(load.records[i]);
    }
    void hit(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i) {
            const Record out = *container_.find(load.lookups[i]);
            use(out);
        }
    }
    void miss(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i)
            sink = container_.find(load.absent[i]) == container_.end();
    }
    void chainedHit(size_t from, size_t to) override {
        for (size_t i = from, link = 0; i < to; ++i) {
            const Record out = *container_.find(load.lookups[i + link]);
            link = chain(out.payload[0]);
        }
    }
    void chainedMiss(size_t from, size_t to) override {
        for (size_t i = from, link = 0; i < to; ++i)
            link = chain(container_.find(load.absent[i + link]) != container_.end() ? 1 : 0);
    }
    void iterate(size_t from, size_t to) override {
        if (from == 0) walk_ = container_.begin();
        for (size_t i = from; i < to; ++i) {
            const Record out = *walk_++;
            use(out);
        }
    }
    void erase(size_t from, size_t to) override {
        for (size_t i = from; i < to; ++i) container_.erase(load.lookups[i]);
    }

private:
    Container container_;
    typename Container::iterator walk_;
};

using FlatSet = absl::flat_hash_set<Record, Hash, Equal>;
using HashSet = std::unordered_set<Record, Hash, Equal>;
using TreeSet = absl::btree_set<Record, Less>;
using StdSet = std::set<Record, Less>;

constexpr struct {
    double Figures::*figure;
    void (Side::*run)(size_t from, size_t to);
} kPhases[] = {{&Figures::insert, &Side::insert},
               {&Figures::hit, &Side::hit},
               {&Figures::miss, &Side::miss},
               {&Figures::chained_hit, &Side::chainedHit},
               {&Figures::chained_miss, &Side::chainedMiss},
               {&Figures::iterate, &Side::iterate},
               {&Figures::erase, &Side::erase}};

constexpr double Figures::*kFigures[] = {
    &Figures::insert,       &Figures::hit,     &Figures::miss,  &Figures::chained_hit,
    &Figures::chained_miss, &Figures::iterate, &Figures::erase, &Figures::insert_kernel};

using Sides = std::vector<std::unique_ptr<Side>>;

double kernelSeconds() {
    rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(usage.ru_stime.tv_usec);
}

/// All phases of all sides, which take turns every 100,000 records, so that a machine whose speed
/// changes is as fast for one as for the other.
std::vector<Figures> takeTurns(size_t count, const Sides &sides) {
    constexpr size_t kTurn = 100000;
    std::vector<Figures> figures(sides.size());
    for (const auto &phase : kPhases) {
        for (size_t from = 0; from < count; from += kTurn)
            for (size_t i = 0; i < sides.size(); ++i) {
                const double kernel = kernelSeconds();
                figures[i].*phase.figure += cpuSeconds(
                    [&] { (*sides[i].*phase.run)(from, std::min(from + kTurn, count)); });
                if (phase.figure == &Figures::insert)
                    figures[i].insert_kernel += kernelSeconds() - kernel;
            }
    }
    for (Figures &f : figures)
        for (const auto figure : kFigures) f.*figure *= 1e9 / static_cast<double>(count);
    return figures;
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

/// The median round of one side.
Figures median(const std::vector<std::vector<Figures>> &rounds, size_t side) {
    Figures result{};
    for (const auto figure : kFigures) {
        std::vector<double> values;
        for (const auto &round : rounds) values.push_back(round[side].*figure);
        result.*figure = bench::median(values);
    }
    return result;
}

/// The rows that have targets.
void showAgainst(const Load &load, const char *peer, const Figures &ours, const Figures &theirs,
                 const char *insert, const char *hit, const char *miss, const char *erase) {
    const size_t count = load.records.size();
    show(count, "insert", ours.insert, peer, theirs.insert, insert);
    show(count, load.named("hit").c_str(), ours.hit, peer, theirs.hit, hit);
    show(count, "miss", ours.miss, peer, theirs.miss, miss);
    show(count, load.named("erase").c_str(), ours.erase, peer, theirs.erase, erase);
}

/// What has no target of its own: look-ups one after the other, a caller's own functions, and the
/// kernel's part, which depends on what memory other programs have left to it.
void showBeside(const Load &load, const char *peer, const Figures &ours, const Figures &called,
                const Figures &theirs) {
    const size_t count = load.records.size();
    const auto row = [&](const std::string &what, double mine, double peers) {
        show(count, what.c_str(), mine, peer, peers, "none");
    };
    row(load.named("chained hit"), ours.chained_hit, theirs.chained_hit);
    row("chained miss", ours.chained_miss, theirs.chained_miss);
    row("insert, caller's functions", called.insert, theirs.insert);
    row(load.named("hit, caller's functions"), called.hit, theirs.hit);
    row("miss, caller's functions", called.miss, theirs.miss);
    row(load.named("erase, caller's functions"), called.erase, theirs.erase);
    if (theirs.insert_kernel > 0)
        row("insert, the kernel's part", ours.insert_kernel, theirs.insert_kernel);
}

/// A peer by itself.
template <typename Container>
Figures measure(const Load &load) {
    Sides sides;
    sides.push_back(std::make_unique<PeerSide<Container>>(load));
    return takeTurns(load.records.size(), sides)[0];
}

void compareIndexes(size_t count, int rounds, Order order) {
    const Load load(count, order);
    const bool small = count < 1000000;
    std::vector<std::vector<Figures>> all;
    for (int i = 0; i < rounds; ++i) {
        Sides sides;
        sides.push_back(std::make_unique<TreeSide>(load, Keys::kDigests));
        sides.push_back(std::make_unique<TreeSide>(load, Keys::kCallers));
        sides.push_back(std::make_unique<PeerSide<FlatSet>>(load));
        if (small) sides.push_back(std::make_unique<PeerSide<HashSet>>(load));
        all.push_back(takeTurns(count, sides));
    }
    const Figures tree = median(all, 0), flat = median(all, 2);
    const char *const flat_name = "absl::flat_hash_set";
    if (small)
        showAgainst(load, flat_name, tree, flat, "<= 2.2", "<= 2.2", "<= 2.2", "<= 2.2");
    else
        showAgainst(load, flat_name, tree, flat, "<= 0.65", "<= 1.15", "<= 1.35", "<= 0.80");
    showBeside(load, flat_name, tree, median(all, 1), flat);
    if (small)
        showAgainst(load, "std::unordered_set", tree, median(all, 3), "<= 1.0", "<= 1.0", "<= 1.0",
                    "<= 1.0");
    if (small || order == Order::kInserted) return;
    show(count, "iterate in order", tree.iterate, "absl::btree_set", measure<TreeSet>(load).iterate,
         "<= 0.8");
    showAgainst(load, "std::set", tree, measure<StdSet>(load), "<= 0.10", "<= 0.10", "<= 0.10",
                "<= 0.10");
    showMemory(load);
}

/// Both sides grow when there is about a record a bucket.
void compareResize(size_t count, int rounds) {
    const Load load(count, Order::kInserted);
    const double ns = 1e9 / static_cast<double>(count);
    std::vector<double> ours, theirs, ours_kernel, theirs_kernel;
    const auto time = [&](std::vector<double> *all, std::vector<double> *kernel, auto grow) {
        const double before = kernelSeconds();
        all->push_back(cpuSeconds(grow) * ns);
        kernel->push_back((kernelSeconds() - before) * ns);
    };
    for (int i = 0; i < rounds; ++i) {
        const Tree owner(count);
        uint32_t bits = 0;
        while (1UL << bits < count) ++bits;
        (void)VexHashTreeSetBits(owner.tree, bits);
        for (const Record &r : load.records) (void)VexHashTreeFindOrInsert(owner.tree, &r, nullptr);
        time(&ours, &ours_kernel, [&] { (void)VexHashTreeSetBits(owner.tree, bits + 1); });
        HashSet peer;
        peer.reserve(count);
        for (const Record &r : load.records) peer.insert(r);
        time(&theirs, &theirs_kernel, [&] { peer.rehash(peer.bucket_count() * 2); });
    }
    const char *const peer = "std::unordered_set::rehash";
    show(count, "SetBits to twice the buckets", bench::median(ours), peer, bench::median(theirs),
         "<= 0.5");
    show(count, "SetBits, the kernel's part", bench::median(ours_kernel), peer,
         bench::median(theirs_kernel), "none");
}

}  // namespace

/// bench_index [MILLIONS]: the largest index measured, 10 million records by default.
int main(int argc, char **argv) {
    const size_t millions = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10;
    std::vector<size_t> counts = {100000, 1000000};
    if (millions > 1) counts.push_back(millions * 1000000);
    for (const size_t count : counts) {
        const int rounds = count < 1000000 ? 9 : 3;
        compareIndexes(count, rounds, Order::kInserted);
        compareIndexes(count, rounds, Order::kShuffled);
        if (count >= 1000000) compareResize(count, rounds);
    }
    return 0;
}
