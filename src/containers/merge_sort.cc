#include <vex/merge_sort.h>

#include "containers/merge_core.h"
#include "log/report.h"

namespace {

using vex::sort::AnySize;
using vex::sort::ChunkedSize;
using vex::sort::FixedSize;
using vex::sort::MergeSorter;

struct CallerOrder {
    bool isAfter(const char *a, const char *b) const { return compare(context, a, b) > 0; }
    static void prepare(const char * /*element*/) {}

    int (*compare)(void *context, const void *a, const void *b);
    void *context;
};

/// The order of elements by their addresses.
struct AddressOrder {
    bool isAfter(const char *a, const char *b) const {
        return order.compare(order.context, at(a), at(b)) > 0;
    }
    static void prepare(const char *address) { __builtin_prefetch(at(address)); }
    static char *at(const char *address) {
        char *element;
        memcpy(&element, address, sizeof element);
        return element;
    }

    CallerOrder order;
};

constexpr size_t kAddress = sizeof(char *);
using AddressSize = FixedSize<kAddress>;
/// Up to here, moving an element costs less than fetching it from wherever it lies.
constexpr size_t kLargestMoved = 256;

/// Puts each element into the place of its address, one cycle after the other.
void arrange(char *array, uint64_t count, size_t size, char *addresses, char *spare) {
    for (uint64_t start = 0; start < count; ++start) {
        char *const first = array + start * size;
        if (AddressOrder::at(addresses + start * kAddress) == first) continue;
        memcpy(spare, first, size);
        for (uint64_t i = start;;) {
            char *const place = array + i * size;
            char *const source = AddressOrder::at(addresses + i * kAddress);
            memcpy(addresses + i * kAddress, &place, sizeof place);  // is where it belongs now
            if (source == first) {
                memcpy(place, spare, size);
                break;
            }
            memcpy(place, source, size);
            i = static_cast<uint64_t>(source - array) / size;
        }
    }
}

/// Elements that are large to move are sorted by their addresses and moved once. The scratch memory
/// has room for two addresses an element, later for the addresses and a spare element.
void sortByAddress(char *array, uint64_t count, size_t size, const CallerOrder &order,
                   char *scratch) {
    for (uint64_t i = 0; i < count; ++i) {
        char *const element = array + i * size;
        memcpy(scratch + i * kAddress, &element, sizeof element);
    }
    const AddressOrder by_address{order};
    MergeSorter(AddressSize(), by_address).sort(scratch, count, scratch + count * kAddress);
    arrange(array, count, size, scratch, scratch + count * kAddress);
}

}  // namespace

void BinarySortMergeSort(void *array, uint64_t count, uint64_t elementSize,
                         int (*compare)(void *context, const void *a, const void *b), void *context,
                         void *scratch) {
    if (count < 2 || elementSize == 0) return;
    if (array == nullptr || compare == nullptr || scratch == nullptr) {
        vex::log::failure(EINVAL, EINVAL, __func__, "invalid NULL parameter");
        return;
    }
    const CallerOrder order{compare, context};
    char *const elements = static_cast<char *>(array);
    char *const spare = static_cast<char *>(scratch);
    switch (elementSize) {
        case 4:
            return MergeSorter(FixedSize<4>(), order).sort(elements, count, spare);
        case 8:
            return MergeSorter(FixedSize<8>(), order).sort(elements, count, spare);
        case 16:
            return MergeSorter(FixedSize<16>(), order).sort(elements, count, spare);
        default:
            if (elementSize < ChunkedSize::kChunk)
                return MergeSorter(AnySize{elementSize}, order).sort(elements, count, spare);
            if (elementSize <= kLargestMoved)
                return MergeSorter(ChunkedSize{elementSize}, order).sort(elements, count, spare);
            return sortByAddress(elements, count, elementSize, order, spare);
    }
}
