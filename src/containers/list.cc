#include <stddef.h>
#include <stdlib.h>

#include <vex/list.h>

#include "log/report.h"

static_assert(sizeof(vexListNode) == 24 && sizeof(vexList) == 40);
// the header stands for the node before the first one
static_assert(offsetof(vexList, first) == offsetof(vexListNode, next));

namespace {

vexListNode *header(vexList *list) {
    return reinterpret_cast<vexListNode *>(list);
}

/// The link that leads on from @p prev, which may be the header: that one is written as what it is.
vexListNode **linkBehind(vexList *list, vexListNode *prev) {
    return prev == header(list) ? &list->first : &prev->next;
}

vexListNode *lastNode(vexList *list) {
    if (list->last == nullptr) {
        vexListNode *last = header(list);
        for (vexListNode *node = list->first; node != nullptr; node = node->next) last = node;
        list->last = last;
    }
    return list->last;
}

}  // namespace

vexList *vexListCreate() {
    auto *list = static_cast<vexList *>(calloc(1, sizeof(vexList)));
    if (list == nullptr) return VEX_FAIL(errno, nullptr, "could not allocate memory");
    list->last = header(list);
    return list;
}

int vexListAdd(vexList *list, void *value) {
    if (list == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    auto *node = static_cast<vexListNode *>(malloc(sizeof(vexListNode)));
    if (node == nullptr) return VEX_FAIL(errno, -1, "could not allocate memory");
    *node = {value, nullptr, lastNode(list)};
    *linkBehind(list, node->prev) = node;
    list->last = node;
    return 0;
}

int vexListRemove(vexList *list, void *value) {
    if (list == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    vexListNode *node = list->first;
    while (node != nullptr && node->value != value) node = node->next;
    if (node == nullptr) return VEX_FAIL(ENOENT, -1, "could not find node");
    *linkBehind(list, node->prev) = node->next;
    if (node->next != nullptr) node->next->prev = node->prev;
    if (list->last == node) list->last = node->prev;
    if (list->cursor == node) list->cursor = node->next;
    free(node);
    return 0;
}

void *vexListFirst(vexList *list) {
    if (list == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    list->cursor = list->first;
    return vexListNext(list);
}

void *vexListNext(vexList *list) {
    if (list == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    vexListNode *const node = list->cursor;
    if (node == nullptr) return nullptr;
    list->cursor = node->next;
    return node->value;
}

void vexListDestroy(vexList *list, vexFreeFn freeFn) {
    if (list == nullptr) return;
    for (vexListNode *node = list->first; node != nullptr;) {
        vexListNode *const next = node->next;
        if (freeFn != nullptr) freeFn(node->value);
        free(node);
        node = next;
    }
    free(list);
}

size_t vexGetListNodeSize() {
    return sizeof(vexListNode);
}
