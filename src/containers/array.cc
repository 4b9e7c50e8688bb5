#include <stdlib.h>
#include <unistd.h>

#include <vex/array.h>

#include "base/checked.h"
#include "log/report.h"

static_assert(sizeof(vexArray) == 7 * sizeof(uint64_t));

namespace {

constexpr uint64_t kElementSize = sizeof(void *);
constexpr uint64_t kDefaultStepBytes = 8192;

/// Makes room for one more step. The free slots are counted one too low on purpose, see vexArrayAdd
/// in the header. The capacity is a multiple of a step that was allocated before, so that the sum
/// cannot wrap.
bool grow(vexArray *array) {
    const uint64_t size = (array->step + array->capacity) * kElementSize;
    void *const data = realloc(array->data, size);
    if (data == nullptr)
        return VEX_FAIL_AS("vexArrayAdd", errno, errno, false,
                           "unable to reallocate memory for size %lu. (%m)", size);
    array->data = static_cast<void **>(data);
    array->capacity += array->step;
    array->freeSlots = array->step - 1;
    return true;
}

}  // namespace

vexArray *vexArrayCreate(uint64_t initialSize) {
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    uint64_t bytes = kDefaultStepBytes;
    if ((initialSize != 0 && !vex::checkedMultiply(initialSize, kElementSize, &bytes)) ||
        !vex::checkedAdd(bytes, page - 1, &bytes))
        return VEX_FAIL(ERANGE, nullptr, "unable to allocate memory for size %lu. (%m)",
                        initialSize);
    auto *array = static_cast<vexArray *>(calloc(1, sizeof(vexArray)));
    if (array == nullptr)
        return VEX_FAIL(errno, nullptr, "unable to allocate memory for size %lu. (%m)",
                        sizeof(vexArray));
    array->step = bytes / page * page / kElementSize;
    return array;
}

int vexArrayAdd(vexArray *array, void *value) {
    if (__builtin_expect(array == nullptr, 0))
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (__builtin_expect(array->freeSlots == 0, 0) && !grow(array)) return -1;
    array->data[array->count++] = value;
    --array->freeSlots;
    return 0;
}

void *vexArrayFirst(vexArray *array) {
    if (array == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    array->forward = 0;
    return array->count == 0 ? nullptr : array->data[0];
}

void *vexArrayNext(vexArray *array) {
    if (array == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (array->forward < array->count) ++array->forward;
    return array->forward < array->count ? array->data[array->forward] : nullptr;
}

void *vexArrayLast(vexArray *array) {
    if (array == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    array->backward = array->count;
    return vexArrayPrev(array);
}

void *vexArrayPrev(vexArray *array) {
    if (array == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    return array->backward == 0 ? nullptr : array->data[--array->backward];
}

uint64_t vexArraySize(vexArray *array) {
    if (array == nullptr) return VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
    return array->count;
}

int vexArrayDestroy(vexArray *array, vexFreeFn freeFn) {
    if (array == nullptr) return 0;
    if (freeFn != nullptr)
        for (uint64_t i = 0; i < array->count; ++i) freeFn(array->data[i]);
    free(array->data);
    free(array);
    return 0;
}
