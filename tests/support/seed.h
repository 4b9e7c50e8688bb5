#ifndef VEXTEST_SEED_H
#define VEXTEST_SEED_H

namespace vextest {

/// The seed of every random operation: fixed, or VEX_TEST_SEED; printed when a test fails.
unsigned long testSeed();

}  // namespace vextest

#endif
