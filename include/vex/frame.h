/**
 * @file frame.h
 * @ingroup frame
 * What every program of the library meets first and last: start-up and tear-down, versions, the
 * switches that all tools share, assertions, the thread's fatal error, and a few small utilities.
 *
 * Call _VexLibInit (or hold a zqutil::LibAutoInit) before any other service except logging, which
 * works always, and VexLibDestroy at the end; both from one thread. Texts that are returned are
 * constants: never free them.
 *
 * @threads every function may be called from any thread, save the two above and those that say
 * otherwise.
 */
#ifndef VEX_FRAME_H
#define VEX_FRAME_H

#include <pthread.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Readies the process: locale from the environment, libcurl, memory accounting, marker files.
 *
 * @param progname         not used.
 * @param compiledVersion  VEX_INTERFACE_VERSION as the program saw it. A NULL or another major
 * digit is told on standard error, and start-up goes on.
 * @return 1; at once when the library is initialised already.
 */
VEX_API int _VexLibInit(const char *progname, const char *compiledVersion);
/**
 * Drops all loaded ini files, unsaved changes included, closes and destroys the log. May be called
 * twice or without _VexLibInit; the library may be initialised again afterwards. Leaves libcurl as
 * it is.
 * @return what vexLogDestroy returns, 0.
 */
VEX_API int VexLibDestroy(void);

/** The interface version, "6.0.0.0". */
VEX_API const char *VexGetVersion(void);
/** Banner with the interface version and its date. */
VEX_API const char *VexGetVersionString(void);
/** The product version: four decimal fields, "19.0001.0124.1224". */
VEX_API const char *GetVEXVersion(void);
/** Frees *p with free(3) and sets it to NULL; NULL and a pointer to NULL do nothing. */
VEX_API void _VexFree(void **p);

/**
 * Compares up to four numeric fields of two versions; one character of any kind stands between
 * fields.
 * @return -1, 0 or 1; -1 with EINVAL (logged) for NULL.
 * @note A version equals every longer one that it begins: "19.1" and "19.1.5" give 0.
 */
VEX_API int VersionCompare(const char *a, const char *b);
/** VersionCompare over up to five fields. */
VEX_API int ProtocolCompare(const char *a, const char *b);
/** 1 when major and minor of @p v are those of the product, character by character; 0 when not, and
 * for NULL. With fewer than two dots the whole version must be the same. */
VEX_API int CheckVEXVersion(const char *v);

/** Prints a program's own usage to standard output. */
typedef void (*usageFn)(const char *progname);

/**
 * Handles the switches that all tools share: "--help", "--version", "--features", "--os-test" and
 * "--copyrights" print and end the process with status 1; "--noversioncheck" is taken out of argv
 * and suppresses the warning that the program was built for another product version. Call it before
 * parsing any other option.
 *
 * @param argc       counts argv; decreased when "--noversioncheck" is taken out.
 * @param argv       ends in NULL. The first informational switch in it wins, wherever it stands,
 * also behind "--".
 * @param usage      prints the program's usage for "--help".
 * @param version    the program's product version.
 * @param buildDate, buildTime, flavour  the program's, for "--features".
 * @logs one warning line on a version mismatch; NULL for any parameter is logged and ends the
 * process with status 1.
 */
VEX_API void _checkCommonArgs(int *argc, char **argv, usageFn usage, const char *version,
                              const char *buildDate, const char *buildTime, const char *flavour);
/** Prints name, product version, copyrights, the program's usage and the common options, then ends
 * the process with status 1. */
VEX_API VEX_NORETURN void ShowUsage(char **argv, usageFn usage);
/** Prints "This is PROGRAM, Version VERSION" and ends the process with status 1. */
VEX_API VEX_NORETURN void _showVersion(const char *progname, const char *version);
/** Prints versions, build stamps, compiler and zlib and ends the process with status 1. */
VEX_API VEX_NORETURN void _showFeatures(const char *version, const char *buildDate,
                                        const char *buildTime, const char *flavour);
/** Prints the copyright notice to standard output. */
VEX_API void ShowCopyrights(void);
/** Prints the copyright notice to @p out; NULL does nothing. */
VEX_API void ShowCopyrights2(FILE *out);
/** The part of @p argv0 behind the last '/'; points into it. "" for NULL. */
VEX_API const char *GetProgramName(const char *argv0);

/** Reports a failed assertion to standard error and syslog and aborts the process. Call it through
 * VEX_ASSERT. */
VEX_API VEX_NORETURN void __vex_assert_fail(const char *expression, const char *file, unsigned line,
                                            const char *function);
/** Aborts with a report unless @p e holds, in every build. */
#define VEX_ASSERT(e) ((e) ? (void)0 : __vex_assert_fail(#e, __FILE__, __LINE__, __func__))

/**
 * Stores the calling thread's fatal error, "<prefix> <origin>: <text> Q-318-<code>", at most 2368
 * characters, and logs it. The first one stays until vexClearFatalError: later ones do nothing.
 *
 * @param origin  name of the function that met the error.
 * @param code    unique number of the message; (unsigned)-1 for none.
 * @param format  printf format of the text.
 * @logs the text at error level, once; NULL for origin or format is logged instead.
 */
VEX_API void vexSetFatalError(const char *origin, unsigned code, const char *format, ...)
    VEX_PRINTF(3, 4);
/** Copies the thread's fatal error, "" when there is none, cut to @p size - 1; NULL or 0 do
 * nothing. */
VEX_API void vexGetFatalError(char *buffer, size_t size);
/** True when the thread has a fatal error. */
VEX_API bool vexFatalErrorExists(void);
/** Forgets the thread's fatal error; the prefix stays. */
VEX_API void vexClearFatalError(void);
/** Sets what the thread's fatal errors begin with, cut to 256 characters; NULL counts as "". A
 * prefix that is set stays unless @p overwrite. */
VEX_API void vexSetFatalPrefix(const char *prefix, bool overwrite);

/** Sleeps; 0 when the whole time has passed (and at once for 0), the seconds left, at least 1, when
 * a signal interrupted it, (unsigned)-1 on another failure, which is traced. */
VEX_API unsigned VexSleep(unsigned seconds);
/** The calling thread's identifier. */
VEX_API pthread_t GetTid(void);
/** 1 unless @p thread is 0. */
VEX_API int VexThreadActive(pthread_t thread);
/** ctime_r: needs 26 bytes in @p buf. */
VEX_API char *VexCtime(const time_t *t, char *buf);
/** localtime_r. */
VEX_API struct tm *VexLocaltime(const time_t *t, struct tm *out);
/** 1 when every character is a decimal digit, so for "" too; 0 otherwise and for NULL. */
VEX_API int VexIsDecimalNumber(const char *s);
/** Looks again for the marker file behind PerfEnabled. */
VEX_API void RefreshMarkerFiles(void);
/** True when the marker file "qlsr-perf" was there at the last refresh; false before the first. */
VEX_API bool PerfEnabled(void);

VEX_END_DECLS

#ifdef __cplusplus
#include <string>

namespace zqutil {

/** Initialises the library for as long as it lives. */
class VEX_API LibAutoInit {
public:
    /** _VexLibInit with the library's own interface version. @param name  not used. */
    explicit LibAutoInit(const std::string &name);
    /** VexLibDestroy. */
    ~LibAutoInit();
    LibAutoInit(const LibAutoInit &) = delete;
    LibAutoInit &operator=(const LibAutoInit &) = delete;
};

}  // namespace zqutil

/** Traces "<name>: enter" and "<name>: exit" while tracing is on. */
class VEX_API AutoTrace {
public:
    /** Traces the entry. @param name  copied. */
    explicit AutoTrace(const std::string &name);
    /** Traces the exit. */
    ~AutoTrace();
    AutoTrace(const AutoTrace &) = delete;
    AutoTrace &operator=(const AutoTrace &) = delete;

private:
    std::string name_;
};

/** Marks a scope with a level and a name; logs nothing. */
class VEX_API AutoDebug {
public:
    /** Stores both. */
    AutoDebug(int level, const std::string &name);
    ~AutoDebug();
    AutoDebug(const AutoDebug &) = delete;
    AutoDebug &operator=(const AutoDebug &) = delete;
    /** The level given. */
    int level() const;
    /** The name given. */
    const std::string &name() const;

private:
    int level_;
    std::string name_;
};

/**
 * A lock between processes: a write lock on the whole of a file, dropped by Unlock and by the
 * destructor.
 *
 * @note The lock is the process's (fcntl record lock): two objects in one process do not exclude
 * each other, and closing any descriptor of that file in the process drops it.
 */
class VEX_API VexFileLock {
public:
    /** Holds no lock. */
    VexFileLock();
    /** Gives the lock up. */
    ~VexFileLock();
    VexFileLock(const VexFileLock &) = delete;
    VexFileLock &operator=(const VexFileLock &) = delete;

    /**
     * Creates the file when missing and waits for the lock, for as long as another process holds
     * it. A lock held before is given up first. Failures are tried again, 20 times in all, 3
     * seconds apart.
     * @return true when locked.
     * @logs one error line per failed attempt; an info line when it took 61 seconds or more.
     */
    bool Lock(const std::string &path);
    /** Gives the lock up; does nothing when there is none. */
    void Unlock();
    /** True between a Lock that succeeded and Unlock. */
    bool IsLocked() const;

private:
    void attempt(const std::string &path);

    int fd_ = -1;
    bool locked_ = false;
    time_t start_ = 0;
};
#endif

#endif
