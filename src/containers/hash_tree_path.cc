#include <stdlib.h>

#include <algorithm>

#include <vex/hash_tree.h>

#include "log/report.h"

static_assert(offsetof(VexHashTreePath, depth) == 488 && sizeof(VexHashTreePath) == 496);

namespace {

/// True when @p path has an entry at index @p depth; else false after a line under @p who.
bool hasEntry(const char *who, const VexHashTreePath *path, uint64_t depth) {
    if (path == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
    if (depth < path->depth) return true;
    return VEX_FAIL_AS(who, ENOENT, ENOENT, false,
                       "depth (%lu) greater than or equal to path depth (%lu)", depth, path->depth);
}

/// The same for the last entry.
bool hasEntries(const char *who, const VexHashTreePath *path) {
    if (path == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
    return path->depth != 0 || VEX_FAIL_AS(who, ENOENT, ENOENT, false, "path depth is 0");
}

}  // namespace

size_t VexHashTreePathSize(void) {
    return sizeof(VexHashTreePath);
}

VexHashTreePath *VexHashTreePathInit(VexHashTreePath *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    path->depth = 0;
    return path;
}

VexHashTreePath *VexHashTreePathNew(void) {
    auto *const path = static_cast<VexHashTreePath *>(malloc(sizeof(VexHashTreePath)));
    if (path == nullptr) return VEX_FAIL(errno, nullptr, "failed to allocate memory");
    return VexHashTreePathInit(path);
}

void VexHashTreePathDeinit(VexHashTreePath *path) {
    if (path != nullptr) path->depth = 0;
}

void VexHashTreePathDelete(VexHashTreePath **path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, (void)0, "invalid NULL parameter");
    free(*path);
    *path = nullptr;
}

uint64_t VexHashTreePathGetDepth(VexHashTreePath *path) {
    return path != nullptr ? path->depth : VEX_FAIL(EINVAL, UINT64_MAX, "invalid NULL parameter");
}

int VexHashTreePathSetDepth(VexHashTreePath *path, uint64_t depth) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (depth > path->depth)
        return VEX_FAIL(ENOENT, -1, "depth (%lu) greater than path depth (%lu)", depth,
                        path->depth);
    path->depth = depth;
    return 0;
}

int VexHashTreePathPush(VexHashTreePath *path, VexHashTreeNode *node) {
    if (path == nullptr || node == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (path->depth >= VexHashTreePathMaxDepth)
        return VEX_FAIL(ENOBUFS, -1, "current depth (%lu) equal to max depth allowed (%lu)",
                        path->depth, uint64_t{VexHashTreePathMaxDepth});
    path->nodes[path->depth++] = node;
    return 0;
}

VexHashTreeNode *VexHashTreePathPeek(VexHashTreePath *path) {
    return hasEntries(__func__, path) ? path->nodes[path->depth - 1] : nullptr;
}

VexHashTreeNode *VexHashTreePathPop(VexHashTreePath *path) {
    return hasEntries(__func__, path) ? path->nodes[--path->depth] : nullptr;
}

VexHashTreeNode *VexHashTreePathGet(VexHashTreePath *path, uint64_t depth) {
    return hasEntry(__func__, path, depth) ? path->nodes[depth] : nullptr;
}

VexHashTreeNode *VexHashTreePathReplace(VexHashTreePath *path, uint64_t depth,
                                        VexHashTreeNode *node) {
    if (node == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (!hasEntry(__func__, path, depth)) return nullptr;
    VexHashTreeNode *const previous = path->nodes[depth];
    path->nodes[depth] = node;
    return previous;
}

VexHashTreeNode *VexHashTreePathRemove(VexHashTreePath *path, uint64_t depth) {
    if (!hasEntry(__func__, path, depth)) return nullptr;
    VexHashTreeNode *const removed = path->nodes[depth];
    --path->depth;
    std::copy(path->nodes + depth + 1, path->nodes + path->depth + 1, path->nodes + depth);
    return removed;
}

int VexHashTreePathEmpty(VexHashTreePath *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    path->depth = 0;
    return 0;
}
