// Memory of the ini store: every failed allocation surfaces as one exception that knows the size
// and the place.
#ifndef VEX_CONFIG_INI_MEMORY_H
#define VEX_CONFIG_INI_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vex::config {

/// What a failed allocation throws; the store's entry points turn it into one log line and ENOMEM.
class OutOfMemory : public std::bad_alloc {
public:
    OutOfMemory(size_t size, int line) : size_(size), line_(line) {}
    size_t size() const { return size_; }
    int line() const { return line_; }

private:
    size_t size_;
    int line_;
};

/// malloc of at least one byte, or OutOfMemory.
inline void *allocate(size_t size, int line = __builtin_LINE()) {
    void *memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw OutOfMemory(size, line);
    return memory;
}

template <typename T>
struct Allocator {
    using value_type = T;
    Allocator() = default;
    template <typename U>
    Allocator(const Allocator<U> &) {}  // NOLINT(google-explicit-constructor): containers convert
    // NOLINTBEGIN(bugprone-sizeof-expression): a container of pointers is what is meant
    T *allocate(size_t n) {
        if (n > std::numeric_limits<size_t>::max() / sizeof(T)) throw OutOfMemory(n, __LINE__);
        return static_cast<T *>(config::allocate(n * sizeof(T)));
    }
    // NOLINTEND(bugprone-sizeof-expression)
    void deallocate(T *memory, size_t) { std::free(memory); }
    bool operator==(const Allocator &) const { return true; }
};

using String = std::basic_string<char, std::char_traits<char>, Allocator<char>>;
template <typename T>
using Vector = std::vector<T, Allocator<T>>;

/// A text that stands in the bytes of its loaded file, which outlive it, or in memory of its own.
class Text {
public:
    Text() = default;
    Text(Text &&other) noexcept { swap(other); }
    Text &operator=(Text &&other) noexcept {
        swap(other);
        return *this;
    }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    ~Text() {
        if (owned_) std::free(const_cast<char *>(data_));
    }

    static Text borrowed(std::string_view view) {
        Text text;
        text.data_ = view.data();
        text.size_ = static_cast<unsigned>(view.size());
        return text;
    }
    static Text copied(std::string_view view) {
        Text text;
        if (view.empty()) return text;
        if (view.size() > std::numeric_limits<int>::max() - 1)
            throw OutOfMemory(view.size(), __LINE__);
        char *memory = static_cast<char *>(allocate(view.size()));
        std::memcpy(memory, view.data(), view.size());
        text.data_ = memory;
        text.size_ = static_cast<unsigned>(view.size());
        text.owned_ = true;
        return text;
    }

    std::string_view view() const {
        return size_ == 0 ? std::string_view("") : std::string_view(data_, size_);
    }
    bool empty() const { return size_ == 0; }

private:
    void swap(Text &other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(owned_, other.owned_);
    }

    const char *data_ = nullptr;
    unsigned size_ = 0;
    bool owned_ = false;
};

}  // namespace vex::config

#endif
