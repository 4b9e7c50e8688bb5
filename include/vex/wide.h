/**
 * @file wide.h
 * @ingroup text
 * The POSIX file calls for wide path texts.
 *
 * Each converts its paths to UTF-8 and makes the call of the same name without "wcs"; what the call
 * returns and leaves in errno is the result. In front of the call stand EINVAL for NULL, EILSEQ for
 * a text that has no UTF-8 form and ENAMETOOLONG for one of PATH_MAX bytes or more. Nothing is
 * logged.
 *
 * The conversion is always UTF-8, whatever the locale, and a byte b that is not part of valid UTF-8
 * stands in wide text as U+DC00 + b, so that every file name of the system can be named.
 *
 * @threads as safe as the calls themselves; a WDIR must be used by one thread at a time.
 */
#ifndef VEX_WIDE_H
#define VEX_WIDE_H

#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <wchar.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** access(2). */
VEX_API int wcsaccess(const wchar_t *path, int mode);
/** stat(2). */
VEX_API int wcsstat(const wchar_t *path, struct stat *status);
/** lstat(2). */
VEX_API int wcslstat(const wchar_t *path, struct stat *status);

/** open(2); @p mode counts only with O_CREAT or O_TMPFILE in @p flags. The descriptor is
 * close-on-exec. */
VEX_API int wcsopen(const wchar_t *path, int flags, mode_t mode);
/** creat(2), close-on-exec. */
VEX_API int wcscreat(const wchar_t *path, mode_t mode);
/** fopen(3), close-on-exec; @p mode is its own narrow text, "r" to "a+x". */
VEX_API FILE *wcsfopen(const wchar_t *path, const char *mode);
/** truncate(2). */
VEX_API int wcstruncate(const wchar_t *path, off_t length);

/** chdir(2). */
VEX_API int wcschdir(const wchar_t *path);
/** mkdir(2). */
VEX_API int wcsmkdir(const wchar_t *path, mode_t mode);
/** rmdir(2). */
VEX_API int wcsrmdir(const wchar_t *path);
/** unlink(2). */
VEX_API int wcsunlink(const wchar_t *path);
/** remove(3). */
VEX_API int wcsremove(const wchar_t *path);
/** rename(2). */
VEX_API int wcsrename(const wchar_t *from, const wchar_t *to);
/** chmod(2). */
VEX_API int wcschmod(const wchar_t *path, mode_t mode);
/** chown(2). */
VEX_API int wcschown(const wchar_t *path, uid_t owner, gid_t group);
/** link(2). */
VEX_API int wcslink(const wchar_t *existing, const wchar_t *path);
/** symlink(2); neither text needs to lead anywhere. */
VEX_API int wcssymlink(const wchar_t *target, const wchar_t *path);

/**
 * Reads a symbolic link; unlike readlink(2) the result is terminated.
 *
 * @param path  the link.
 * @param out   receives the target, terminated.
 * @param size  room in wide characters, terminator included.
 * @return the length; -1 with ENOBUFS when it does not fit (its head stays), or readlink's errno.
 */
VEX_API ssize_t wcsreadlink(const wchar_t *path, wchar_t *out, size_t size);

/**
 * The working directory.
 *
 * @param out   receives the path, terminated.
 * @param size  room in wide characters, terminator included.
 * @return @p out; NULL with EINVAL for NULL, ERANGE when it does not fit, or getcwd's errno.
 */
VEX_API wchar_t *wcsgetcwd(wchar_t *out, size_t size);

/** A directory that is open for reading. */
typedef struct WDIR WDIR;

/** A directory entry. No name is longer than the 255 bytes that file systems allow. */
struct wdirent {
    ino_t d_ino;          /**< inode number */
    unsigned char d_type; /**< DT_REG, DT_DIR ... of <dirent.h>; DT_UNKNOWN where the file system
                             does not tell */
    wchar_t d_name[256];  /**< terminated */
};

/**
 * opendir(3).
 *
 * @owner the caller ends it with wcsclosedir.
 */
VEX_API WDIR *wcsopendir(const wchar_t *path);

/**
 * Reads the next entry, as readdir_r(3) did, "." and ".." included.
 *
 * @param dir     of wcsopendir.
 * @param entry   receives it.
 * @param result  receives @p entry, or NULL at the end of the directory and after a failure.
 * @return 0, also at the end; the number of an error: EINVAL for NULL, else readdir's.
 */
VEX_API int wcsreaddir_r(WDIR *dir, struct wdirent *entry, struct wdirent **result);

/** The descriptor of the directory, which stays the stream's; -1 with EINVAL for NULL. */
VEX_API int wcsdirfd(WDIR *dir);

/** closedir(3). */
VEX_API int wcsclosedir(WDIR *dir);

VEX_END_DECLS

#endif
