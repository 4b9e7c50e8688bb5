#ifndef VEX_BASE_EINTR_H
#define VEX_BASE_EINTR_H

#include <cerrno>

namespace vex {

/// Repeats a system call while a signal interrupts it.
template <typename Call>
auto retryOnEintr(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

}  // namespace vex

#endif
