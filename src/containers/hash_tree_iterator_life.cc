#include <stdlib.h>

#include <vex/hash_tree.h>

#include "log/report.h"

namespace {

/// Where a new iterator is placed, and the words for a place that does not exist and for an error
/// on the way there.
struct Start {
    const char *absent;
    const char *error;
};
constexpr Start kFirst = {"failed to find first tree iterator",
                          "error occurred while finding first tree iterator"};
constexpr Start kLast = {"failed to find last tree iterator position",
                         "error occurred while finding last tree iterator"};
constexpr Start kFind = {"failed to find tree iterator",
                         "error occurred while finding tree iterator"};

/// An iterator before the first record; the lines name this function's own name of old.
VexHashTreeIterator *init(VexHashTreeIterator *it, VexHashTree *tree) {
    static constexpr const char *kWho = "_vexHashTreeIteratorInit";
    if (it == nullptr || tree == nullptr)
        return VEX_FAIL_AS(kWho, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    *it = {tree, nullptr, nullptr, tree->numDeletes, 1, 0, tree->layout};
    // no record is still a buffer
    it->buffer = malloc(tree->nodeDataSize != 0 ? tree->nodeDataSize : 1);
    if (it->buffer == nullptr)
        return VEX_FAIL_AS(kWho, errno, errno, nullptr, "unable to allocate memory: %m");
    it->path = VexHashTreePathNew();
    if (it->path != nullptr) return it;
    const int err = errno;
    VexHashTreeIteratorDeinit(it);
    return VEX_FAIL_AS(kWho, err, err, nullptr, "unable to create new tree path: %m");
}

/// Initialises and moves with @p move; a failed iterator is released.
template <typename MoveTo>
VexHashTreeIterator *initAt(const char *who, VexHashTreeIterator *it, VexHashTree *tree,
                            const Start &start, MoveTo move) {
    if (init(it, tree) == nullptr)
        return VEX_FAIL_AS(who, errno, errno, nullptr, "unable to initialize tree iterator: %m");
    const int result = move();
    if (result == 1) return it;
    const int err = result == 0 ? ENOENT : errno;
    VexHashTreeIteratorDeinit(it);
    return VEX_FAIL_AS(who, err, err, nullptr, "%s: %m", result == 0 ? start.absent : start.error);
}

template <typename Init>
VexHashTreeIterator *make(const char *who, Init initialise) {
    auto *const it = static_cast<VexHashTreeIterator *>(malloc(sizeof(VexHashTreeIterator)));
    if (it == nullptr)
        return VEX_FAIL_AS(who, errno, errno, nullptr, "unable to allocate memory: %m");
    if (initialise(it) != nullptr) return it;
    const int err = errno;
    free(it);
    return VEX_FAIL_AS(who, err, err, nullptr, "failed to initialize tree iterator: %m");
}

}  // namespace

size_t VexHashTreeIteratorSize(void) {
    return sizeof(VexHashTreeIterator);
}

VexHashTreeIterator *VexHashTreeIteratorInitBegin(VexHashTreeIterator *it, VexHashTree *tree) {
    if (init(it, tree) != nullptr) return it;
    return VEX_FAIL(errno, nullptr, "unable to initialize tree iterator: %m");
}

VexHashTreeIterator *VexHashTreeIteratorInitEnd(VexHashTreeIterator *it, VexHashTree *tree) {
    if (init(it, tree) == nullptr)
        return VEX_FAIL(errno, nullptr, "unable to initialize tree iterator: %m");
    (void)VexHashTreeIteratorEnd(it);  // fails for NULL only
    return it;
}

VexHashTreeIterator *VexHashTreeIteratorInitFirst(VexHashTreeIterator *it, VexHashTree *tree,
                                                  void *out) {
    return initAt(__func__, it, tree, kFirst, [&] { return VexHashTreeIteratorFirst(it, out); });
}

VexHashTreeIterator *VexHashTreeIteratorInitLast(VexHashTreeIterator *it, VexHashTree *tree,
                                                 void *out) {
    return initAt(__func__, it, tree, kLast, [&] { return VexHashTreeIteratorLast(it, out); });
}

VexHashTreeIterator *VexHashTreeIteratorInitFind(VexHashTreeIterator *it, VexHashTree *tree,
                                                 const void *key, void *out) {
    return initAt(__func__, it, tree, kFind, [&] { return VexHashTreeIteratorFind(it, key, out); });
}

VexHashTreeIterator *VexHashTreeIteratorNewBegin(VexHashTree *tree) {
    return make(__func__, [&](auto *it) { return VexHashTreeIteratorInitBegin(it, tree); });
}

VexHashTreeIterator *VexHashTreeIteratorNewEnd(VexHashTree *tree) {
    return make(__func__, [&](auto *it) { return VexHashTreeIteratorInitEnd(it, tree); });
}

VexHashTreeIterator *VexHashTreeIteratorNewFirst(VexHashTree *tree, void *out) {
    return make(__func__, [&](auto *it) { return VexHashTreeIteratorInitFirst(it, tree, out); });
}

VexHashTreeIterator *VexHashTreeIteratorNewLast(VexHashTree *tree, void *out) {
    return make(__func__, [&](auto *it) { return VexHashTreeIteratorInitLast(it, tree, out); });
}

VexHashTreeIterator *VexHashTreeIteratorNewFind(VexHashTree *tree, const void *key, void *out) {
    return make(__func__,
                [&](auto *it) { return VexHashTreeIteratorInitFind(it, tree, key, out); });
}

void VexHashTreeIteratorDeinit(VexHashTreeIterator *it) {
    if (it == nullptr) return;
    free(it->buffer);
    it->buffer = nullptr;
    VexHashTreePathDelete(&it->path);
}

void VexHashTreeIteratorDelete(VexHashTreeIterator **it) {
    if (it == nullptr) return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    VexHashTreeIteratorDeinit(*it);
    free(*it);
    *it = nullptr;
}
