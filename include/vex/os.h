/**
 * @file os.h
 * @ingroup os
 * What the operating system says about itself and about the process's surroundings.
 *
 * @threads every function may be called from any thread.
 */
#ifndef VEX_OS_H
#define VEX_OS_H

#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>
#include <vex/list.h>

VEX_BEGIN_DECLS

/**
 * Prints a summary of the operating system, one "name : value" line each: system, release, machine,
 * processors, memory, swap, uptime, and the process's limits on open files, core size and locked
 * memory. What the system does not tell prints as "unknown".
 *
 * @param out  NULL for standard output.
 * @return 0, or -1 with the errno that writing left (logged).
 */
VEX_API int OSTest(FILE *out);

/**
 * The value of an environment variable.
 * @return NULL when absent, for a NULL or empty name, and always in set-id programs, where the
 * environment belongs to somebody else. Valid until the environment changes.
 */
VEX_API const char *vex_getenv(const char *name);

/** Sizes in bytes. */
struct VexMemoryInfo {
    uint64_t total;       /**< of the machine */
    uint64_t available;   /**< what programs can get without swapping, as the kernel estimates it */
    uint64_t swap_total;  /**< of all swap spaces */
    uint64_t swap_free;   /**< unused part of them */
    uint64_t process_rss; /**< resident in memory for this process */
    uint64_t limit;       /**< of the control groups that the process is in; UINT64_MAX when none */
};

/**
 * Memory of the machine and of the process, with the limit that a container puts on it.
 *
 * @return 0; -1 with EINVAL for NULL, or what reading /proc left (logged).
 * @standard proc(5); control groups version 1 and 2: the lowest limit on the way up counts.
 */
VEX_API int VexGetMemoryInfo(struct VexMemoryInfo *info);

/** Processors. */
struct VexProcessorInfo {
    uint32_t online;  /**< processors of the machine, at least 1 */
    uint32_t allowed; /**< those that this process may run on, at least 1 */
    double quota;    /**< processors' worth of time that its control groups get; 0 when unlimited */
    char model[128]; /**< the maker's name for the first one, "" when it is not told */
};

/**
 * Processors of the machine, and how much of them the process gets.
 *
 * @return 0; -1 with EINVAL for NULL (logged). What the system does not tell stays 1, 0 or "".
 */
VEX_API int VexGetProcessorInfo(struct VexProcessorInfo *info);

/** A mount; texts are terminated, and cut where they do not fit. */
struct VexMountInfo {
    char device[4096];    /**< what is mounted */
    char directory[4096]; /**< where */
    char type[64];        /**< of the file system */
    char options[1024];   /**< of the mount, then of the file system, with commas between them */
    uint64_t dev;         /**< device number, as st_dev shows it */
};

/**
 * The mount that a path lies in: the one at the longest directory above the resolved path, the last
 * of several at the same place.
 *
 * @param path  need not exist down to its end.
 * @param info  receives what is known of the mount; untouched after a failure.
 * @return 0; -1 with EINVAL for NULL, ENOENT when there is none, or what resolving the path or
 * reading /proc left (logged).
 */
VEX_API int VexGetMountInfo(const char *path, struct VexMountInfo *info);

/**
 * All mounts that the process sees, in the kernel's order, as struct VexMountInfo pointers.
 *
 * @return the list; NULL with ENOMEM or what reading /proc left (logged).
 * @owner the caller ends it with VexMountListDestroy.
 */
VEX_API vexList *VexMountListCreate(void);
/** Frees the list and what it holds; NULL does nothing. */
VEX_API void VexMountListDestroy(vexList *list);

/** Sizes in bytes. */
struct VexFsInfo {
    uint64_t total;      /**< of the file system */
    uint64_t free;       /**< to root */
    uint64_t available;  /**< to everybody else */
    uint64_t files;      /**< inodes; 0 where the file system has no fixed number */
    uint64_t files_free; /**< inodes that are unused */
    uint64_t block_size; /**< in which room is given out */
    int read_only;       /**< 1 or 0 */
};

/**
 * The room of the file system that a path lies in.
 *
 * @return 0; -1 with EINVAL for NULL or statvfs's errno (logged).
 */
VEX_API int VexGetFsInfo(const char *path, struct VexFsInfo *info);

/**
 * The size of the terminal behind a descriptor.
 *
 * @return 0; 1 when it is no terminal or does not tell, with the environment's LINES and COLUMNS,
 * or 24 and 80; -1 with EINVAL for NULL (logged).
 */
VEX_API int VexGetTerminalSize(int fd, int *rows, int *columns);

/**
 * Whether a marker file is there now, below "/usr/lumen/zqde/".
 *
 * @return 1 or 0; 0 with EINVAL, logged, for NULL, an empty name and one with a '/'.
 */
VEX_API int VexMarkerExists(const char *name);

/**
 * Whether this is an appliance, by the marker file "qlsr-appliance" as it was at the last
 * RefreshMarkerFiles, which start-up calls first.
 *
 * @return 1 or 0.
 */
VEX_API int VexIsAppliance(void);
/** VexIsAppliance for the marker file "qlsr-container". */
VEX_API int VexIsContainer(void);
/** VexIsAppliance for the marker file "qlsr-cloud". */
VEX_API int VexIsCloudDeployment(void);
/** VexIsAppliance for the marker file "qlsr". */
VEX_API int VexIsQlsr(void);

VEX_END_DECLS

#endif
