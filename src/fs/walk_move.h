// Where a walk stands: the working directory.
#ifndef VEX_FS_WALK_MOVE_H
#define VEX_FS_WALK_MOVE_H

#include "base/eintr.h"
#include "fs/walk_entry.h"

namespace vex::fs {

/// Whether this is the directory that the entry was taken for; ENOENT when it is another.
template <typename Text>
bool Walk<Text>::isSame(int descriptor, const Entry *directory) {
    struct stat now;
    const int result = descriptor == AT_FDCWD ? ::stat(".", &now) : ::fstat(descriptor, &now);
    if (result != 0) return false;
    if (now.st_ino == directory->ino && now.st_dev == directory->dev) return true;
    errno = ENOENT;
    return false;
}

/// None, with errno, when it cannot be opened or is no longer the one that was looked at. Levels
/// are 16 bits wide: what lies deeper cannot be counted and is not opened.
template <typename Text>
UniqueFd Walk<Text>::openDirectory(const Entry *directory, int flags) const {
    if (directory->level == INT16_MAX) {
        errno = ENAMETOOLONG;
        return {};
    }
    UniqueFd opened(retryOnEintr(
        [&] { return Text::open(directory->accpath, flags | O_DIRECTORY | O_NONBLOCK); }));
    if (opened && !isSame(opened.get(), directory)) opened.reset();
    return opened;
}

template <typename Text>
bool Walk<Text>::enter(Entry *directory, int descriptor) {
    if (descriptor < 0 || ::fchdir(descriptor) != 0) {
        directory->flags |= DDS_DONTCHDIR;
        return false;
    }
    directory->flags &= static_cast<uint16_t>(~DDS_DONTCHDIR);
    return true;
}

/// Goes from within a directory to where its name is; the name of the failed call, with errno, else
/// null. When the way up leads elsewhere, as the directory was moved, the walk goes back to its
/// start.
template <typename Text>
const char *Walk<Text>::back(const Entry *directory) {
    if (!moves()) return nullptr;
    if (directory->level == 0) return ::fchdir(this->dds_rfd) == 0 ? nullptr : "FCHDIR";
    if ((directory->flags & DDS_DONTCHDIR) != 0) return nullptr;
    if ((directory->flags & DDS_SYMFOLLOW) != 0)
        return ::fchdir(directory->symfd) == 0 ? nullptr : "FCHDIR";
    if (::chdir("..") != 0) return "CHDIR";
    if (isSame(AT_FDCWD, directory->parent)) return nullptr;
    const ErrnoGuard guard;
    (void)::fchdir(this->dds_rfd);  // the failure that is told is the other one
    return "CHDIR";
}

template <typename Text>
void Walk<Text>::endFollowing(Entry *entry) {
    if ((entry->flags & DDS_SYMFOLLOW) == 0) return;
    const UniqueFd closed(entry->symfd);
    entry->symfd = -1;
    entry->flags &= static_cast<uint16_t>(~DDS_SYMFOLLOW);
}

}  // namespace vex::fs

#endif
