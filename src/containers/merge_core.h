// The stable merge sort behind BinarySortMergeSort and the batches of BinarySortFp: top down, every
// other level merging from the array into the scratch memory and the next one back.
//
// Elements may own memory, and the comparison is the caller's: it may throw, and it may contradict
// itself. Whatever it does, the array holds each element once in the end.
#ifndef VEX_CONTAINERS_MERGE_CORE_H
#define VEX_CONTAINERS_MERGE_CORE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vex::sort {

/// Elements of a size that the compiler knows, so that a move is a few instructions.
template <size_t kBytes>
struct FixedSize {
    static constexpr size_t bytes() { return kBytes; }
    static void move(char *to, const char *from) { memcpy(to, from, kBytes); }
};

struct AnySize {
    size_t size;
    size_t bytes() const { return size; }
    void move(char *to, const char *from) const { memcpy(to, from, size); }
};

/// Elements of one chunk and more, moved without a call; the last chunk may overlap the one before.
struct ChunkedSize {
    static constexpr size_t kChunk = 16;
    size_t size;
    size_t bytes() const { return size; }
    void move(char *to, const char *from) const {
        const size_t last = size - kChunk;
        for (size_t at = 0; at < last; at += kChunk) memcpy(to + at, from + at, kChunk);
        memcpy(to + last, from + last, kChunk);
    }
};

/// @p Order has isAfter(a, b), true when a belongs behind b, and prepare(element), called a few
/// elements before an element is compared.
template <typename Size, typename Order>
class MergeSorter {
public:
    MergeSorter(Size size, const Order &order) : size_(size), order_(order) {}

    void sort(char *array, uint64_t count, char *scratch) const {
        if (count <= kInsertion) return insertionSort(array, count, scratch);
        const uint64_t half = count / 2;
        sortInto(array, half, scratch);
        sortInto(array + half * bytes(), count - half, scratch + half * bytes());
        Restore restore{array, scratch, count * bytes()};
        merge(scratch, half, count, array);
        restore.size = 0;
    }

private:
    static constexpr uint64_t kInsertion = 8;
    static constexpr size_t kAhead = 6;

    /// Gives the array its elements back when a merge from the scratch memory is broken off.
    struct Restore {
        ~Restore() {
            if (size != 0) memcpy(array, scratch, size);
        }
        char *array;
        const char *scratch;
        size_t size;
    };

    size_t bytes() const { return size_.bytes(); }

    /// Leaves the sorted elements in @p out; the array keeps all of them, in some order.
    void sortInto(char *array, uint64_t count, char *out) const {
        if (count <= kInsertion) {
            insertionSort(array, count, out);
            memcpy(out, array, count * bytes());
            return;
        }
        const uint64_t half = count / 2;
        sort(array, half, out);
        sort(array + half * bytes(), count - half, out + half * bytes());
        merge(array, half, count, out);
    }

    /// Puts the element that is on its way into the gap it left.
    struct Hole {
        ~Hole() { size.move(place, element); }
        Size size;
        char *place;
        const char *element;
    };

    [[gnu::noinline]] void insertionSort(char *array, uint64_t count, char *scratch) const {
        const Order order = order_;
        char *const end = array + count * bytes();
        for (char *element = array + bytes(); element < end; element += bytes()) {
            if (!order.isAfter(element - bytes(), element)) continue;
            size_.move(scratch, element);
            Hole hole{size_, element, scratch};
            do {
                size_.move(hole.place, hole.place - bytes());
                hole.place -= bytes();
            } while (hole.place != array && order.isAfter(hole.place - bytes(), scratch));
        }
    }

    void merge(const char *from, uint64_t half, uint64_t count, char *to) const {
        const char *const middle = from + half * bytes();
        if (order_.isAfter(middle - bytes(), middle))
            mergeHalves(from, middle, from + count * bytes(), to);
        else
            memcpy(to, from, count * bytes());
    }

    /// The merge itself: the order copied and the function on its own, so that the compiler keeps
    /// everything in registers over the calls.
    [[gnu::noinline]] void mergeHalves(const char *left, const char *middle, const char *end,
                                       char *to) const {
        const Order order = order_;
        const char *right = middle;
        const char *const last = end - bytes();
        for (;;) {
            order.prepare(std::min(left + kAhead * bytes(), last));
            order.prepare(std::min(right + kAhead * bytes(), last));
            if (order.isAfter(left, right)) {
                size_.move(to, right);
                to += bytes();
                right += bytes();
                if (right == end) break;
            } else {
                size_.move(to, left);
                to += bytes();
                left += bytes();
                if (left == middle) break;
            }
        }
        // on average a handful of elements is left
        for (; left != middle; left += bytes(), to += bytes()) size_.move(to, left);
        for (; right != end; right += bytes(), to += bytes()) size_.move(to, right);
    }

    Size size_;
    Order order_;
};

}  // namespace vex::sort

#endif
