#include <vex/hash_tree.h>

#include "support/test.h"

namespace {

using testing::ElementsAre;

constexpr uint64_t kSlab = 4096 + 4;  // nodes at odd addresses

struct Record {
    uint64_t key, value, rest[4];
};
static_assert(sizeof(Record) == 48);
Record record(uint64_t key, uint64_t value = 0) { return {key, value, {key, key, key, ~key}}; }

/// Records in a tree may lie at odd addresses.
Record load(const void *p) {
    Record r;
    memcpy(&r, p, sizeof r);
    return r;
}

/// A tree whose comparison can be told to fail, and its model: records by bucket and key.
struct Subject {
    explicit Subject(uint32_t bits, uint64_t slab_size = kSlab)
        : tree(VexHashTreeNew(bits, sizeof(Record), compare, hash, this, slab_size)) {}
    ~Subject() { VexHashTreeDelete(&tree); }
    static int compare(void *user, const void *a, const void *b) {
        auto &left = static_cast<Subject *>(user)->compares_left;
        if (left != 0 && --left == 0) return -2;
        const uint64_t x = load(a).key, y = load(b).key;
        return x < y ? -1 : x > y;
    }
    static uint64_t hash(void *, const void *data) { return load(data).key * 0x9e3779b97f4a7c15 >> 32; }
    using Position = std::pair<uint64_t, uint64_t>;
    Position at(uint64_t key) const {
        const Record r = record(key);
        return {hash(nullptr, &r) & ((1UL << tree->bits) - 1), key};
    }
    void check() {
        EXPECT_EQ(model.size(), VexHashTreeGetNumUsedNodes(tree));
        EXPECT_EQ(1, VexHashTreeValidateCompletely(tree));
        EXPECT_EQ(0, preallocator_validate(stderr, tree->allocator));
        uint64_t count = 0;
        for (uint64_t b = 0; b < 1UL << tree->bits; ++b) count += VexHashTreeNodeCount(tree->buckets[b]);
        EXPECT_EQ(model.size(), count);
        VexHashTreePath path, back;
        VexHashTreePathInit(&path);
        Record r;
        auto expected = model.begin();
        for (int more = VexHashTreeFirstNode(tree, &r, &path); more == 1;
             more = VexHashTreeNextNode(tree, &r, &r, &path), ++expected)
            ASSERT_TRUE(expected != model.end() && expected->first.second == r.key && expected->second == r.value);
        EXPECT_TRUE(expected == model.end());
        VexHashTreePathInit(&back);
        for (int more = VexHashTreeLastNode(tree, &r, &back); more == 1;
             more = VexHashTreePrevNode(tree, &r, &r, &back)) {
            ASSERT_TRUE(expected != model.begin());
            ASSERT_EQ((--expected)->first.second, r.key);
        }
        EXPECT_TRUE(expected == model.begin());
    }
    /// The model follows a changed number of buckets.
    void rebucket() {
        std::map<Position, uint64_t> next;
        for (const auto &[position, value] : model) next[at(position.second)] = value;
        model.swap(next);
    }

    VexHashTree *tree;
    uint64_t compares_left = 0;
    std::map<Position, uint64_t> model;
};

void insertWithPath(Subject &s, const Record &r) {
    VexHashTreePath path;
    Record out{};
    const bool known = s.model.count(s.at(r.key)) != 0;
    ASSERT_EQ(known ? 1 : 0, VexHashTreeFindOrInsertNode(s.tree, &r, &out, &path));
    if (!known) s.model[s.at(r.key)] = r.value;
    EXPECT_EQ(s.model[s.at(r.key)], out.value);
    VexHashTreeNode *const node = VexHashTreePathPeek(&path);
    EXPECT_EQ(r.key, load(VexHashTreeNodeGetNodeData(node)).key);
    ASSERT_EQ(1, VexHashTreePathValidateCompletely(&path, s.tree->buckets[s.at(r.key).first], node));
}

/// One random operation on tree and model; with a comparison about to fail, an error may come instead
/// and must change nothing.
void operate(Subject &s, std::mt19937_64 &random, uint64_t keys) {
    const uint64_t key = random() % keys, value = random();
    const Record r = record(key, value);
    const auto place = s.at(key);
    const bool known = s.model.count(place) != 0;
    const uint64_t before = known ? s.model[place] : 0, deletes = VexHashTreeGetNumDeletes(s.tree);
    vextest::LogCapture log;
    if (random() % 8 == 0) s.compares_left = 1 + random() % 6;
    Record out = record(~0UL, ~0UL);
    int result = 0;
    const auto operation = random() % 6;
    if (operation == 0) result = VexHashTreeFindOrInsert(s.tree, &r, &out);
    if (operation == 1) result = VexHashTreeReplaceOrInsert(s.tree, &r, &out);
    if (operation == 2) result = VexHashTreeRemove(s.tree, &r, &out);
    if (operation == 3) result = VexHashTreeGet(s.tree, &r, &out);
    if (operation == 4) result = VexHashTreeNextNode(s.tree, &r, &out, nullptr);
    if (operation == 5) result = VexHashTreePrevNode(s.tree, &r, &out, nullptr);
    s.compares_left = 0;
    if (result == -1) {
        EXPECT_EQ(EINVAL, errno);
        EXPECT_GE(log.lines().size(), 2U);
    } else if (operation == 0) {
        EXPECT_EQ(known ? 0 : 1, result);
        if (!known) s.model[place] = value;
    } else if (operation == 1) {
        EXPECT_EQ(known ? 1 : 0, result);
        s.model[place] = value;
    } else if (operation <= 3) {
        EXPECT_EQ(known ? 1 : 0, result);
        if (operation == 2) s.model.erase(place);
    } else {
        auto expected = operation == 4 ? s.model.upper_bound(place) : s.model.lower_bound(place);
        const bool end = expected == (operation == 4 ? s.model.end() : s.model.begin());
        ASSERT_EQ(end ? 0 : 1, result);
        if (end) return;
        EXPECT_EQ(operation == 4 ? expected->first.second : (--expected)->first.second, out.key);
        return;
    }
    const bool given = result != -1 && known;
    EXPECT_EQ(given ? key : ~0UL, out.key);
    EXPECT_EQ(given ? before : ~0UL, out.value);
    EXPECT_EQ(deletes + (operation == 2 && given), VexHashTreeGetNumDeletes(s.tree));
    EXPECT_EQ(s.model.size(), VexHashTreeGetNumUsedNodes(s.tree));
}

TEST(HashTree, FollowsAPlainModelThroughRandomOperations) {
    std::mt19937_64 random(vextest::testSeed());
    // VEX_TEST_STEPS=55000000 grows one tree to 20 million records, within a quarter of an hour
    const char *const scaled = getenv("VEX_TEST_STEPS");
    const uint64_t steps = scaled != nullptr ? strtoul(scaled, nullptr, 10) : 20000;
    const auto sizes = scaled != nullptr ? std::vector<uint32_t>{22} : std::vector<uint32_t>{0, 3, 9, 13};
    for (const uint32_t bits : sizes) {
        SCOPED_TRACE(bits);
        Subject s(bits, scaled != nullptr ? 2UL << 20 : kSlab);
        for (uint64_t step = 1; step <= steps; ++step) {
            const uint64_t keys = scaled != nullptr ? steps : step / 4000 % 2 == 0 ? 60 : 2000;
            if (random() % 4 == 0) insertWithPath(s, record(random() % keys, random()));
            operate(s, random, keys);
            if (step % (scaled != nullptr ? steps / 3 : 997) == 0) {
                ASSERT_EQ(0, VexHashTreeSetBits(s.tree, static_cast<uint32_t>(random() % 14 + bits / 2)));
                s.rebucket();
            }
            if (step % (scaled != nullptr ? steps / 4 : 500) == 0) s.check();
            if (step % (scaled != nullptr ? steps : 7000) == 0) {
                const uint64_t deletes = VexHashTreeGetNumDeletes(s.tree) + s.model.size();
                RecordProperty("records", std::to_string(s.model.size()));
                ASSERT_EQ(0, VexHashTreeEmpty(s.tree));
                s.model.clear();
                EXPECT_EQ(deletes, VexHashTreeGetNumDeletes(s.tree));
                EXPECT_EQ(0U, VexHashTreeGetNumSlabs(s.tree));
            }
            if (testing::Test::HasFailure()) return;
        }
        s.check();
    }
}

TEST(HashTree, IteratorsKeepTheirPlaceThroughEveryChange) {
    std::mt19937_64 random(vextest::testSeed());
    for (const uint32_t bits : {0U, 2U, 8U}) {
        SCOPED_TRACE(bits);
        Subject s(bits);
        for (uint64_t key = 0; key < 300; ++key) insertWithPath(s, record(key * 2));
        VexHashTreeIterator it;
        ASSERT_EQ(&it, VexHashTreeIteratorInitBegin(&it, s.tree));
        // where the iterator stands: on a key, before all or past all
        enum { kBefore, kOn, kPast } where = kBefore;
        Subject::Position place;
        for (int step = 0; step < 20000; ++step) {
            Record out = record(~0UL);
            if (random() % 3 == 0) {
                const Record r = record(random() % 600, random());
                const auto changed = random() % 8 == 0 && where == kOn ? place : s.at(r.key);
                const Record victim = record(changed.second, r.value);
                if (random() % 2 == 0) {
                    EXPECT_NE(-1, VexHashTreeReplaceOrInsert(s.tree, &victim, nullptr));
                    s.model[changed] = r.value;
                } else {
                    EXPECT_EQ(static_cast<int>(s.model.erase(changed)), VexHashTreeRemove(s.tree, &victim, nullptr));
                }
                if (random() % 16 == 0) {
                    ASSERT_EQ(0, VexHashTreeSetBits(s.tree, static_cast<uint32_t>(random() % 9)));
                    s.rebucket();
                    if (where == kOn) place = s.at(place.second);
                }
            } else if (random() % 8 == 0) {
                const auto here = s.model.find(place);
                const bool there = where == kOn && here != s.model.end();
                ASSERT_EQ(there ? 1 : 0, VexHashTreeIteratorCurrent(&it, &out));
                ASSERT_TRUE(!there || here->second == out.value);
            } else if (random() % 50 == 0) {
                const Record key = record(random() % 600);
                const bool there = s.model.count(s.at(key.key)) != 0;
                ASSERT_EQ(there ? 1 : 0, VexHashTreeIteratorFind(&it, &key, &out));
                if (there) where = kOn, place = s.at(key.key);
            } else {
                const bool forward = step / 700 % 2 == 0;
                auto next = s.model.begin();
                bool end = false;
                if (forward) {
                    if (where == kOn) next = s.model.upper_bound(place);
                    end = where == kPast || next == s.model.end();
                } else {
                    next = where == kOn ? s.model.lower_bound(place) : s.model.end();
                    end = where == kBefore || next == s.model.begin();
                    if (!end) --next;
                }
                ASSERT_EQ(
                    end ? 0 : 1, forward ? VexHashTreeIteratorNext(&it, &out) : VexHashTreeIteratorPrev(&it, &out));
                where = !end ? kOn : forward ? kPast : kBefore;
                if (!end) {
                    place = next->first;
                    ASSERT_EQ(place.second, out.key);
                    ASSERT_EQ(next->second, out.value);
                }
            }
        }
        VexHashTreeIteratorDeinit(&it);
    }
}

/// The same records under the same links and balances.
bool haveOneShape(VexHashTreeNode *a, VexHashTreeNode *b, size_t size) {
    if (a == nullptr || b == nullptr) return a == b;
    return a->balance == b->balance &&
           memcmp(VexHashTreeNodeGetNodeData(a), VexHashTreeNodeGetNodeData(b), size) == 0 &&
           haveOneShape(a->left, b->left, size) && haveOneShape(a->right, b->right, size);
}

TEST(HashTree, TreatsDigestsAsACallersOwnFunctionsWould) {
    const VexHashTreeCompare compare = [](void *, const void *a, const void *b) {
        const int order = memcmp(a, b, 32);
        return (order > 0) - (order < 0);
    };
    const VexHashTreeHash hash = [](void *, const void *data) {
        uint64_t words[2];
        memcpy(words, data, sizeof words);
        return words[1];
    };
    std::mt19937_64 random(vextest::testSeed());
    for (const uint64_t size : {32, 33, 47, 48, 49, 64, 80}) {
        VexHashTree *trees[] = {
            VexHashTreeNew(2, size, VexHashTreeCompareDigest, VexHashTreeHashDigest, nullptr, kSlab),
            VexHashTreeNew(2, size, compare, hash, nullptr, kSlab)};
        for (int i = 0; i < 6000; ++i) {
            alignas(16) unsigned char memory[3][81] = {};
            unsigned char *const data = memory[0] + 1, *const expected = memory[1] + 1;
            unsigned char *const out = random() % 2 == 0 ? data : memory[2] + 1;
            data[8] = static_cast<unsigned char>(random() % 64);         // picks the bucket
            data[11] = static_cast<unsigned char>(random() % 2 * 0xf8);  // and what it notes
            data[random() % 4 * 8 + 7] = static_cast<unsigned char>(random() % 2);
            for (size_t at = 32; at < size; ++at) data[at] = static_cast<unsigned char>(random());
            auto *const operation = std::array{VexHashTreeFindOrInsert, VexHashTreeReplaceOrInsert, VexHashTreeRemove,
                VexHashTreeRemove, VexHashTreeGet}[random() % 5];
            memcpy(expected, data, size);
            memcpy(memory[2] + 1, data, size);
            const int result = operation(trees[1], data, expected);
            ASSERT_EQ(result, operation(trees[0], data, out));
            ASSERT_EQ(0, memcmp(expected, out, size));
            if (i % 1500 != 1499) continue;
            for (uint64_t b = 0; b < 1U << trees[0]->bits; ++b)
                ASSERT_TRUE(haveOneShape(trees[0]->buckets[b], trees[1]->buckets[b], size));
            ASSERT_EQ(1, VexHashTreeValidateCompletely(trees[0]));  // hashes by way of the functions
            for (VexHashTree *tree : trees)
                ASSERT_EQ(0, VexHashTreeSetBits(tree, std::array{13U, 0U, 5U, 3U}[static_cast<size_t>(i) / 1500]));
        }
        EXPECT_LT(50U, VexHashTreeGetNumUsedNodes(trees[0]));
        const std::array<unsigned char, 80> digest{};
        for (VexHashTree *&tree : trees) {
            const vextest::LogCapture log;
            VexHashTreeDeinit(tree);
            EXPECT_EQ(-1, VexHashTreeGet(tree, &digest, nullptr));
            EXPECT_EQ(0, VexHashTreeSetBits(tree, 9));  // buckets again, but nothing to make nodes of
            EXPECT_EQ(-1, VexHashTreeFindOrInsert(tree, &digest, nullptr));
            VexHashTreeDelete(&tree);
        }
    }
}

TEST(HashTree, LosesNothingWhenMemoryRunsOut) {
    Subject s(1);
    for (uint64_t key = 0; key < 30; ++key) insertWithPath(s, record(key));
    const auto attempts = vextest::forEachFault({"malloc", "calloc"}, ENOMEM, [](const vextest::FaultScope &fault) {
        vextest::LogCapture log;
        VexHashTree *tree = VexHashTreeNew(3, 48, Subject::compare, Subject::hash, nullptr, kSlab);
        VexHashTreeIterator *it = tree != nullptr ? VexHashTreeIteratorNewEnd(tree) : nullptr;
        const int resized = tree != nullptr ? VexHashTreeSetBits(tree, 5) : -1;
        EXPECT_EQ(fault.fired(), tree == nullptr || it == nullptr || resized != 0);
        EXPECT_EQ(fault.fired(), !log.lines().empty());
        VexHashTreeIteratorDelete(&it);
        VexHashTreeDelete(&tree);
    });
    EXPECT_EQ(7U, attempts);
    {
        vextest::LogCapture log;
        vextest::FaultScope fault({"mmap", "malloc"}, 1, ENOMEM);
        fault.keepFailing();
        for (uint64_t key = 1000; VexHashTreeGetNumUnusedNodes(s.tree) != 0; ++key) insertWithPath(s, record(key));
        const Record r = record(7);
        EXPECT_EQ(-1, VexHashTreeGet(s.tree, &r, nullptr));
        EXPECT_EQ(ENOMEM, errno);
        EXPECT_THAT(
            log.lines(), ElementsAre("12 preallocator_slab_add: could not allocate memory (../preallocator:285)",
                             "12 VexHashTreeFindNode: unable to create new node: Cannot allocate memory"));
    }
    s.check();
}

TEST(HashTree, SaysWhatIsWrong) {
    Subject s(0);
    VexHashTreeIterator it;
    const Record r = record(1);
    vextest::LogCapture log;
    EXPECT_EQ(nullptr, VexHashTreeNew(30, 8, Subject::compare, Subject::hash, nullptr, kSlab));
    EXPECT_EQ(nullptr, VexHashTreeNew(1, 8, Subject::compare, Subject::hash, nullptr, 43));
    EXPECT_EQ(nullptr, VexHashTreeNew(1, ~0UL, Subject::compare, Subject::hash, nullptr, ~0UL));
    EXPECT_EQ(nullptr, VexHashTreeNew(1, 31, VexHashTreeCompareDigest, VexHashTreeHashDigest, nullptr, kSlab));
    EXPECT_EQ(-1, VexHashTreeSetBits(s.tree, 30));
    EXPECT_EQ(UINT32_MAX, VexHashTreeGetBits(nullptr));
    EXPECT_EQ(nullptr, VexHashTreeIteratorInitFind(&it, s.tree, &r, nullptr));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, VexHashTreeIteratorInitLast(&it, s.tree, nullptr));
    VexHashTreeDeinit(s.tree);
    EXPECT_EQ(UINT64_MAX, VexHashTreeGetNodeSize(s.tree));
    EXPECT_THAT(log.lines(),
        ElementsAre("22 VexHashTreeInit: invalid NULL parameter",
            "22 preallocator_construct: slab size smaller than block size",
            "22 VexHashTreeInit: failed to initialize preallocator",
            "22 preallocator_construct: slab size smaller than block size",
            "22 VexHashTreeInit: failed to initialize preallocator", "22 VexHashTreeInit: record smaller than a digest",
            "22 VexHashTreeSetBits: invalid parameter", "22 VexHashTreeGetBits: invalid NULL parameter",
            "2 VexHashTreeIteratorInitFind: failed to find tree iterator: No such file or directory",
            "2 VexHashTreeIteratorInitLast: failed to find last tree iterator position: No such file or directory",
            "22 preallocator_get_block_size: invalid NULL parameter",
            "22 VexHashTreeGetNodeSize: preallocator_get_slab_size failed: Invalid argument"));
    log.clear();
    Subject noted(12);  // from here on a byte tells what a bucket may hold
    insertWithPath(noted, r);
    auto *const notes = reinterpret_cast<uint8_t *>(noted.tree->buckets) - 1;  // that of bucket 0
    const uint64_t bucket = noted.at(1).first;
    for (const auto &[place, damage] : {std::pair(bucket, 0), std::pair(bucket ^ 1, 1)}) {
        const uint8_t right = std::exchange(*(notes - place), static_cast<uint8_t>(damage));
        EXPECT_EQ(0, VexHashTreeValidateCompletely(noted.tree));
        *(notes - place) = right;
        EXPECT_EQ(1, VexHashTreeValidateCompletely(noted.tree));
    }
    log.clear();
    Subject failing(0);  // small, so it compares before it calls a record absent
    for (uint64_t key = 1; key < 4; ++key) insertWithPath(failing, record(key));
    const Record absent = record(5);  // notes would know it is
    for (auto *operation : {VexHashTreeFindOrInsert, VexHashTreeReplaceOrInsert, VexHashTreeRemove, VexHashTreeGet}) {
        failing.compares_left = 1;
        errno = 0;
        EXPECT_EQ(-1, operation(failing.tree, &absent, nullptr));
    }
    failing.compares_left = 1;
    EXPECT_EQ(-1, VexHashTreeSetBits(failing.tree, 1));  // three records in two buckets
    EXPECT_THAT(log.lines(), ElementsAre("22 VexHashTreeNodeProbe: bad comparission value: Invalid argument",
                                 "22 VexHashTreeNodeFindOrInsert: unable to probe tree path: Invalid argument",
                                 "22 VexHashTreeFindOrInsert: unable to find or insert: Invalid argument",
                                 "22 VexHashTreeNodeProbe: bad comparission value: Invalid argument",
                                 "22 VexHashTreeNodeReplaceOrInsert: unable to probe tree path: Invalid argument",
                                 "22 VexHashTreeReplaceOrInsert: unable to replace or insert node",
                                 "22 VexHashTreeNodeRemove: bad comparison result: Invalid argument",
                                 "22 VexHashTreeRemove: error occurred: Invalid argument",
                                 "22 VexHashTreeNodeFind: unable to compare nodes: Invalid argument",
                                 "22 VexHashTreeFindNode: error occurred: Invalid argument",
                                 "22 VexHashTreeNodeProbe: bad comparission value: Invalid argument",
                                 "22 VexHashTreeNodeReplaceOrInsert: unable to probe tree path: Invalid argument",
                                 "22 VexHashTreeSetBits: failed to replace or insert node"));
}

TEST(HashTreeNode, BuildsStepsThroughAndTakesApartOneBucket) {
    struct Item {
        VexHashTreeNode node;
        Record data;
    };
    std::vector<Item> items(61);
    VexHashTreeNode *root = nullptr;
    for (uint64_t i = 0; i < items.size(); ++i) {
        items[i].data = record(i * 37 % 61);
        int inserted = 0;
        Subject context(0);
        VexHashTreeNode **const slot =
            VexHashTreeNodeProbe(&root, &items[i].node, Subject::compare, &context, &inserted, nullptr);
        ASSERT_EQ(1, inserted);
        ASSERT_EQ(&items[i].node, *slot);
    }
    Subject context(0);
    EXPECT_EQ(61U, VexHashTreeNodeCount(root));
    EXPECT_GE(7U, VexHashTreeNodeDepth(root));
    VexHashTreePath path;
    VexHashTreePathInit(&path);
    uint64_t key = 0;
    for (auto *node = VexHashTreeNodeFirst(root, &path); node != nullptr; ++key) {
        ASSERT_EQ(key, load(VexHashTreeNodeGetNodeData(node)).key);
        ASSERT_EQ(1, VexHashTreePathValidateCompletely(&path, root, node));
        ASSERT_EQ(node, VexHashTreeNodeFind(root, node, Subject::compare, &context, nullptr));
        node = VexHashTreeNodeNext(root, node, Subject::compare, &context, &path);
    }
    EXPECT_EQ(61U, key);
    EXPECT_EQ(ENOENT, errno);
    Item twin{{}, record(20, 5)};
    VexHashTreeNode *const old =
        VexHashTreeNodeReplaceOrInsert(&root, &twin.node, Subject::compare, &context, nullptr, &path);
    EXPECT_EQ(20U, reinterpret_cast<Item *>(old)->data.key);
    EXPECT_EQ(1, VexHashTreePathValidateCompletely(&path, root, &twin.node));
    vextest::LogCapture log;
    EXPECT_EQ(0, VexHashTreePathValidateCompletely(&path, root, old));
    root->balance = 2;
    EXPECT_EQ(0, VexHashTreeNodeValidate(root));
    EXPECT_THAT(
        log.lines(), ElementsAre("22 VexHashTreePathValidateCompletely: final path does not point to specified node",
                         "22 VexHashTreeNodeValidate: encountered invalid state"));
    root->balance = 0;
    for (auto &item : items) EXPECT_NE(nullptr, VexHashTreeNodeRemove(&root, &item.node, Subject::compare, &context));
    EXPECT_EQ(nullptr, root);
    EXPECT_EQ(nullptr, VexHashTreeNodeRemove(&root, &items[0].node, Subject::compare, &context));
}

TEST(HashTreePath, HoldsItsLimits) {
    VexHashTreeNode nodes[62] = {};
    VexHashTreePath path;
    VexHashTreePathInit(&path);
    for (int i = 0; i < 61; ++i) ASSERT_EQ(0, VexHashTreePathPush(&path, &nodes[i]));
    vextest::LogCapture log;
    EXPECT_EQ(-1, VexHashTreePathPush(&path, &nodes[61]));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_EQ(&nodes[10], VexHashTreePathRemove(&path, 10));
    EXPECT_EQ(&nodes[11], VexHashTreePathReplace(&path, 10, &nodes[0]));
    EXPECT_EQ(&nodes[60], VexHashTreePathPop(&path));
    EXPECT_EQ(nullptr, VexHashTreePathGet(&path, 59));
    EXPECT_EQ(-1, VexHashTreePathSetDepth(&path, 60));
    EXPECT_EQ(
        "105 VexHashTreePathPush: current depth (61) equal to max depth allowed (61)\n"
        "2 VexHashTreePathGet: depth (59) greater than or equal to path depth (59)\n"
        "2 VexHashTreePathSetDepth: depth (60) greater than path depth (59)",
        log.text());
}

}  // namespace
