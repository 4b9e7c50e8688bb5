/**
 * @file file.h
 * @ingroup fs
 * Whole files and directory trees: copying, moving, comparing and loading, checksums, temporary
 * names, directories, and the clock functions that go with them. It brings in vex/io.h
 * (interrupt-safe and durable input and output) and vex/id_file.h (persistent counters).
 *
 * Failures are logged where they happen, one error line each unless an entry says otherwise, with
 * errno kept from the failing call. A NULL argument gives EINVAL. Lines about a file that cannot be
 * opened for reading come in pairs: the reason, then the function's own. Sizes are bytes.
 *
 * The copy options, the digests of the last copy and the buffers of FileTemp and GetModeStringA are
 * process-wide and unguarded.
 *
 * @threads any thread, except for what uses the process-wide state: FileSetOptions, copies with
 * options other than 1, FileTemp and GetModeStringA must not run in two threads at once.
 */
#ifndef VEX_FILE_H
#define VEX_FILE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <wchar.h>

#include <vex/export.h>
#include <vex/id_file.h>
#include <vex/io.h>

VEX_BEGIN_DECLS

/** Copy options. Without one of the others the copy is plain. */
#define VEX_COPY_PLAIN 0x01    /**< the initial value; not to be combined */
#define VEX_COPY_MD5 0x02      /**< compute the MD5 of the content, see FileGetStringMD5 */
#define VEX_COPY_ADLER32 0x04  /**< compute the Adler-32 of the content, see FileGetValueCRC */
#define VEX_COPY_COMPRESS 0x10 /**< write the destination gzip-compressed */
#define VEX_COPY_DECOMPRESS \
    0x20 /**< read the source as gzip; what is not gzip is copied as it is */

/**
 * Sets the process's copy options.
 *
 * @return 1; 0 with EINVAL, and nothing stored, for compression together with decompression.
 * @note Any other value is stored as it is; a copy under one that is neither 1 nor made of the
 * other bits fails.
 */
VEX_API int FileSetOptions(unsigned options);
/** The MD5 of the last copy that computed one, as MD5GetString_r prints it. */
VEX_API char *FileGetStringMD5(char *buffer, size_t size);
/** The Adler-32 of the last copy that computed one. */
VEX_API uint32_t FileGetValueCRC(void);

/**
 * Copies a file under the process's copy options and syncs the copy; a compressed copy is not
 * synced.
 *
 * @param source       a file, a device or a pipe; links are followed.
 * @param destination  must not exist.
 * @param mode         permissions, less the umask; 0 means 0644.
 * @return bytes of content written, before compression or after decompression; -1 with EISDIR for a
 * directory, EINVAL for bad options, EEXIST, EIO for a gzip source that ends early, else the
 * failing call's. A copy that was begun is removed; a destination that was there before is left
 * alone.
 * @note The destination's directory is not synced (dirfsync).
 * @logs a missing source at warning level, then an error.
 */
VEX_API int64_t FileCopy(const char *source, const char *destination, int mode);

/**
 * Renames a file; across file systems copies it, makes the copy durable and removes the source.
 *
 * A destination that is in the way of the rename is removed first, unless the source is missing.
 *
 * @param from  the file to move; a link itself is moved by a rename, what it leads to by a copy.
 * @param to    the new path, not a directory to move into.
 * @param mode  permissions of a copy, as FileCopy; not used by a rename.
 * @return true; false with the source in place. A copy whose source could not be removed is
 * removed.
 * @note A copy is made under the process's copy options. After a plain rename the directories are
 * not synced.
 * @logs info lines about a removed destination as well.
 */
VEX_API bool FileMove(const char *from, const char *to, int mode);
/** FileMove, up to six times, with one line and a second's sleep after each failure. */
VEX_API bool FileMoveWithRetry(const char *from, const char *to, int mode);

/** 0 when both files hold the same bytes, 1 when they differ, -1 when that cannot be told. */
VEX_API int FileCompare(const char *a, const char *b);

/** A file's content as text, with a terminator behind it. @owner the caller frees it with free(3).
 * @return or NULL. */
VEX_API char *FileToText(const char *path);
/**
 * A file's content.
 *
 * @param path      a regular file.
 * @param size_out  receives its size; may be NULL.
 * @return memory of at least one byte, or NULL. @owner the caller frees it with free(3).
 */
VEX_API void *FileToBuffer(const char *path, size_t *size_out);
/**
 * Reads a file into the caller's buffer.
 *
 * @return the bytes read; -1 with ENOBUFS when the file is larger than @p size.
 * @note These three read the size that the file has when it is opened; one that shrinks meanwhile
 * fails with EIO, and a pipe fails with ESPIPE.
 */
VEX_API ssize_t FileLoadToBuffer(const char *path, void *buffer, size_t size);

/** The size that stat(2) gives for a path, or -1. */
VEX_API int64_t FileSizeGet(const char *path);
/** 1 for a file of more than 2000000000 bytes, 0 for others, -1 when its status cannot be had. */
VEX_API int is_big(const char *path);

/**
 * A name for a temporary file, "<directory>/<seconds>.tmp" or, when that exists,
 * "<directory>/<seconds><0..99>.tmp".
 *
 * @param directory  NULL or empty for "/tmp". The working directory serves when it is not writable
 * and searchable.
 * @return the name in a process-wide buffer that the next call replaces; NULL, with ENOBUFS when it
 * does not fit.
 * @note Nothing is created, so that two callers can get the same name, and the name with 99 is not
 * tested: open it with O_EXCL.
 */
VEX_API char *FileTemp(const char *directory);

/** The Adler-32 checksum of a file, 1 for an empty one; 0 on failure. @standard RFC 1950. */
VEX_API uint32_t CRCFromFile(const char *path);
/**
 * The Adler-32 checksum of the part of a file from a position to its end.
 *
 * @param path    the file to read.
 * @param offset  position to begin at, in bytes.
 * @param whence  as lseek(2).
 * @note Only a positive @p offset is sought; with any other the whole file is read, whatever @p
 * whence is.
 */
VEX_API uint32_t CRCFromPartFile(const char *path, off_t offset, int whence);

/** mkdir(2); a path that exists, whatever it is, counts as success. @return 0 or -1. */
VEX_API int CreateDirA(const char *path, int mode);
/**
 * Creates every missing directory of a path; backslashes count as '/'.
 *
 * @param path  at most 4094 bytes, else ENAMETOOLONG.
 * @param mode  permissions, less the umask; 0 means 0755.
 * @return 0, also when all is there; -1, ENOTDIR when a component exists and is no directory.
 */
VEX_API int CreateTreeA(const char *path, int mode);
/** CreateTreeA that logs only when @p log is non-zero. */
VEX_API int CreateTreeLoggingOptionalA(const char *path, int mode, int log);
/** CreateDirA over a wide path, which is taken as UTF-8 (vex_wcs_to_utf8); EILSEQ for what has no
 * such form. */
VEX_API int CreateDirW(const wchar_t *path, int mode);
/** CreateTreeA over a wide path, as CreateDirW. */
VEX_API int CreateTreeW(const wchar_t *path, int mode);
/** CreateTreeLoggingOptionalA over a wide path, as CreateDirW. */
VEX_API int CreateTreeLoggingOptionalW(const wchar_t *path, int mode, int log);

/**
 * Removes a directory and all below it. Links are removed, never followed, @p path itself included.
 *
 * @return 0; -1 when something is left, with the errno of the first failure: the rest is removed
 * all the same.
 * @logs one error line per entry that cannot be removed.
 * @note Keeps one descriptor open per level: a tree deeper than the process may open files fails
 *       with EMFILE.
 */
VEX_API int DeleteTreeA(const char *path);
/** DeleteTreeA over a wide path, as CreateDirW. */
VEX_API int DeleteTreeW(const wchar_t *path);

/**
 * Prints permissions as "ls -l" does, ten characters.
 *
 * @param mode  st_mode; an unknown type shows as '?'.
 * @return a process-wide buffer that the next call replaces.
 */
VEX_API char *GetModeStringA(unsigned mode);

/** The wall clock in microseconds since the epoch. */
VEX_API uint64_t gethrtime(void);
/** Microseconds as seconds. */
VEX_API double hrtime2seconds(uint64_t us);
/** Seconds as microseconds; 0 for what is below 0, UINT64_MAX for what does not fit. */
VEX_API uint64_t seconds2hrtime(double seconds);
/** The wall clock in milliseconds since the epoch. */
VEX_API uint64_t get_millis(void);
/** The milliseconds inside the wall clock's current second, 0 to 999. */
VEX_API unsigned get_only_ms(void);
/**
 * Seconds from now to a local time "YYYY-mm-dd HH:MM:SS", negative when that is past. A day up to
 * 31 that its month does not have counts into the next month, as mktime counts it.
 *
 * @return 0 with EINVAL, not logged, for a text that is no such time; errno is left alone
 * otherwise.
 */
VEX_API long get_seconds_from_now_to_datestring(const char *text);

/** There is no content indexing on this platform. @return 0. */
VEX_API int CheckDirContentIndexingA(const char *path);
/** There is no content indexing on this platform. @return 0. */
VEX_API int CheckDirContentIndexingW(const wchar_t *path);
/** Does nothing on this platform. @return 1. */
VEX_API int DisableDirContentIndexingA(const char *path);
/** Does nothing on this platform. @return 1. */
VEX_API int DisableDirContentIndexingW(const wchar_t *path);

VEX_END_DECLS

#endif
