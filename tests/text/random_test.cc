#include "support/test.h"

TEST(Random, RangeIsInclusiveUniformAndTakesBoundsEitherWay) {
    int seen[7] = {}, negative = 0;
    constexpr int kDraws = 70000;
    for (int i = 0; i < kDraws; ++i) {
        ++seen[(i % 2 == 0 ? RandomRange(-3, 3) : RandomRange(3, -3)) + 3];
        negative += RandomRange(INT_MIN, INT_MAX) < 0 ? 1 : 0;
    }
    // ten standard deviations of a fair draw
    for (const int count : seen) EXPECT_NEAR(kDraws / 7.0, count, 10 * std::sqrt(kDraws / 7.0));
    EXPECT_NEAR(kDraws / 2.0, negative, 10 * std::sqrt(kDraws / 4.0));
}

TEST(Random, AFailingGeneratorLeavesZerosAndOneLine) {
    LogCapture log;
    std::string buffer(40, 'x');
    FaultScope fault("RAND_bytes", 1, EIO, FaultScope::kLasting);
    EXPECT_FAILS(EIO, -1, RandomGetBytes(buffer.data(), buffer.size()));
    EXPECT_EQ(std::string(40, '\0'), buffer);
    EXPECT_EQ(0u, RandomUint32() + RandomUint64());
    EXPECT_EQ(-7, RandomRange(9, -7));
    EXPECT_THAT(log.lines(), testing::SizeIs(4));
    EXPECT_THAT(log.lines(), Contains("5 RandomGetBytes: no random bytes could be drawn"));
}

TEST(Random, ThreadsAndForkedChildrenDrawDifferentNumbers) {
    std::vector<uint64_t> drawn(4001);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    inThreads(5, [&](int t) {
        const size_t first = static_cast<size_t>(t) * 1000;
        for (size_t i = first; t < 4 && i < first + 1000; ++i) drawn[i] = RandomUint64();
        if (t < 4) return;
        EXPECT_EQ(0, inChild([&] {  // while the threads draw: the mutex must not stay locked in the child
            const uint64_t value = RandomUint64();
            return write(fds[1], &value, sizeof value) == sizeof value ? 0 : 1;
        }));
    });
    ASSERT_EQ(8, read(fds[0], &drawn[4000], 8));
    EXPECT_EQ(drawn.size(), std::set<uint64_t>(drawn.begin(), drawn.end()).size());
}
