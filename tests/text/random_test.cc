#include "support/test.h"

namespace {

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
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (size_t i = t * 1000; i < (t + 1) * 1000; ++i) drawn[i] = RandomUint64();
        });
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    const pid_t child = fork();  // while the threads draw: the mutex must not stay locked in the child
    if (child == 0) {
        const uint64_t value = RandomUint64();
        _exit(write(fds[1], &value, sizeof value) == sizeof value ? 0 : 1);
    }
    for (auto &thread : threads) thread.join();
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_EQ(0, status);
    ASSERT_EQ(8, read(fds[0], &drawn[4000], 8));
    EXPECT_EQ(drawn.size(), std::set<uint64_t>(drawn.begin(), drawn.end()).size());
}

}  // namespace
