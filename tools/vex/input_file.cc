#include "input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/eintr.h"
#include "command.h"

namespace tool {

bool InputFile::open(const char *path) {
    const bool standard = strcmp(path, "-") == 0;
    name_ = standard ? "standard input" : path;
    fd_.reset(standard ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                       : vex::retryOnEintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    struct stat status {};
    if (!fd_ || fstat(fd_.get(), &status) != 0) {
        fail("%s cannot be opened: %m; check its name and permissions", name_);
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        fail("%s is a directory; name a file", name_);
        return false;
    }
    regular_ = S_ISREG(status.st_mode);
    if (regular_) {
        size_ = static_cast<uint64_t>(status.st_size);
        (void)posix_fadvise(fd_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);  // only a hint
    }
    return true;
}

ssize_t InputFile::read(void *buffer, size_t size) {
    const ssize_t count = safe_read(fd_.get(), buffer, static_cast<ssize_t>(size));
    if (count < 0) fail("%s cannot be read: %m; nothing was kept, try again", name_);
    return count;
}

}  // namespace tool
