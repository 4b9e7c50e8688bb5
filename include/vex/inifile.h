/**
 * @file inifile.h
 * @ingroup config
 * Configuration files: one process-wide store of parsed ini files with typed getters and savers.
 *
 * A file is parsed on the first request that names it and served from memory from then on. Getters
 * take a default: a key that is missing is added in memory with that default, so that a later save
 * writes out a complete file. Nothing reaches the disk until InifileSaveA or InifileFlushAll.
 * Sections and keys match whatever the case of their ASCII letters; an empty value counts as
 * missing. The store finds a loaded file by the Adler-32 of the path's text alone: "x.ini" and
 * "./x.ini" are two files to it, and two paths with equal checksums share one. The path
 * "__default__" names a store without a file. Entries before the first section header belong to the
 * section
 * "__dummy__section__". docs/formats/ini.md has the grammar.
 *
 * Every function takes the ini file's path as its last argument, save the reports and path checks,
 * which take it first. Texts are NUL-terminated, copied in and copied out; the caller owns his
 * buffers. A NULL path, section or key fails with EINVAL unless the entry gives it a meaning.
 *
 * @logs one error line per failure; absence is silent. Loading logs one line for each line of a
 * file that it skips, and one for a file that exists but cannot be read (or is larger than 64 MiB):
 * such a file serves defaults and is never replaced by a save.
 * @threads every function, from any thread: one recursive process-wide mutex is held during each
 * call, file access included, and released when the thread is cancelled.
 */
#ifndef VEX_INIFILE_H
#define VEX_INIFILE_H

#include <stdbool.h>
#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Reads the n-th value of a key; value 0 is the last occurrence in the file, value 1 the one before
 * it.
 *
 * With @p section NULL it lists the names of the sections instead, with @p key NULL the keys of the
 * section, each name followed by a NUL; a name that does not fit whole ends the list.
 *
 * @param n             0 or more; a negative number counts as 0.
 * @param section       matched whatever its case; NULL lists the sections.
 * @param key           matched whatever its case; NULL lists the section's keys.
 * @param buf           receives the text, cut to @p buflen - 1 characters; the whole buffer is
 *                      zeroed first.
 * @param buflen        room in bytes, at least 1.
 * @param defaultValue  used when the value is missing or empty. It then becomes value 0 of the key
 *                      in memory, unless the key has a value 0 already. NULL stores the key without
 *                      value.
 * @param path          the ini file.
 * @return length of the stored value + 1 when found (also when it was cut); minus the length copied
 * when the default was used, so 0 for an empty or NULL default; the bytes needed for a listing (0
 * for a missing section); 0 on failure with errno EINVAL, ENOMEM. After ENOMEM @p buf holds the
 * default all the same.
 * @note A first call that used the default makes the next one find it, whatever default that one
 * brings. Cost: two hash look-ups, whatever the number of sections and keys.
 */
VEX_API int inifileGetNthValue(int n, const char *section, const char *key, char *buf, int buflen,
                               const char *defaultValue, const char *path);
/** inifileGetNthValue under its public name. */
VEX_API int InifileGetNthValueA(int n, const char *section, const char *key, char *buf, int buflen,
                                const char *defaultValue, const char *path);
/** inifileGetNthValue with n = 0. */
VEX_API int InifileGetValueA(const char *section, const char *key, char *buf, int buflen,
                             const char *defaultValue, const char *path);
/**
 * InifileGetValueA for a path: what lands in @p buf has '/' for each backslash, one '/' for a run
 * of them and none at the end save for the root. The stored value keeps its form, and the result
 * counts its length.
 */
VEX_API int InifileGetPathA(const char *section, const char *key, char *buf, int buflen,
                            const char *defaultValue, const char *path);

/**
 * Reads a decimal integer of the type's range.
 *
 * @param section       matched whatever its case.
 * @param key           matched whatever its case.
 * @param out           set to the default first, which stays there on every failure; must not be
 *                      NULL.
 * @param defaultValue  used, and put into the store, when the value is missing or empty.
 * @param path          the ini file.
 * @return what inifileGetNthValue returns, or 0 when the value is not a number from end to end
 * (EINVAL), is out of the type's range (ERANGE), or on failure (EINVAL, ENOMEM). A bad value logs
 * nothing: report it with InifileErrorA, which can say what was expected.
 * @note The unsigned forms read "-1" as strtoull does: ULLONG_MAX for InifileGetULongLongA, out of
 * range for others.
 */
VEX_API int InifileGetIntegerA(const char *section, const char *key, int *out, int defaultValue,
                               const char *path);
/** InifileGetIntegerA for unsigned. */
VEX_API int InifileGetUIntegerA(const char *section, const char *key, unsigned *out,
                                unsigned defaultValue, const char *path);
/** InifileGetIntegerA for short. */
VEX_API int InifileGetShortA(const char *section, const char *key, short *out, short defaultValue,
                             const char *path);
/** InifileGetIntegerA for unsigned short. */
VEX_API int InifileGetUShortA(const char *section, const char *key, unsigned short *out,
                              unsigned short defaultValue, const char *path);
/** InifileGetIntegerA for long long. */
VEX_API int InifileGetLongLongA(const char *section, const char *key, long long *out,
                                long long defaultValue, const char *path);
/** InifileGetIntegerA for unsigned long long. */
VEX_API int InifileGetULongLongA(const char *section, const char *key, unsigned long long *out,
                                 unsigned long long defaultValue, const char *path);
/**
 * Reads a byte count with optional unit, as strtosize does: "10k" is 10000, "10KiB" is 10240.
 * @return as InifileGetIntegerA, but -1 for a bad value and on failure.
 * @note A one-character default that was used gives -1 as well; where that matters look at @p out.
 */
VEX_API int InifileGetSizeA(const char *section, const char *key, uint64_t *out,
                            uint64_t defaultValue, const char *path);
/**
 * Reads a percentage written with its '%', from 1 to 100; decimal point '.' in every locale.
 * @return as InifileGetIntegerA, but -1 on failure, with ERANGE outside 1..100 and EINVAL for what
 * is no percentage.
 */
VEX_API int InifileGetPercentageA(const char *section, const char *key, double *out,
                                  double defaultValue, const char *path);
/** Reads a truth value: true when it begins with 'Y', 'y', 'T', 't' or '1', else false; no value is
 * an error. */
VEX_API int InifileGetBooleanA(const char *section, const char *key, bool *out, bool defaultValue,
                               const char *path);
/** Reads a floating-point number, decimal point '.' in every locale; results as InifileGetIntegerA.
 */
VEX_API int InifileGetFloatA(const char *section, const char *key, float *out, float defaultValue,
                             const char *path);

/**
 * Stores value 0 of a key in memory and marks the file modified. Missing sections and keys are
 * appended.
 *
 * @param section  created when it is missing.
 * @param key      created when it is missing.
 * @param value    NULL and "" store the key without value. Line breaks inside are written to disk
 *                 as "\n" and "\r" of two characters each; blanks at either end do not survive a
 *                 reload.
 * @param path     the ini file.
 * @return 0, or -1 with errno: EINVAL also for a name that could not be read back (a key that is
 * empty, holds '=' or a line break, begins with '[', ';', '#' or a character that is neither
 * letter, digit nor punctuation, or ends in a blank; a section with ']' or a line break); ENOMEM.
 */
VEX_API int InifileSaveValueA(const char *section, const char *key, const char *value,
                              const char *path);
/** InifileSaveValueA of a number in decimal, '-' included. */
VEX_API int InifileSaveIntegerA(const char *section, const char *key, int value, const char *path);
/** InifileSaveIntegerA for its type. */
VEX_API int InifileSaveUIntegerA(const char *section, const char *key, unsigned value,
                                 const char *path);
/** InifileSaveIntegerA for its type. */
VEX_API int InifileSaveShortA(const char *section, const char *key, short value, const char *path);
/** InifileSaveIntegerA for its type. */
VEX_API int InifileSaveUShortA(const char *section, const char *key, unsigned short value,
                               const char *path);
/** InifileSaveIntegerA for its type. */
VEX_API int InifileSaveLongLongA(const char *section, const char *key, long long value,
                                 const char *path);
/** InifileSaveIntegerA for its type. */
VEX_API int InifileSaveULongLongA(const char *section, const char *key, unsigned long long value,
                                  const char *path);
/** InifileSaveValueA of a byte count in decimal, without unit. */
VEX_API int InifileSaveSizeA(const char *section, const char *key, uint64_t value,
                             const char *path);
/** InifileSaveValueA of "1" or "0". */
VEX_API int InifileSaveBooleanA(const char *section, const char *key, bool value, const char *path);
/** InifileSaveValueA with 48 decimals and '.' in every locale. */
VEX_API int InifileSaveFloatA(const char *section, const char *key, float value, const char *path);

/**
 * Reads the comment that stands before a section header (@p key NULL), before an entry, or at the
 * head of the file (both NULL): its raw lines, ';' or '#' and line breaks included.
 * @return length of the comment + 1, 0 when there is none (ENOENT, silent) or on failure (EINVAL).
 */
VEX_API int InifileGetCommentA(const char *section, const char *key, char *buf, int buflen,
                               const char *path);
/**
 * Replaces such a comment; NULL and "" remove it. Lines that are not blank and do not begin with
 * ';' or '#' get "; ".
 * @return 0, or -1 with errno: EINVAL, ENOENT (silent) when section or key are absent, ENOMEM.
 * @note The head comment belongs to the first section or entry once the file has been saved and
 * read again.
 */
VEX_API int InifileSaveCommentA(const char *section, const char *key, const char *comment,
                                const char *path);
/** Deletes all values of a key, or the section with all its keys when @p key is NULL, in memory; 0,
 * or -1 with errno: EINVAL, ENOENT (silent). Saving a value later brings back that key alone. */
VEX_API int InifileDeleteValueA(const char *section, const char *key, const char *path);
/** 0 when the key has a value that is not empty; -1 with ENOENT (silent) when not, or EINVAL. Adds
 * nothing. */
VEX_API int InifileValueExistsA(const char *section, const char *key, const char *path);

/**
 * Loads a file into the store. One that is loaded already is read anew when its modification time
 * on disk has changed and nothing is modified in memory; getters never look at the disk again.
 * @return 0, also for a missing or unreadable file (an empty store); -1 with EINVAL, ENOMEM.
 */
VEX_API int InifileLoadA(const char *path);
/**
 * Writes a file to disk, modified or not, keeping comments and order; loads it first when need be.
 *
 * A temporary file "<path>-<seconds>.sav" of mode 0640 is written and synced, the file before
 * becomes "<path>.bak" (a hard link, or renamed where the file system has none), the temporary file
 * is renamed over the path and the directory is synced. A symbolic link at the path is followed.
 * The caller becomes the file's owner.
 *
 * @return 0, or -1 with errno: EINVAL for NULL, "__default__" and a path that is no regular file;
 * the errno of reading when the file could not be read; else what the failing call left. The path
 * then holds the old content whole (the new one, when only the last directory sync failed).
 */
VEX_API int InifileSaveA(const char *path);
/**
 * Writes the loaded file @p path to @p target, which must not exist; creates it with mode 0640 and
 * syncs it.
 * @return 0, or -1 with errno: ENOENT when @p path is not loaded, EEXIST, else what the failing
 * call left; then no target is left behind.
 */
VEX_API int InifileSaveAsA(const char *target, const char *path);
/** InifileSaveAsA that loads @p path first when it is not loaded. */
VEX_API int IniFileLoadAndSaveAsA(const char *target, const char *path);
/** Writes a file to its own path only where none exists yet; 0, or -1 with EEXIST and the errors of
 * InifileSaveAsA. */
VEX_API int InifileSaveNewA(const char *path);
/** Drops a file from the store, unsaved changes included; 0, or -1 with ENOENT (silent), EINVAL. */
VEX_API int InifileReleaseA(const char *path);
/** Drops all files from the store, unsaved changes included. @return 0. */
VEX_API int InifileReleaseAll(void);
/**
 * Saves every modified file, also those that only defaults were added to; "__default__" is left
 * out.
 * @return 0, or -1 with the errno of the last failure; the others have been saved all the same.
 */
VEX_API int InifileFlushAll(void);

/**
 * Logs a bad value as one block: value, file, section, entry and reason; NULL fields print
 * "(none)".
 * @note The arguments come in another order than the lines of the block.
 */
VEX_API void InifileErrorA(const char *path, const char *section, const char *key,
                           const char *value, const char *reason);
/** InifileErrorA at warning level. */
VEX_API void InifileWarningA(const char *path, const char *section, const char *key,
                             const char *value, const char *reason);
/** InifileErrorA at notice level. */
VEX_API void InifileNoticeA(const char *path, const char *section, const char *key,
                            const char *value, const char *reason);
/** InifileErrorA for a number. */
VEX_API void InifileValueErrorA(const char *path, const char *section, const char *key, long value,
                                const char *reason);
/** InifileValueErrorA at warning level. */
VEX_API void InifileValueWarningA(const char *path, const char *section, const char *key,
                                  long value, const char *reason);
/** InifileValueErrorA at notice level. */
VEX_API void InifileValueNoticeA(const char *path, const char *section, const char *key, long value,
                                 const char *reason);

/**
 * Checks a path that was configured: not empty, of the required kind, and with its owner's
 * permissions (0700 for a directory, 0600 for a file).
 *
 * @param path, section, key  where @p value comes from, for the report.
 * @param value               the path to check.
 * @param requiredKind        S_IFDIR (16384) or S_IFREG (32768).
 * @param strip               non-zero ignores '/' at the end of @p value.
 * @return 0, or -1 with errno: EINVAL for an empty value or another kind number, what stat left,
 * ENOTDIR or EISDIR for the wrong kind, EACCES for the permissions.
 * @logs one InifileErrorA block per failure.
 */
VEX_API int InifileCheckPathStripA(const char *path, const char *section, const char *key,
                                   const char *value, int requiredKind, int strip);
/** InifileCheckPathStripA with strip = 1. */
VEX_API int InifileCheckPathA(const char *path, const char *section, const char *key,
                              const char *value, int requiredKind);

/** Prints the paths of all loaded files to standard output, newest first. */
VEX_API void inifilePrintLoadedFiles(void);
/** Prints all loaded files with comments, sections and entries to standard output, values included:
 * for debugging. */
VEX_API void inifilePrintLoadedFileContents(void);

VEX_END_DECLS

#endif
