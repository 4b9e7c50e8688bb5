#ifndef VEX_BASE_ERRNO_GUARD_H
#define VEX_BASE_ERRNO_GUARD_H

#include <cerrno>

namespace vex {

/// Keeps the errno of its construction: clean-up must not change what the caller sees.
class ErrnoGuard {
public:
    ErrnoGuard() : saved_(errno) {}
    ~ErrnoGuard() { errno = saved_; }
    ErrnoGuard(const ErrnoGuard &) = delete;
    ErrnoGuard &operator=(const ErrnoGuard &) = delete;

private:
    int saved_;
};

}  // namespace vex

#endif
