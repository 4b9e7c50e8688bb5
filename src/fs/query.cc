// Sizes, names and permissions of files.
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <vex/file.h>
#include <vex/log.h>

#include "fs/exists.h"
#include "log/report.h"

namespace {

constexpr off_t kBig = 2000000000;
constexpr int kLastCounter = 99;
constexpr size_t kPathRoom = 4096;
constexpr mode_t kExecute[] = {S_IXUSR, S_IXGRP, S_IXOTH};

bool writableAndSearchable(const char *directory) {
    return access(directory, W_OK | X_OK) == 0;
}

/// Judges what snprintf made of a name: false after reporting a failure with its old line number,
/// by which support knows it, and in silence when the name does not fit.
bool printed(int length, unsigned line) {
    if (length < 0) {
        const int err = errno;
        ErrorA(err, "FileTemp (%u): could not print to file: %m", line);
        errno = err;
        return false;
    }
    if (static_cast<size_t>(length) < kPathRoom) return true;
    errno = ENOBUFS;
    return false;
}

char typeLetter(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFIFO:
            return 'p';
        case S_IFCHR:
            return 'c';
        case S_IFDIR:
            return 'd';
        case S_IFBLK:
            return 'b';
        case S_IFREG:
            return '-';
        case S_IFLNK:
            return 'l';
        case S_IFSOCK:
            return 's';
        default:
            return '?';
    }
}

}  // namespace

int64_t FileSizeGet(const char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    struct stat status {};
    if (stat(path, &status) != 0) return VEX_FAIL(errno, -1, "could not stat path %s", path);
    return status.st_size;
}

int is_big(const char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    struct stat status {};
    if (stat(path, &status) != 0) return VEX_FAIL(errno, -1, "could not access path %s", path);
    return status.st_size > kBig ? 1 : 0;
}

char *FileTemp(const char *directory) {
    static char name[kPathRoom];
    char working[kPathRoom];
    if (directory == nullptr || *directory == '\0') directory = "/tmp";
    if (!writableAndSearchable(directory)) {
        directory = getcwd(working, sizeof working);
        if (directory == nullptr || !writableAndSearchable(directory))
            return VEX_FAIL(errno, nullptr, "could not access path");
    }
    const auto seconds = static_cast<unsigned long>(time(nullptr));
    if (!printed(snprintf(name, sizeof name, "%s%c%lu.tmp", directory, '/', seconds), 962))
        return nullptr;
    for (int counter = 0; counter <= kLastCounter && vex::fs::exists(name); ++counter) {
        if (!printed(snprintf(name, sizeof name, "%s%c%lu%i.tmp", directory, '/', seconds, counter),
                     976))
            return nullptr;
    }
    return name;
}

char *GetModeStringA(unsigned mode) {
    static char text[11];
    text[0] = typeLetter(mode);
    for (unsigned i = 0; i < 9; ++i)
        text[1 + i] = (mode >> (8 - i) & 1) != 0 ? "rwxrwxrwx"[i] : '-';
    static constexpr struct {
        mode_t bit;
        char with_execute, alone;
    } kSpecial[] = {{S_ISUID, 's', 'S'}, {S_ISGID, 's', 'S'}, {S_ISVTX, 't', 'T'}};
    for (unsigned i = 0; i < 3; ++i)
        if ((mode & kSpecial[i].bit) != 0)
            text[3 + 3 * i] =
                (mode & kExecute[i]) != 0 ? kSpecial[i].with_execute : kSpecial[i].alone;
    text[10] = '\0';
    return text;
}

int CheckDirContentIndexingA(const char *) {
    return 0;
}
int CheckDirContentIndexingW(const wchar_t *) {
    return 0;
}
int DisableDirContentIndexingA(const char *) {
    return 1;
}
int DisableDirContentIndexingW(const wchar_t *) {
    return 1;
}
