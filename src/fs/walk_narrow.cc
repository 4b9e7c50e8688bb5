// The walker's functions for narrow text.
#include "fs/walk_steps.h"

using NarrowWalk = vex::fs::Walk<vex::fs::NarrowText>;

static_assert(sizeof(DirStream) == 88 && sizeof(DirEntry) == 128);

DirStream *DirOpenExA(const char *path, uint32_t options, DirCompareA compar, DirFilterA filter,
                      DirReleaseA release, uint32_t delay_ms) {
    return NarrowWalk::open(__func__, path, {options, delay_ms, compar, filter, release});
}

DirStream *DirOpenA(const char *path, uint32_t options, DirCompareA compar, uint32_t delay_ms) {
    return DirOpenExA(path, options, compar, nullptr, nullptr, delay_ms);
}

DirEntry *DirGetNextA(DirStream *walk) {
    return NarrowWalk::next(__func__, walk);
}

DirEntry *DirGetChildrenA(DirStream *walk, uint32_t options) {
    return NarrowWalk::children(__func__, walk, options);
}

int DirSetFlagsA(DirEntry *entry, unsigned instruction) {
    return NarrowWalk::instruct(__func__, entry, instruction);
}

int DirCloseA(DirStream *walk) {
    return NarrowWalk::close(__func__, walk);
}

int DirGetErrnoA(const DirEntry *entry) {
    return NarrowWalk::errorOf(__func__, entry);
}

const char *DirGetStrerrorA(const DirEntry *entry) {
    return NarrowWalk::errorText(__func__, entry);
}
