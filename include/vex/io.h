/**
 * @file io.h
 * @ingroup io
 * Reading, writing, syncing and renaming that signals do not cut short and a power cut does not
 * undo.
 *
 * The safe_ functions on descriptors move all that was asked for or tell why not. The dirfsync
 * functions make a change of a directory durable: a rename or unlink that was not followed by a
 * sync of its directory may be gone after a power cut, even though the program saw it happen.
 * Nothing here syncs a file's content unless its name says so.
 *
 * Results are 0 or a count, and -1 on failure, with errno kept from the failing call.
 *
 * @threads every function may be called from any thread and keeps no state; calls on one descriptor
 * or stream are the caller's to order.
 * @standard the POSIX.1-2008 functions they are named after.
 */
#ifndef VEX_IO_H
#define VEX_IO_H

#include <stddef.h>
#include <stdio.h>
#include <sys/types.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Reads exactly @p count bytes unless the file ends before; a call that a signal interrupts is
 * repeated.
 *
 * @param fd      open for reading.
 * @param buffer  room for @p count bytes; may be NULL when that is 0.
 * @param count   bytes; 0 returns 0 at once, whatever the other arguments are.
 * @return the bytes read, less than @p count only at the end of the file; -1 with EINVAL for a NULL
 * buffer or a negative count (logged), else what read left (silent; bytes read before are lost).
 * EAGAIN of a non-blocking descriptor is such a failure.
 */
VEX_API ssize_t safe_read(int fd, void *buffer, ssize_t count);
/**
 * Writes exactly @p count bytes; a call that a signal interrupts is repeated.
 *
 * @return the bytes written, less than @p count only when a write made no progress; -1 with EINVAL
 * for a NULL buffer or a negative count, else what write left: how much was written before is
 * unknown then.
 * @logs one error line per failure.
 */
VEX_API ssize_t safe_write(int fd, const void *buffer, ssize_t count);
/** safe_read at @p offset bytes from the start of the file; does not move the descriptor's
 * position. */
VEX_API ssize_t safe_pread(int fd, void *buffer, ssize_t count, off_t offset);
/** safe_write at @p offset bytes from the start of the file; does not move the descriptor's
 * position. */
VEX_API ssize_t safe_pwrite(int fd, const void *buffer, ssize_t count, off_t offset);

/** fsync, repeated while a signal interrupts it. Logs nothing. @note after a failure nothing is
 * known to be stored. */
VEX_API int safe_fsync(int fd);
/** fdatasync, repeated while a signal interrupts it. Logs nothing. */
VEX_API int safe_fdatasync(int fd);
/** ftruncate to @p length bytes, repeated while a signal interrupts it. Logs nothing. */
VEX_API int safe_ftruncate(int fd, off_t length);

/**
 * Makes the entries of a directory durable: opens it, syncs it, closes it.
 *
 * Call it after a rename, creation or unlink inside @p path. Files must have been synced before.
 *
 * @param path   directory; must not be NULL.
 * @param quiet  non-zero suppresses the log line of a failing call.
 * @return 0; -1 with EINVAL for NULL, ENOTDIR for what is no directory, else what
 * open, fsync or close left.
 * @logs one error line per failure unless @p quiet. Blocks until the disk answers.
 */
VEX_API int dirfsync(const char *path, int quiet);
/**
 * Renames @p from to @p to, replacing what is there, and syncs the directory @p dir.
 *
 * The caller has synced the file itself and names the directory that holds @p to; when @p from is
 * in another one, that needs a dirfsync of its own.
 *
 * @return 0; -1 when the rename failed or the sync did: in that case the new name is there, though
 * not yet durable.
 * @logs one error line per failure unless @p quiet.
 */
VEX_API int rename_dirfsync(const char *from, const char *to, const char *dir, int quiet);
/** Removes @p path and syncs the directory @p dir, by the rules of rename_dirfsync. */
VEX_API int unlink_dirfsync(const char *path, const char *dir, int quiet);
/**
 * rename, with its arguments checked.
 *
 * @return 0; -1 with EINVAL for a NULL or empty path (logged), else what rename left (silent).
 */
VEX_API int safe_rename(const char *from, const char *to);

/**
 * fread that goes on after a signal.
 *
 * @param buffer  room for @p size times @p count bytes.
 * @param size    bytes of one item; with @p count 0 it returns 0 at once.
 * @param count   items.
 * @param stream  open for reading.
 * @return whole items read, less than @p count at the end of the file (silent) or on an error.
 * @logs two error lines when the stream's error flag is set after a short transfer; one for a NULL
 * stream or buffer (EINVAL).
 */
VEX_API size_t safe_fread(void *buffer, size_t size, size_t count, FILE *stream);
/**
 * fwrite that reports errors.
 *
 * @return whole items taken over by the stream; less than @p count on an error. What the stream
 * still buffers is written, and can fail, later.
 * @note Not repeated after a signal: the C library drops the buffered bytes of a failed write.
 * @logs as safe_fread.
 */
VEX_API size_t safe_fwrite(const void *buffer, size_t size, size_t count, FILE *stream);

/** fflush. -1 with EINVAL, logged, for NULL; other failures are silent. The same holds for the next
 * six. */
VEX_API int safe_fflush(FILE *stream);
/** Flushes the stream and calls fsync on its descriptor once; EINTR is returned. */
VEX_API int ffsync(FILE *stream);
/** Flushes the stream and syncs its descriptor with safe_fsync. */
VEX_API int safe_ffsync(FILE *stream);
/** Flushes the stream and calls fdatasync on its descriptor once; EINTR is returned. */
VEX_API int ffdatasync(FILE *stream);
/** Flushes the stream and syncs its descriptor's data with safe_fdatasync. */
VEX_API int safe_ffdatasync(FILE *stream);
/** Flushes the stream and cuts or extends its file to @p length bytes; the stream's position stays.
 */
VEX_API int fftruncate(FILE *stream, off_t length);
/**
 * Flushes and closes the stream.
 *
 * @return 0; -1 with the errno of the first failure, flush before close. The stream is gone either
 * way.
 */
VEX_API int safe_fclose(FILE *stream);

/**
 * Reads decimal digits from a stream up to the first other character, which stays in the stream.
 *
 * @param stream     open for reading.
 * @param buffer     receives the digits, not terminated; room for @p max bytes. Never NULL.
 * @param max        most digits to read; what follows them is not looked at. 0 reads nothing.
 * @param count_out  receives the number of digits, 0 when there is none.
 * @return @p buffer, also at the end of the file; NULL with EIO on a stream error or when the
 * character could not be put back (silent), with EINVAL for NULL (logged).
 */
VEX_API char *fread_uint(FILE *stream, char *buffer, size_t max, size_t *count_out);

VEX_END_DECLS

#endif
