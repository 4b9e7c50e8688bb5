// Owners for memory that malloc gave and for the library's own Init/Deinit records.
#ifndef VEX_BASE_UNIQUE_PTR_H
#define VEX_BASE_UNIQUE_PTR_H

#include <cstdlib>
#include <memory>

namespace vex {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

/// Memory from malloc, calloc or realloc, freed at the end of the scope.
template <typename T>
using UniqueMalloc = std::unique_ptr<T, FreeDeleter>;

/// A record in caller storage whose Deinit runs at the end of the scope.
template <typename T, auto Deinit>
class ScopedRecord {
public:
    ScopedRecord() = default;
    ScopedRecord(const ScopedRecord &) = delete;
    ScopedRecord &operator=(const ScopedRecord &) = delete;
    ~ScopedRecord() { (void)Deinit(&record_); }  // nobody is left to be told

    T *get() { return &record_; }
    T *operator->() { return &record_; }
    T &operator*() { return record_; }

private:
    T record_{};
};

}  // namespace vex

#endif
