// The walker's functions for wide text.
#include "fs/walk_steps.h"

using WideWalk = vex::fs::Walk<vex::fs::WideText>;

static_assert(sizeof(DirStreamW) == 88 && sizeof(DirEntryW) == 128);

DirStreamW *DirOpenExW(const wchar_t *path, uint32_t options, DirCompareW compar, DirFilterW filter,
                       DirReleaseW release, uint32_t delay_ms) {
    return WideWalk::open(__func__, path, {options, delay_ms, compar, filter, release});
}

DirStreamW *DirOpenW(const wchar_t *path, uint32_t options, DirCompareW compar, uint32_t delay_ms) {
    return DirOpenExW(path, options, compar, nullptr, nullptr, delay_ms);
}

DirEntryW *DirGetNextW(DirStreamW *walk) {
    return WideWalk::next(__func__, walk);
}

DirEntryW *DirGetChildrenW(DirStreamW *walk, uint32_t options) {
    return WideWalk::children(__func__, walk, options);
}

int DirSetFlagsW(DirEntryW *entry, unsigned instruction) {
    return WideWalk::instruct(__func__, entry, instruction);
}

int DirCloseW(DirStreamW *walk) {
    return WideWalk::close(__func__, walk);
}

int DirGetErrnoW(const DirEntryW *entry) {
    return WideWalk::errorOf(__func__, entry);
}

const char *DirGetStrerrorW(const DirEntryW *entry) {
    return WideWalk::errorText(__func__, entry);
}
