/**
 * @file list.h
 * @ingroup containers
 * A doubly linked list of pointer-sized values with one cursor.
 *
 * The list stores the values alone: what they point to stays the caller's. Appending takes constant
 * time, removing by value walks from the front. Results are 0 or a value; a failure gives -1 or
 * NULL, with errno and one error line ("invalid NULL parameter" and EINVAL for a NULL list).
 *
 * @threads any thread; calls on one list are the caller's to order.
 */
#ifndef VEX_LIST_H
#define VEX_LIST_H

#include <stddef.h>

#include <vex/array.h>
#include <vex/export.h>

VEX_BEGIN_DECLS

/** One element, 24 bytes. */
typedef struct vexListNode {
    void *value;              /**< the caller's, never freed */
    struct vexListNode *next; /**< NULL at the end */
    struct vexListNode *prev; /**< the list's header, taken for a node, at the front */
} vexListNode;

/** The list's header. Its first three words are laid out as a node's, so that the node before the
 * first one is the header. Callers may read it; only the functions below write it. */
typedef struct vexList {
    void *zero0;         /**< always NULL */
    vexListNode *first;  /**< NULL when the list is empty */
    void *zero1;         /**< always NULL */
    vexListNode *last;   /**< the header itself when the list is empty */
    vexListNode *cursor; /**< the node that vexListNext returns; NULL at the end */
} vexList;

/** Makes an empty list. @return it, the caller's until vexListDestroy; NULL with ENOMEM. */
VEX_API vexList *vexListCreate(void);
/** Appends a value. @return 0; -1 with ENOMEM, the list unchanged. */
VEX_API int vexListAdd(vexList *list, void *value);
/**
 * Removes the first node from the front that holds @p value; others that hold it stay. Takes time
 * in proportion to the nodes before it.
 *
 * @return 0; -1 with ENOENT (logged) when no node holds it.
 * @note Allowed during a walk: a cursor on the removed node moves on to the one behind it.
 */
VEX_API int vexListRemove(vexList *list, void *value);
/** Moves the cursor to the front, then does as vexListNext. */
VEX_API void *vexListFirst(vexList *list);
/**
 * Returns the cursor's value and moves the cursor on; NULL at the end.
 *
 * @note A stored NULL reads like the end. Once the end was reached, values that are added later are
 * not seen until vexListFirst.
 */
VEX_API void *vexListNext(vexList *list);
/**
 * Frees the list and its nodes.
 *
 * @param list    NULL does nothing.
 * @param freeFn  called on every value from the front; NULL for none.
 */
VEX_API void vexListDestroy(vexList *list, vexFreeFn freeFn);
/** Bytes of one node: 24. */
VEX_API size_t vexGetListNodeSize(void);

VEX_END_DECLS

#endif
