// The stable merge sort behind BinarySortMergeSort and the batches of BinarySortFp: top down, every
// other level merging from the array into the scratch memory and the next one back.
//
// Elements may own memory, and the comparison is the caller's: it may throw, and it may contradict
// itself. So at each comparison either the array or the scratch memory holds all elements, and
// whatever the comparison does, the array holds each of them once in the end.
#ifndef VEX_CONTAINERS_MERGE_CORE_H
#define VEX_CONTAINERS_MERGE_CORE_H

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

    /// Leaves the sorted elements in @p out; the array keeps all of them in some order.
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

    /// By exchanges of neighbours, so that the array is whole at each comparison.
    void insertionSort(char *array, uint64_t count, char *scratch) const {
        char *const end = array + count * bytes();
        for (char *element = array + bytes(); element < end; element += bytes()) {
            for (char *place = element; place != array; place -= bytes()) {
                if (!order_.isAfter(place - bytes(), place)) break;
                size_.move(scratch, place);
                size_.move(place, place - bytes());
                size_.move(place - bytes(), scratch);
            }
        }
    }

    void merge(const char *from, uint64_t half, uint64_t count, char *to) const {
        const char *const right = from + half * bytes();
        if (!order_.isAfter(right - bytes(), right)) {
            memcpy(to, from, count * bytes());
        } else {
            mergeForward(from, half, count, to);
        }
    }

    void prepare(const char *element, const char *limit) const {
        order_.prepare(element < limit ? element : limit);
    }

    void mergeForward(const char *from, uint64_t half, uint64_t count, char *to) const {
        const char *left = from;
        const char *const middle = from + half * bytes();
        const char *right = middle;
        const char *const end = from + count * bytes();
        while (left != middle && right != end) {
            prepare(left + kAhead * bytes(), end - bytes());
            prepare(right + kAhead * bytes(), end - bytes());
            if (order_.isAfter(left, right)) {
                size_.move(to, right);
                right += bytes();
            } else {
                size_.move(to, left);
                left += bytes();
            }
            to += bytes();
        }
        // on average a handful of elements is left
        for (; left != middle; left += bytes(), to += bytes()) size_.move(to, left);
        for (; right != end; right += bytes(), to += bytes()) size_.move(to, right);
    }

    Size size_;
    const Order &order_;
};

}  // namespace vex::sort

#endif
