// Reading directories for callers with wide texts.
#include <dirent.h>
#include <errno.h>

#include <new>

#include <vex/encoding.h>
#include <vex/wide.h>

#include "base/errno_guard.h"
#include "text/narrow_path.h"

struct WDIR {
    DIR *directory;
};

WDIR *wcsopendir(const wchar_t *path) {
    const vex::text::NarrowPath narrow(path);
    DIR *const directory = narrow.good() ? ::opendir(narrow.text()) : nullptr;
    if (directory == nullptr) return nullptr;
    auto *const dir = new (std::nothrow) WDIR{directory};
    if (dir != nullptr) return dir;
    (void)::closedir(directory);  // read only
    errno = ENOMEM;
    return nullptr;
}

int wcsreaddir_r(WDIR *dir, struct wdirent *entry, struct wdirent **result) {
    if (result != nullptr) *result = nullptr;
    if (dir == nullptr || entry == nullptr || result == nullptr) return EINVAL;
    const vex::ErrnoGuard guard;
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the header gives a stream to one thread at a time
    const dirent *const next = ::readdir(dir->directory);
    if (next == nullptr) return errno;
    entry->d_ino = next->d_ino;
    entry->d_type = next->d_type;
    if (vex_utf8_to_wcs(next->d_name, entry->d_name, sizeof entry->d_name / sizeof(wchar_t)) < 0)
        return ENAMETOOLONG;
    *result = entry;
    return 0;
}

int wcsdirfd(WDIR *dir) {
    if (dir != nullptr) return ::dirfd(dir->directory);
    errno = EINVAL;
    return -1;
}

int wcsclosedir(WDIR *dir) {
    if (dir == nullptr) return errno = EINVAL, -1;
    const int closed = ::closedir(dir->directory);
    delete dir;
    return closed;
}
