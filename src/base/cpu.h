// What the processor offers beyond the instructions that every x86-64 has.
#ifndef VEX_BASE_CPU_H
#define VEX_BASE_CPU_H

/// Compiles one function for processors with AVX2 and the bit instructions that came with it; call
/// it only where hasAvx2() is true.
#define VEX_TARGET_AVX2 __attribute__((target("avx2,bmi,bmi2,lzcnt,popcnt")))

namespace vex {

inline bool hasAvx2() {
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi2") != 0;
}

}  // namespace vex

#endif
