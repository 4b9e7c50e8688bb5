/**
 * @file path.h
 * @ingroup text
 * Path texts: their form on this platform, their parts and their order; asking for files by path.
 *
 * Apart from vex_access, vex_stat and vex_path_resolve nothing here looks at the file system. Texts
 * belong to the caller; a NULL argument gives errno EINVAL, one error line and the failure value.
 *
 * @threads every function may be called from any thread; none keeps state. vex_path_resolve reads
 * the working directory for relative paths.
 */
#ifndef VEX_PATH_H
#define VEX_PATH_H

#include <stddef.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * access(2), repeated while a signal interrupts it.
 *
 * @return 0; -1 with errno: EINVAL for NULL, ENOENT for an empty path, else the system's. Logs
 * nothing but NULL.
 */
VEX_API int vex_access(const char *path, int mode);
/** stat(2), by the rules of vex_access. */
VEX_API int vex_stat(const char *path, struct stat *status);

/**
 * Brings a path into this platform's form, in place: backslashes become '/', runs of '/' become
 * one, and a trailing '/' goes unless it is the root. The result is never longer.
 *
 * @return @p path; NULL with errno EINVAL, logged, for NULL.
 */
VEX_API char *vex_path_native(char *path);

/**
 * Compares two paths as strcmp(3) compares their native forms (see vex_path_native). "." and ".."
 * are names like all others: only the file system knows where they lead.
 *
 * @return below, equal to or above 0; INT_MIN after a NULL argument.
 */
VEX_API int vex_path_compare(const char *a, const char *b);

/**
 * Tells whether a path is @p root or lies below it, by whole components of their native forms:
 * "/ab" is not below "/a".
 *
 * @return 1 or 0; everything absolute is below "/", everything relative below "" and ".".
 */
VEX_API int vex_path_is_below(const char *path, const char *root);

/**
 * Makes a path absolute and free of symbolic links, "." and "..", as realpath(3) does; the
 * components at its end that do not exist are kept, which suits a file about to be created.
 *
 * @param path  absolute, or relative to the working directory.
 * @param out   receives the path, terminated.
 * @param size  room at @p out in bytes, terminator included.
 * @return its length; -1 with ENOENT for an empty path, ENOBUFS when it does not fit, and what the
 * file system says: EACCES, ELOOP, ENOTDIR, ENAMETOOLONG. Logs nothing but NULL.
 * @standard POSIX.1-2017, realpath.
 */
VEX_API ssize_t vex_path_resolve(const char *path, char *out, size_t size);

/**
 * Joins a directory and a name with one '/' between them; an empty directory adds nothing.
 *
 * @return the length of the result; -1 with ENOBUFS when it does not fit: @p out is empty then.
 */
VEX_API ssize_t vex_path_join(char *out, size_t size, const char *dir, const char *name);

/**
 * The last component of a path, without changing or copying it.
 *
 * @return a place inside @p path: behind the last '/' that is not trailing. Trailing '/' stay, and
 * the root is its own last component.
 */
VEX_API const char *vex_path_basename(const char *path);

/**
 * The path without its last component and the '/' in front of it: "." for a lone name, "/" for
 * what stands in the root.
 *
 * @return its length; -1 with ENOBUFS when it does not fit: @p out is empty then.
 * @standard POSIX.1-2017, dirname, whose results it gives.
 */
VEX_API ssize_t vex_path_dirname(const char *path, char *out, size_t size);

VEX_END_DECLS

#endif
