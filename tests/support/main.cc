#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>

#include "support/data.h"

namespace vextest {
namespace {

unsigned long seed = 20040707;

}  // namespace

unsigned long testSeed() { return seed; }

}  // namespace vextest

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (const char *text = getenv("VEX_TEST_SEED"); text != nullptr) vextest::seed = strtoul(text, nullptr, 10);
    const int result = RUN_ALL_TESTS();
    if (result != 0) std::printf("random operations ran with VEX_TEST_SEED=%lu\n", vextest::seed);
    return result;
}
