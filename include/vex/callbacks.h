/**
 * @file callbacks.h
 * @ingroup containers
 * Reference-counted lists of callbacks that tolerate changes from inside a running callback.
 *
 * A list is the pointer to its first entry, NULL when it is empty; every function returns the new
 * first entry, which the caller stores. A pair of function and argument is one entry: adding it
 * again raises its count, and a call of the list calls it that many times.
 *
 * A callback may add and remove entries, itself included, and may call the list again. An entry is
 * never freed while it runs: removal lowers its count and the call that runs it frees it when it
 * ends. While a list runs, its start may change; the outermost call returns the start that counts.
 *
 * @threads any thread; calls on one list are the caller's to order.
 */
#ifndef VEX_CALLBACKS_H
#define VEX_CALLBACKS_H

#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** A callback: the two arguments of the call, then the entry's own. */
typedef void (*vexCallbackFn)(void *first, void *second, void *argument);

/** One entry, 40 bytes; the library's to allocate, write and free. */
typedef struct vexCallback {
    vexCallbackFn function;   /**< NULL is allowed: the entry is counted and never called */
    void *argument;           /**< the caller's, never freed */
    uint32_t executing;       /**< calls of the list that run this entry at the moment */
    int32_t references;       /**< calls per call of the list; 0 and less means removed */
    struct vexCallback *prev; /**< NULL at the front */
    struct vexCallback *next; /**< NULL at the end */
} vexCallback;

/**
 * Adds one reference to the entry with this function and argument, which is appended when there is
 * none. An entry that is appended while the list runs is still called by that run.
 *
 * @return the list; unchanged with ENOMEM when there is no memory.
 * @logs one error line, with code 90, when there is no memory.
 */
VEX_API vexCallback *vexCallbackAdd(vexCallback *list, vexCallbackFn function, void *argument);
/**
 * Takes one reference from each matching entry and frees the entries that have none left, unless
 * one of the matching entries is running: then nothing is freed before that run ends.
 *
 * @param list      the first entry; NULL is an empty list.
 * @param function  NULL matches every function.
 * @param argument  NULL matches every argument; with both NULL every entry matches.
 * @return the list.
 * @note Each call takes a reference, also from an entry that has none left and waits to be freed:
 * adding it again does not bring it back then.
 * @logs trace lines only.
 */
VEX_API vexCallback *vexCallbackRemove(vexCallback *list, vexCallbackFn function, void *argument);
/**
 * Calls every entry in order, each as many times as its count said when it was reached, and then
 * frees the entries that have no reference left.
 *
 * @return the list.
 * @logs trace lines only.
 */
VEX_API vexCallback *vexCallCallbackList(vexCallback *list, void *first, void *second);
/** Frees every entry, whatever its count. Not allowed while the list runs. NULL does nothing. */
VEX_API void vexCallbackListDelete(vexCallback *list);

VEX_END_DECLS

#endif
