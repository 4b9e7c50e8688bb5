#include "support/test.h"

namespace {

/// A second set of numbers has equals of the first that are other objects.
std::vector<uint32_t> numbers() {
    std::vector<uint32_t> values(1000);
    for (uint32_t i = 0; i < 1000; ++i) values[i] = i % 500;
    return values;
}

int compare(void *, const void *a, const void *b) {
    const uint32_t x = *static_cast<const uint32_t *>(a), y = *static_cast<const uint32_t *>(b);
    return x < y ? -1 : x > y;
}

uint32_t hash(void *user, const void *object) {
    EXPECT_EQ(nullptr, user);
    return *static_cast<const uint32_t *>(object) * 2654435769U;
}

TEST(Set, FollowsAModelThroughRandomUse) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    for (const VexSetHash hashed : {VexSetHash{nullptr}, VexSetHash{hash}}) {
        std::vector<uint32_t> objects = numbers();
        VexSet *set = VexSetNew(compare, hashed, nullptr, 400);
        ASSERT_EQ(1, VexSetValidate(set));
        std::map<uint64_t, uint32_t *> model;  // by top hash bits and value
        const auto place = [&](uint32_t n) {
            return hashed == nullptr ? n : uint64_t{hash(nullptr, &n) >> 27} << 32 | n;
        };
        for (int step = 0; step < 20000; ++step) {
            uint32_t *const object = &objects[random() % objects.size()];
            const auto known = model.find(place(*object));
            uint32_t *const present = known != model.end() ? known->second : nullptr;
            const auto operation = random() % 4;
            if (operation <= 1) {
                int inserted = 7;
                if (model.size() == 400) {
                    EXPECT_FAILS_WITH(
                        "105 VexSetFindOrInsert: number of used nodes (400) greater than max objects "
                        "(400): No buffer space available",
                        nullptr, VexSetFindOrInsert(set, object, &inserted));
                    ASSERT_EQ(7, inserted);
                    ASSERT_EQ(0, VexSetReset(set));
                    model.clear();
                    continue;
                }
                ASSERT_EQ(present != nullptr ? present : object, VexSetFindOrInsert(set, object, &inserted));
                ASSERT_EQ(present == nullptr ? 1 : 0, inserted);
                if (present == nullptr) model[place(*object)] = object;
            } else if (operation == 2 && step % 3 == 0) {
                ASSERT_EQ(present, VexSetRemove(set, object));
                model.erase(place(*object));
            } else {
                ASSERT_EQ(present, VexSetFind(set, object));
                ASSERT_TRUE(present != nullptr || errno == ENOENT);
            }
            if (step % 1000 != 0) continue;
            auto expected = model.begin();
            for (void *p = VexSetGetFirstObject(set); p != nullptr; p = VexSetGetNextObject(set))
                ASSERT_EQ((expected++)->second, p);
            EXPECT_TRUE(expected == model.end());
            EXPECT_EQ(nullptr, VexSetGetNextObject(set));
            EXPECT_EQ(ENOENT, errno);
        }
        EXPECT_EQ(model.size(), VexSetGetNumObjects(set));
        VexSetDelete(&set);
        EXPECT_EQ(nullptr, set);
    }
}

TEST(Set, SizesItsTableAndReportsFailures) {
    for (const auto &[max, bits] : {std::pair(0UL, 0U), {31, 0}, {32, 1}, {48, 2}, {16 << 10, 10}, {~0UL, 24}}) {
        VexSet set;
        ASSERT_EQ(&set, VexSetInit(&set, compare, hash, nullptr, max));
        EXPECT_EQ(bits, set.tree->bits) << max;
        VexSetDeinit(&set);
        EXPECT_EQ(0, VexSetValidate(&set));
        EXPECT_FAILS_WITH("22 VexSetGetFirstObject: invalid NULL parameter", nullptr, VexSetGetFirstObject(&set));
    }
    // the comparison fails
    VexSet *set = VexSetNew([](void *, const void *, const void *) { return -2; }, nullptr, nullptr, 10);
    uint32_t object = 1;
    LogCapture log;
    EXPECT_EQ(&object, VexSetFindOrInsert(set, &object, nullptr));
    EXPECT_FAILS(EINVAL, nullptr, VexSetFind(set, &object));
    EXPECT_EQ(nullptr, VexSetRemove(set, &object));
    EXPECT_EQ(1U, VexSetGetNumObjects(set));
    VexSetDelete(&set);
}

}  // namespace
