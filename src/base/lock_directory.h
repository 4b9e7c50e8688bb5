// Keeping other writers away from a file that is replaced as a whole: a lock on the file itself
// would go with it.
#ifndef VEX_BASE_LOCK_DIRECTORY_H
#define VEX_BASE_LOCK_DIRECTORY_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>

#include <string>

#include "base/directory_of.h"
#include "base/eintr.h"
#include "base/unique_fd.h"
#include "base/unique_ptr.h"

namespace vex {

/// The directory to lock for a file: its own, since other writers may come through other links.
inline std::string directoryToLock(const char *path) {
    const UniqueMalloc<char> real(::realpath(path, nullptr));
    return std::string(directoryOf(real ? real.get() : path));
}

/// Waits for the lock on a directory, which lasts as long as the descriptor; empty with errno on
/// failure.
inline UniqueFd lockDirectory(const std::string &directory) {
    UniqueFd fd(retryOnEintr(
        [&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (fd && retryOnEintr([&] { return ::flock(fd.get(), LOCK_EX); }) != 0) return UniqueFd();
    return fd;
}

}  // namespace vex

#endif
