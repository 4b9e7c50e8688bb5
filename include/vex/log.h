/**
 * @file log.h
 * @ingroup log
 * The log that every part of the library and every program on it reports through.
 *
 * A message is formatted once, in buffers of the calling thread's own context, and then goes, each
 * under its own filter, to syslog (facility LOG_LOCAL4), to standard error, to the thread's log
 * file and to its redirector. Logging works from the first instruction of the process to its last:
 * before _VexLibInit, after VexLibDestroy, in destructors and exit handlers. It never fails towards
 * its caller, never changes errno, takes no lock while it formats and allocates nothing once the
 * thread's context exists.
 *
 * A level is one bit; the low 8 bits of the flags word select the levels that are written. Set the
 * log up from the first thread, before other threads start: that thread's settings become the
 * process's.
 *
 * @threads every function may be called from any thread; set-up functions take one process-wide
 * mutex.
 */
#ifndef VEX_LOG_H
#define VEX_LOG_H

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>

#include <vex/export.h>

/** Levels of a message, one bit each. */
#define VEX_LOG_CRIT 1    /**< the process cannot go on */
#define VEX_LOG_ERR 2     /**< a call failed */
#define VEX_LOG_WARN 4    /**< it went on, but somebody should look */
#define VEX_LOG_AUTH 8    /**< who was let in, and who was not */
#define VEX_LOG_INFO 16   /**< what the process does */
#define VEX_LOG_NOTICE 32 /**< what operators may want to know */
#define VEX_LOG_TRACE 64  /**< for developers; no code */
#define VEX_LOG_BUG 128   /**< what must not happen did */

/** Levels of the file-system component; each is filtered as an ordinary level (debug and info as
 * info, and so on). */
#define VEX_LOG_WQFS_ERROR 0x2000000    /**< filtered as err */
#define VEX_LOG_WQFS_INFO 0x4000000     /**< filtered as info */
#define VEX_LOG_WQFS_DEBUG 0x8000000    /**< filtered as info */
#define VEX_LOG_WQFS_TRACE 0x10000000   /**< filtered as trace */
#define VEX_LOG_WQFS_WARNING 0x20000000 /**< filtered as warn */
#define VEX_LOG_WQFS_CACHE 0x40000000   /**< a bit of its own: written when the flags hold it */

/** Flags that go with the levels in a flags word. */
#define VEX_LOG_DATE 0x800           /**< timestamp at the head of file lines */
#define VEX_LOG_STDERR_SEVERE 0x2000 /**< standard error shows only crit, err, warn and bug */
#define VEX_LOG_SILENT 0x4000        /**< nothing on standard error; syslog stays closed */
#define VEX_LOG_THREAD 0x8000        /**< tag lines with the thread's id */
#define VEX_LOG_NO_OUTPUT \
    0x10000 /**< nothing to standard error and file; syslog and redirector go on */
#define VEX_LOG_TIMING \
    0x40000 /**< monotonic nanoseconds "[%li] " behind the timestamp (needs VEX_LOG_DATE) */
#define VEX_LOG_STDERR_DATE 0x80000 /**< the timestamp on standard error as well */
#define VEX_LOG_SHORT_TIME \
    0x800000 /**< timestamp "%H:%M:%S "; also honoured in the thread's own flags */

/** Presets, as vexLogParseFlagsA reads them by name. */
#define VEX_LOG_PRESET_MINIMAL 139 /**< crit, err, auth, bug */
#define VEX_LOG_PRESET_SHORT 143   /**< minimal and warn */
#define VEX_LOG_PRESET_LONG 159    /**< short and info */
#define VEX_LOG_PRESET_VERBOSE 191 /**< long and notice */
#define VEX_LOG_PRESET_FULL 2303   /**< all levels, with timestamps */

VEX_BEGIN_DECLS

/** One thread's log context: its path, label, buffers and last message. Opaque; the library owns
 * it. */
typedef struct vexLogCtx vexLogCtx;

/**
 * Receives the messages of the thread that installed it, after the other outputs.
 *
 * @param level       the level that the message was filtered as.
 * @param code        the message's code as the caller gave it, without the base code.
 * @param message     the text without code prefix and trailing newline; valid during the call.
 * @param savedErrno  errno as it was when the message was logged.
 * @note Messages logged inside it do not reach it again. It may change errno.
 */
typedef void (*vexLogRedirector)(int level, int code, const char *message, int savedErrno);

/**
 * Logs one message.
 *
 * Levels crit, err and warn always show the code ("-1: " or "<base code + code>: "), other levels
 * only codes of 1 and more. The whole line is cut to 2046 characters and ends in a newline; an
 * empty text without code logs nothing. Cost: one formatting pass and one write(2) for a line to a
 * file.
 *
 * @param code    an errno value, a program's own number, or -1 for none.
 * @param level   one of the levels above; a value that is none of them counts as its own bit and
 * prints as info.
 * @param format  printf format; %m prints the errno of the moment of the call.
 */
VEX_API void vexLog(int code, int level, const char *format, ...) VEX_PRINTF(3, 4);
/** vexLog at level err. */
VEX_API void ErrorA(int code, const char *format, ...) VEX_PRINTF(2, 3);
/** vexLog at level warn. */
VEX_API void WarningA(int code, const char *format, ...) VEX_PRINTF(2, 3);
/** vexLog at level auth. */
VEX_API void AuthA(int code, const char *format, ...) VEX_PRINTF(2, 3);
/** vexLog at level info. */
VEX_API void InfoA(int code, const char *format, ...) VEX_PRINTF(2, 3);
/** vexLog at level notice. */
VEX_API void NoticeA(int code, const char *format, ...) VEX_PRINTF(2, 3);
/** Logs at level crit, then calls exit(1): exit handlers run. */
VEX_API VEX_NORETURN void ErrorExitA(int code, const char *format, ...) VEX_PRINTF(2, 3);
/** Logs at level trace without code. Test TraceOn() first where building the text costs anything.
 */
VEX_API void __Trace(const char *format, ...) VEX_PRINTF(1, 2);
/** __Trace over a va_list. */
VEX_API void __TraceVA(const char *format, va_list args) VEX_PRINTF(1, 0);

/** The file-system component's debug line: VEX_LOG_WQFS_DEBUG, without code. */
VEX_API void DebugVA(const char *format, va_list args) VEX_PRINTF(1, 0);
/** DebugVA at level VEX_LOG_WQFS_ERROR. */
VEX_API void ErrorVA(const char *format, va_list args) VEX_PRINTF(1, 0);
/** DebugVA at level VEX_LOG_WQFS_INFO. */
VEX_API void InfoVA(const char *format, va_list args) VEX_PRINTF(1, 0);
/** DebugVA at level VEX_LOG_WQFS_WARNING. */
VEX_API void WarningVA(const char *format, va_list args) VEX_PRINTF(1, 0);
/** DebugVA at level VEX_LOG_WQFS_TRACE. */
VEX_API void __WqfsLogTraceVA(const char *format, va_list args) VEX_PRINTF(1, 0);

/**
 * Sends a message straight to syslog(3), whatever the flags and the syslog mask say.
 *
 * @param code      shown as "<WORD>: <base code + code>: "; left out when -1 and at priority
 *                  LOG_INFO.
 * @param priority  0 (LOG_EMERG) to 7 (LOG_DEBUG); beyond that the word is empty.
 * @param format    printf format of the text.
 */
VEX_API void vexSyslog(int code, int priority, const char *format, ...) VEX_PRINTF(3, 4);

/** True when trace messages are written. A few nanoseconds; test it before building trace text. */
VEX_API bool TraceOn(void);

/**
 * Sets up the calling thread's log; the first thread's call sets the process's flags and syslog
 * mask as well.
 *
 * @param path        log file, at most 4095 characters; NULL or empty for none. Opened when first
 * written.
 * @param flags       levels and flags, see above.
 * @param syslogMask  levels that go to syslog; 0 keeps it closed, and so does VEX_LOG_SILENT in
 * mask or flags. syslog is opened by the first set-up of the process only.
 * @return 0.
 * @note Opening syslog uses alarm(2) for a second and leaves SIGALRM at its default: a hung daemon
 * must not hang the program.
 */
VEX_API int vexLogSet(const char *path, int flags, int syslogMask);
/**
 * vexLogSet with a label that is put into file lines between level word and tag, without any blank.
 *
 * @param path        as vexLogSet.
 * @param flags       as vexLogSet.
 * @param syslogMask  as vexLogSet.
 * @param reserved    pass NULL.
 * @param label       at most 31 characters are kept; NULL for none.
 */
VEX_API int vexLogSetEx(const char *path, int flags, int syslogMask, void *reserved,
                        const char *label);
/**
 * Takes path, flags and label from the calling thread (from the process as well when it is the
 * first thread) and flushes the log files. syslog stays open. @return 0.
 */
VEX_API int vexLogClose(void);
/** Closes syslog and returns the process to the default flags (crit, err, warn, bug). @return 0. */
VEX_API int vexLogDestroy(void);
/** Replaces the process's flags and syslog mask at once; opens no syslog. */
VEX_API void vexLogSetFlags(int flags, int syslogMask);
/** Stores the process's flags and syslog mask; either pointer may be NULL. */
VEX_API void vexLogGetFlags(int *flags, int *syslogMask);
/** Sets the number that is added to the code of each message of the calling thread. */
VEX_API void vexLogSetBaseCode(int baseCode);
/** Installs the calling thread's redirector; NULL removes it. */
VEX_API void vexLogSetRedirector(vexLogRedirector fn);

/**
 * Sets the size in bytes from which a log file is renamed to "<path>.<YYYYmmddHHMMSS>" and begun
 * anew; 0 for no limit.
 * @logs one info line.
 */
VEX_API void vexLogSetProcessMaxSize(size_t n);
/** The same as vexLogSetProcessMaxSize. */
VEX_API void vexLogSetMaxSize(size_t n);
/** The size limit in bytes; also stored in @p out unless that is NULL. */
VEX_API size_t vexLogGetProcessMaxSize(size_t *out);
/** The same as vexLogGetProcessMaxSize. */
VEX_API size_t vexLogGetMaxSize(size_t *out);

/** vexLogLoadStripA with strip = 1. */
VEX_API int vexLogLoadA(const char *ini, const char *section, const char *pathKey, char *outPath,
                        size_t outPathSize, const char *fileName, int *retention);
/**
 * Reads a program's log settings from an ini file; sets nothing up: hand the results to vexLogSet.
 *
 * Each key is taken from @p section, or from section "Logging" when it is absent or empty there:
 * "Logging" (flags as vexLogParseFlagsA reads them, default "long"), @p pathKey (directory, default
 * "/var/log/", created with mode 0755 unless the flags are 0) and "Retention" (days).
 *
 * @param ini          ini file; must not be NULL.
 * @param section      NULL means "Logging".
 * @param pathKey      key of the directory; must not be NULL.
 * @param outPath      receives directory, '/' and @p fileName; may be NULL when the path is not
 * wanted.
 * @param outPathSize  room in characters, terminator included.
 * @param fileName     NULL or empty for the directory alone.
 * @param retention    receives the days, 0 when absent, negative or unreadable; may be NULL.
 * @param strip        non-zero ignores trailing '/' when the directory is checked.
 * @return the flags, or -1 with errno: EINVAL for NULL, an unknown word, a path that does not fit;
 * else what creating or checking the directory left.
 * @logs one error line per failure.
 */
VEX_API int vexLogLoadStripA(const char *ini, const char *section, const char *pathKey,
                             char *outPath, size_t outPathSize, const char *fileName,
                             int *retention, int strip);

/**
 * Reads a flags word from text: a preset ("minimal", "short", "long", "verbose", "full") or level
 * words, with "thread", "date", "silent" and "timing" added. Words are found anywhere in the text,
 * in either case.
 *
 * @return the flags; 0 for NULL, an empty text and any text that holds "none"; -1 when no preset or
 * level is named.
 */
VEX_API int vexLogParseFlagsA(const char *text);
/**
 * Prints a flags word: the largest preset it holds, or "none", then ", threadid", ", date", ",
 * silent", ", timing".
 *
 * @param flags  the word to print.
 * @param buf    receives the text, terminated.
 * @param size   room in characters; what does not fit is cut.
 * @return @p buf, or the constant "(unknown)" when buf is NULL or size below 4.
 */
VEX_API const char *vexLogFlagsToString(int flags, char *buf, size_t size);

/** The stream that messages for people go to: always stderr. */
VEX_API FILE *vexLogFile(void);
/** The calling thread's log path, or "(null)". Valid until the thread's next set-up. */
VEX_API const char *vexLogPathA(void);
/** The calling thread's last message that was not a trace, with prefix and newline; "" when none.
 */
VEX_API const char *vexLogLastErrorA(void);
/**
 * The last message without its code prefix.
 *
 * @note Drops the stored newline for good, and takes any text up to the first ':' for the prefix
 * when the message begins with a digit (or '-' and a digit).
 */
VEX_API const char *vexLogLastMessageA(void);
/** Writes the calling thread's stack, up to 64 frames, to standard error. Allocates; not for signal
 * handlers. */
VEX_API void vexLogBacktrace(void);

/** The calling thread's context; NULL when the thread has not logged yet. */
VEX_API vexLogCtx *vexLogGetCtx(void);
/**
 * Lets the calling thread log into @p ctx, so that a worker's lines go where its creator's go; NULL
 * takes it away.
 *
 * @note A context belongs to the threads it is installed on: the last of them to end frees it. Two
 * threads that log into one context at the same moment mix their lines: the caller keeps them
 * apart.
 */
VEX_API void vexLogSetCtx(vexLogCtx *ctx);
/** Frees a context at once and takes it from the calling thread; NULL and the default context are
 * left alone. */
VEX_API void vexLogCtxDestroy(vexLogCtx *ctx);
/** To be called in the child after fork(2): new locks, log files opened afresh. */
VEX_API void vexlog_reset_for_fork(void);

VEX_END_DECLS

#endif
