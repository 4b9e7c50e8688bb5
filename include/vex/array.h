/**
 * @file array.h
 * @ingroup containers
 * A growable array of pointer-sized values with a forward and a backward cursor.
 *
 * The array stores the values alone: what they point to stays the caller's. Appending costs a store
 * and now and then a realloc of one more step; elements never move relative to each other, and the
 * data may be read directly through the record. Results are 0 or a value; a failure gives -1, NULL
 * or the largest number, with errno and one error line ("invalid NULL parameter" and EINVAL for a
 * NULL array).
 *
 * @threads any thread; calls on one array are the caller's to order.
 */
#ifndef VEX_ARRAY_H
#define VEX_ARRAY_H

#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** Releases one stored value; used by the destroy functions of array and list. */
typedef void (*vexFreeFn)(void *value);

/** The array's record, 56 bytes. Callers may read it; only the functions below write it. */
typedef struct vexArray {
    void **data;        /**< the elements; NULL until the first one is added */
    uint64_t step;      /**< elements that one growth adds, at least one page's worth */
    uint64_t capacity;  /**< elements that data has room for */
    uint64_t freeSlots; /**< appends left before the next growth; see vexArrayAdd */
    uint64_t count;     /**< elements in use */
    uint64_t forward;   /**< index of the element that First or Next returned last */
    uint64_t backward;  /**< index of the element that Last or Prev returned last */
} vexArray;

/**
 * Makes an empty array; memory for elements is taken with the first one.
 *
 * @param initialSize  elements of the growth step, rounded up to whole pages; 0 for 8192 bytes.
 * @return the array; NULL with ENOMEM, or with ERANGE when the step's bytes do not fit 64 bits.
 * @owner the caller, until vexArrayDestroy.
 */
VEX_API vexArray *vexArrayCreate(uint64_t initialSize);
/**
 * Appends a value; NULL is a value as any other, though it reads like an end.
 *
 * @return 0; -1 with ENOMEM, the array unchanged.
 * @note The array grows while one slot is still unused, so that after a growth step - 2 appends
 * follow before the next one: with a step of 512 it grows at 0, 511, 1022 ... elements.
 */
VEX_API int vexArrayAdd(vexArray *array, void *value);

/** Moves the forward cursor to element 0. @return it; NULL when the array is empty. */
VEX_API void *vexArrayFirst(vexArray *array);
/**
 * Moves the forward cursor on and returns its element; NULL at the end, where it stays.
 *
 * @note Without vexArrayFirst the cursor stands on element 0, so the first call gives element 1.
 */
VEX_API void *vexArrayNext(vexArray *array);
/** Moves the backward cursor to the last element. @return it; NULL when the array is empty. */
VEX_API void *vexArrayLast(vexArray *array);
/** Moves the backward cursor one element towards the start and returns that; NULL at the start. */
VEX_API void *vexArrayPrev(vexArray *array);
/** The number of elements; 2^64 - 1 for NULL. */
VEX_API uint64_t vexArraySize(vexArray *array);
/**
 * Frees the array.
 *
 * @param array   NULL does nothing.
 * @param freeFn  called on every element in index order, NULL elements included; NULL for none.
 * @return 0.
 */
VEX_API int vexArrayDestroy(vexArray *array, vexFreeFn freeFn);

VEX_END_DECLS

#endif
