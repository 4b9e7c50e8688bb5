// Arithmetic on sizes that come from outside: false instead of wrapping.
#ifndef VEX_BASE_CHECKED_H
#define VEX_BASE_CHECKED_H

namespace vex {

template <typename T>
[[nodiscard]] bool checkedAdd(T a, T b, T *sum) {
    return !__builtin_add_overflow(a, b, sum);
}
template <typename T>
[[nodiscard]] bool checkedMultiply(T a, T b, T *product) {
    return !__builtin_mul_overflow(a, b, product);
}

}  // namespace vex

#endif
