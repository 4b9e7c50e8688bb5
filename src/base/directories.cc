#include "base/directories.h"

#include <errno.h>
#include <sys/stat.h>

namespace vex {
namespace {

int makeOne(const char *path, mode_t mode) {
    if (mkdir(path, mode) == 0) return 0;
    // mkdir says EROFS or EACCES instead of EEXIST for some directories that are there
    const int saved = errno;
    struct stat status {};
    if (stat(path, &status) != 0) {
        errno = saved;
        return -1;
    }
    if (S_ISDIR(status.st_mode)) return 0;
    errno = ENOTDIR;
    return -1;
}

}  // namespace

int makeDirectories(char *path, mode_t mode) {
    for (char *slash = path + 1; *path != '\0' && *slash != '\0'; ++slash) {
        if (*slash != '/' || slash[-1] == '/') continue;
        *slash = '\0';
        const int result = makeOne(path, mode);
        *slash = '/';
        if (result != 0) return -1;
    }
    return makeOne(path, mode);
}

}  // namespace vex
