/**
 * @file id_file.h
 * @ingroup fs
 * Id files: small files that each hold one persistent 64-bit counter, such as a sequence number.
 *
 * A file is 12 bytes in the machine's byte order, the value and its Adler-32 checksum; older files
 * of 8 bytes without the checksum are read as well (docs/formats/id_file.md). A value counts as
 * stored only when the disk has said so.
 *
 * @p path and @p name appear in messages only, except where a function opens the file itself; @p
 * name is the counter's. Results are 0 or a descriptor, and -1 with errno, after one error line per
 * failing step. NULL gives EINVAL.
 *
 * @threads any thread; writers of one counter must take turns.
 */
#ifndef VEX_ID_FILE_H
#define VEX_ID_FILE_H

#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Reads the counter through an open descriptor.
 *
 * @param path       names the file in messages.
 * @param name       names the counter in messages.
 * @param value_out  receives the value; untouched on failure.
 * @param fd         open for reading; its position does not matter and is moved.
 * @param minimum    smallest value that is accepted.
 * @return 0; -1 with ERANGE for a wrong checksum or a value below @p minimum, ENODATA for a file
 * shorter than 8 bytes, EBADF for a negative descriptor, else what lseek or read left.
 */
VEX_API int ReadId(const char *path, const char *name, uint64_t *value_out, int fd,
                   uint64_t minimum);
/** Opens the file for reading and writing and reads it. @return the descriptor, the caller's to
 * close; -1 as ReadId. */
VEX_API int OpenId(const char *path, const char *name, uint64_t *value_out, uint64_t minimum);

/**
 * Writes the counter and waits until it is stored.
 *
 * When seeking or writing fails the file is opened anew at @p path and written once more: its file
 * system may have come back. The content must be readable for that.
 *
 * @param path       names the file in messages, and is where it is opened anew.
 * @param name       names the counter in messages.
 * @param value      the counter to store.
 * @param fd_in_out  descriptor open for writing; receives the new one when the file was opened
 *                   anew, and the old one is closed.
 * @return 0; -1 when the second attempt or a sync failed: the stored value is unknown then. A
 * failed sync is not repeated, because a later success would prove nothing about the data it lost.
 */
VEX_API int WriteId(const char *path, const char *name, uint64_t value, int *fd_in_out);
/**
 * Creates the file with mode 0600, or empties it, and stores the counter.
 *
 * @note A power cut meanwhile can leave an empty file, and a new file's name lasts only when its
 * directory is synced (dirfsync).
 */
VEX_API int WriteIdToPath(const char *path, const char *name, uint64_t value);

/**
 * Steps the counter: writes @p value_in_out + 1, then stores it there.
 *
 * Whenever the new value is a multiple of 10 the file is read back and compared.
 *
 * @param path          names the file in messages, and is where it is opened anew.
 * @param name          names the counter in messages.
 * @param value_in_out  the counter in memory; unchanged when the write failed. When only the
 *                      comparison failed it holds the new value.
 * @param fd            descriptor open for reading and writing. When the file had to be opened
 *                      anew, the new file takes this number.
 * @return 0; -1 as WriteId and ReadId, and with ERANGE when the file holds another value.
 */
VEX_API int NextId(const char *path, const char *name, uint64_t *value_in_out, int fd);

VEX_END_DECLS

#endif
