#ifndef VEXTEST_SEED_H
#define VEXTEST_SEED_H

#include <random>
#include <string>

namespace vextest {

/// The seed of every random operation: fixed, or VEX_TEST_SEED; printed when a test fails.
unsigned long testSeed();

/// @p n random bytes, the same ones every time.
inline std::string testNoise(size_t n) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    std::string noise(n, '\0');
    for (char &c : noise) c = static_cast<char>(random());
    return noise;
}

}  // namespace vextest

#endif
