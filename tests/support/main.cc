#include <gtest/gtest.h>

#include <cstdio>

#include "support/data.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (result != 0) std::printf("random operations ran with VEX_TEST_SEED=%lu\n", vextest::testSeed());
    return result;
}
