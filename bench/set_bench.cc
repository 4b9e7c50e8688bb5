// The set of pointers against std::set. Both take turns, so that a machine whose speed changes is
// as fast for one as for the other.
#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include <vex/set.h>

#include "peer.h"

namespace {

constexpr size_t kObjects = 1000000, kTurn = 100000;

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

struct VexSide {
    VexSet *set = VexSetNew(comparePointers, hashPointer, nullptr, kObjects + 1);
    ~VexSide() { VexSetDelete(&set); }
    void insert(Object *p) { (void)VexSetFindOrInsert(set, p, nullptr); }
    void find(Object *p) { sink = VexSetFind(set, p) != nullptr; }
    void remove(Object *p) { (void)VexSetRemove(set, p); }
};

struct StdSide {
    std::set<Object *> set;
    void insert(Object *p) { set.insert(p); }
    void find(Object *p) { sink = set.find(p) != set.end(); }
    void remove(Object *p) { set.erase(p); }
};

/// Nanoseconds an object, of each round.
struct Times {
    std::vector<double> ours, theirs;
};

/// Gives every object to both sides, a turn at a time.
template <typename Ours, typename Theirs>
void takeTurns(const std::vector<Object *> &objects, Times *times, Ours ours, Theirs theirs) {
    double spent[2] = {};
    for (size_t from = 0; from < objects.size(); from += kTurn) {
        const auto turn = [&](auto work) {
            return bench::cpuSeconds([&] {
                std::for_each_n(objects.begin() + static_cast<ptrdiff_t>(from), kTurn, work);
            });
        };
        spent[0] += turn(ours);
        spent[1] += turn(theirs);
    }
    times->ours.push_back(spent[0] * 1e9 / kObjects);
    times->theirs.push_back(spent[1] * 1e9 / kObjects);
}

void showTimes(const char *what, const Times &times) {
    bench::show(kObjects, what, bench::median(times.ours), "std::set", bench::median(times.theirs),
                "<= 0.30");
}

}  // namespace

int main() {
    std::vector<Object> objects(kObjects);
    std::vector<Object *> order;
    for (Object &object : objects) order.push_back(&object);
    std::shuffle(order.begin(), order.end(), std::mt19937_64(5));
    std::vector<Object *> lookups = order;
    std::shuffle(lookups.begin(), lookups.end(), std::mt19937_64(6));
    Times insert, find, remove;
    for (int round = 0; round < 5; ++round) {
        VexSide ours;
        StdSide theirs;
        takeTurns(
            order, &insert, [&](Object *p) { ours.insert(p); },
            [&](Object *p) { theirs.insert(p); });
        takeTurns(
            lookups, &find, [&](Object *p) { ours.find(p); }, [&](Object *p) { theirs.find(p); });
        takeTurns(
            lookups, &remove, [&](Object *p) { ours.remove(p); },
            [&](Object *p) { theirs.remove(p); });
    }
    showTimes("set of pointers, insert", insert);
    showTimes("set of pointers, find", find);
    showTimes("set of pointers, remove", remove);
    return 0;
}
