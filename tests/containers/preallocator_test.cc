#include <pthread.h>

#include <fstream>

#include "support/test.h"

namespace {

constexpr uint64_t kMarker = ~0UL;

struct Holder {
    Holder(uint64_t slab_size, uint64_t block_size, uint64_t *budget = nullptr, pthread_mutex_t *mutex = nullptr)
        : a(preallocator_construct(slab_size, block_size, kMarker, 0, budget, mutex)) {}
    ~Holder() { preallocator_destruct(a); }
    preallocator *a;
};

/// What @p write prints, with addresses as "@".
template <typename Write>
std::string printed(Write write) {
    testing::internal::CaptureStdout();
    write(stdout);
    std::string result = testing::internal::GetCapturedStdout();
    for (size_t at = 0; (at = result.find("0x", at)) != std::string::npos; ++at) {
        const size_t end = result.find_first_not_of("0123456789abcdef", at + 2);
        if (end - at > 10) result.replace(at, end - at, "@");  // flags have eight digits
    }
    return result;
}

uint64_t &word(void *block, int index = 0) { return static_cast<uint64_t *>(block)[index]; }

TEST(Preallocator, RefusesSizesWithTheirLines) {
    EXPECT_EQ(1U, preallocator_calc_num_blocks_per_slab(36, 24));
    EXPECT_EQ(8012U, preallocator_calc_slab_size(100, 80));
    LogCapture log;
    for (const auto &[slab, block] : {std::pair(35UL, 24UL), {35, 23}, {8192, ~0UL - 3}})
        EXPECT_EQ(nullptr, Holder(slab, block).a);
    EXPECT_EQ(0U, preallocator_calc_num_blocks_per_slab(35, 23) + preallocator_calc_slab_size(16, 0) +
                      preallocator_calc_slab_size(~0UL - 4, 1));
    EXPECT_EQ(
        "22 preallocator_construct: slab size smaller than block size\n"
        "22 preallocator_construct: block size smaller than block\n"
        "22 preallocator_construct: slab size smaller than block size\n"
        "34 preallocator_calc_num_blocks_per_slab: block size smaller than block\n"
        "34 preallocator_calc_slab_size: too many blocks per slab\n"
        "34 preallocator_calc_slab_size: too many blocks per slab",
        log.text());
}

TEST(Preallocator, HandsOutBlocksInTheirOrderAndShowsThem) {
    const Holder held(16 + 3 * 32, 32);
    preallocator *const a = held.a;
    std::vector<char *> blocks;
    for (int i = 0; i < 4; ++i) blocks.push_back(static_cast<char *>(preallocator_alloc(a)));
    EXPECT_EQ(blocks[0] + 32, blocks[1]);
    EXPECT_EQ(blocks[1] + 32, blocks[2]);
    EXPECT_EQ(kMarker + 1, word(blocks[3]));
    EXPECT_EQ(4U, preallocator_get_num_allocated_blocks(a));
    preallocator_free(a, blocks[1]);
    std::vector<void *> walked;
    preallocator_iterator it;
    for (void *p = preallocator_iterator_first(&it, a); p != nullptr; p = preallocator_iterator_next(&it))
        walked.push_back(p);
    EXPECT_THAT(walked, ElementsAre(blocks[3], blocks[2], blocks[0]));
    EXPECT_EQ(nullptr, preallocator_iterator_next(&it));
    EXPECT_EQ(
        "a->flags = 0x00000000\na->free_block_marker = @\na->block_size = 32\n"
        "a->blocks_per_slab = 3\na->slab_size = 112\na->num_slabs = 2\na->num_free_blocks = 3\n"
        "slab @ (end @): *__ (2 blocks free, 1 used)\nslab @ (end @): *_* (1 blocks free, 2 used)\n",
        printed([&](FILE *f) { preallocator_print(f, a); }));
    EXPECT_EQ(blocks[1], preallocator_alloc(a));
    EXPECT_EQ(0, preallocator_preallocate(a, 6));
    EXPECT_EQ(4U, preallocator_get_num_slabs(a));
    EXPECT_EQ(0, preallocator_set_flags(a, 6 | PREALLOCATOR_MLOCK));
    EXPECT_EQ(1U, preallocator_get_flags(a));
    preallocator_reset(a);
    EXPECT_EQ(12U + 8U, preallocator_get_num_free_blocks(a));
    EXPECT_EQ(blocks[0], preallocator_alloc(a));
    for (int i = 0; i < 12; ++i) EXPECT_NE(nullptr, preallocator_alloc(a));
    EXPECT_EQ(5U, preallocator_get_num_slabs(a));
}

TEST(Preallocator, FindsEveryKindOfDamage) {
    // the damage is done to two slabs of four 24-byte blocks with blocks 0 and 1 live
    static const std::tuple<const char *, void (*)(preallocator * a, void **live), std::string> kRows[] = {
        {"sound", [](preallocator *, void **) {}, ""},
        {"too many slabs", [](preallocator *a, void **) { a->num_slabs = 1; },
            "Error: 2 slabs counted, a->num_slabs = 1"},
        {"circle of slabs", [](preallocator *a, void **) { *static_cast<void **>(a->slabs) = a->slabs; },
            "Error: 3 slabs counted, a->num_slabs = 2Error: 8 blocks with free block markers found, "
            "a->num_free_blocks = 6\n"
            "Error: block @ in a->free_blocks but not in any slab\n"
            "Error: a->num_free_blocks = 6, but found only 4 blocks in a->free_blocks\n"},
        {"lost marker", [](preallocator *a, void **) { word(a->free_blocks) = 5; },
            "Error: 5 blocks with free block markers found, a->num_free_blocks = 6\n"
            "Error: block->free_block_marker != a->free_block_marker in a->free_blocks for block @\n"
            "Error: a->num_free_blocks = 6, but found only 0 blocks in a->free_blocks\n"},
        {"wild pointer", [](preallocator *a, void **) { word(a->free_blocks, 2) = 0x123456789000; },
            "Error: block @ in a->free_blocks but not in any slab\n"
            "Error: a->num_free_blocks = 6, but found only 1 blocks in a->free_blocks\n"},
        {"wrong prev", [](preallocator *a, void **) { word(a->free_blocks, 1) = 1; },
            "Error: block->next->prev != block->next in a->free_blocks for block @\n"
            "Error: a->num_free_blocks = 6, but found only 0 blocks in a->free_blocks\n"},
        {"more than counted",
            [](preallocator *a, void **live) {
                preallocator_free(a, live[1]);
                a->num_free_blocks = 6;
            },
            "Error: 7 blocks with free block markers found, a->num_free_blocks = 6\n"
            "Error: more than a->num_free_blocks = 6 blocks in a->free_blocks\n"},
    };
    for (const auto &[name, harm, expected] : kRows) {
        SCOPED_TRACE(name);
        const Holder held(16 + 4 * 24, 24);
        void *live[2] = {preallocator_alloc(held.a), preallocator_alloc(held.a)};
        ASSERT_EQ(0, preallocator_preallocate(held.a, 6));
        const preallocator kept = *held.a;
        void *const older = *static_cast<void **>(held.a->slabs);
        harm(held.a, live);
        int result = 0;
        EXPECT_EQ(expected, printed([&](FILE *f) { result = preallocator_validate(f, held.a); }));
        EXPECT_EQ(expected.empty() ? 0 : -1, result);
        *held.a = kept;
        *static_cast<void **>(held.a->slabs) = older;
    }
    const Holder held(16 + 2 * 24, 24);
    auto *const block = static_cast<char *>(preallocator_alloc(held.a));
    const auto verdict = [&](void *p) {
        return printed([&](FILE *f) { EXPECT_EQ(p == block ? 0 : -1, preallocator_validate_block(f, held.a, p)); });
    };
    EXPECT_EQ("", verdict(block));
    EXPECT_EQ("Error: the specified block @ is not allocated (it's free_block_marker is set).", verdict(block + 24));
    for (char *p : {block + 1, block - 16})
        EXPECT_EQ(
            "Error: the specified block @ is inside slab @-@ but does not point to the begin "
            "of a block.\n",
            verdict(p));
    EXPECT_EQ("Error: the specified block @ is not inside any slab of the preallocator.\n", verdict(block + 48));
}

/// Blocks with a serial number and references to them, moved as a container would.
struct Model {
    explicit Model(preallocator *allocator) : a(allocator) {}
    void take(uint64_t serial) {
        void *const block = preallocator_alloc(a);
        if (block == nullptr) return;
        word(block) = serial;
        word(block, 2) = ~serial;
        live[serial] = block;
    }
    static void move(void *from, void *to, uint64_t size, void *user) {
        auto &model = *static_cast<Model *>(user);
        ASSERT_EQ(from, model.live.at(word(from)));
        memcpy(to, from, size);
        model.live[word(to)] = to;
    }
    void check() {
        EXPECT_EQ(live.size(), preallocator_get_num_allocated_blocks(a));
        EXPECT_EQ(0, preallocator_validate(stderr, a));
        for (const auto &[serial, block] : live) {
            ASSERT_EQ(serial, word(block));
            ASSERT_EQ(~serial, word(block, 2));
            EXPECT_EQ(0, preallocator_validate_block(stderr, a, block));
        }
    }
    preallocator *a;
    std::map<uint64_t, void *> live;
};

TEST(Preallocator, KeepsBlocksThroughRandomUseReclaimAndFailingMemory) {
    std::mt19937_64 random(testSeed());
    struct Shape {
        uint64_t slab_size, block_size;
    };
    // slabs by themselves, those that share huge pages, those of several
    for (const auto &[slab_size, block_size] : {Shape{16 + 5 * 32, 32}, {512 << 10, 128 << 10}, {3 << 20, 256 << 10}}) {
        uint64_t budget = 40;
        {
            const Holder held(slab_size, block_size, &budget);
            Model model(held.a);
            for (uint64_t step = 1; step < 3000; ++step) {
                const LogCapture log;
                std::vector<std::string> failing;
                if (random() % 4 == 0) failing.push_back("mmap");
                if (random() % 8 == 0) failing.push_back("malloc");
                FaultScope fault(failing, 1, ENOMEM);
                fault.keepFailing();
                const bool growing = (step & 512) != 0;
                if (random() % 3 < (growing ? 2U : 1U)) {
                    model.take(step);
                } else if (!model.live.empty()) {
                    auto victim = model.live.lower_bound(random() % step);
                    if (victim == model.live.end()) victim = model.live.begin();
                    preallocator_free(held.a, victim->second);
                    model.live.erase(victim);
                }
                if (step % 200 == 0) (void)preallocator_slab_reclaim_all(held.a, Model::move, &model);
                if (step % 100 == 0) model.check();
                ASSERT_EQ(40U, budget + preallocator_get_num_slabs(held.a));
            }
        }
        EXPECT_EQ(40U, budget);
    }
}

uint64_t mappedPages() {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

TEST(Preallocator, LetsSmallSlabsShareHugePagesAndUnmapsThemAll) {
    const auto keepNumber = [](void *from, void *to, uint64_t, void *) { EXPECT_EQ(1U, word(to, 3) = word(from, 3)); };
    constexpr uint64_t kSlab = 8192, kHugePage = 2 << 20, kSlabs = 4 * kHugePage / kSlab;
    const uint64_t before = mappedPages();
    for (int round = 0; round < 12; ++round) {
        const Holder held(kSlab, kSlab - 16);
        std::vector<void *> blocks(kSlabs);
        for (void *&block : blocks) word(block = preallocator_alloc(held.a), 3) = 1;
        std::set<uintptr_t> huge_pages;
        for (size_t i = kHugePage / kSlab; i < kSlabs; ++i)
            huge_pages.insert(reinterpret_cast<uintptr_t>(blocks[i]) / kHugePage);
        EXPECT_EQ(3U, huge_pages.size());
        for (size_t i = 0; i < kSlabs / 3; ++i) preallocator_free(held.a, blocks[i]);
        EXPECT_EQ(kSlabs / 3, preallocator_slab_reclaim_all(held.a, keepNumber, nullptr));
        EXPECT_EQ(blocks[kSlabs - kSlabs / 3], preallocator_alloc(held.a)) << "a place given back serves again";
        // a count that is too high after a reset lets the reclaimed slab's block go to a new slab
        preallocator_reset(held.a);
        for (size_t i = 0; i <= kSlabs - kSlabs / 3; ++i) word(preallocator_alloc(held.a), 3) = 1;
        held.a->num_free_blocks = 1;
        EXPECT_EQ(1, preallocator_slab_reclaim(held.a, keepNumber, nullptr));
        held.a->num_free_blocks = 0;
        if (round % 2 == 0) preallocator_reinit(held.a);
        EXPECT_EQ(0, preallocator_preallocate(held.a, kSlabs));
        EXPECT_EQ(0, preallocator_validate(stderr, held.a));
    }
    EXPECT_LT(mappedPages(), before + 10 * kHugePage / 4096);
}

TEST(Preallocator, ReportsAFailedSlabAndCountsOneBudgetForSeveralThreads) {
    uint64_t budget = 16;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    {
        const Holder held(4096, 64, &budget, &mutex);
        const FaultScope fault({"mmap", "malloc"}, 1, ENOMEM, FaultScope::kLasting);
        EXPECT_FAILS_WITH("12 preallocator_slab_add: could not allocate memory (../preallocator:285)", nullptr,
            preallocator_alloc(held.a));
        EXPECT_EQ(16U, budget);
    }
    inThreads(3, [&](int) {
        const Holder held(4096, 64, &budget, &mutex);
        for (int round = 0; round < 200; ++round) {
            errno = 0;
            EXPECT_EQ(preallocator_preallocate(held.a, 63 * 7) == 0 ? 0 : ENOSPC, errno);
            preallocator_reinit(held.a);
        }
    });
    EXPECT_EQ(16U, budget);
}

}  // namespace
