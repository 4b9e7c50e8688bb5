/**
 * @file os.h
 * What the operating system says about itself and about the process's surroundings.
 *
 * @threads every function may be called from any thread.
 */
#ifndef VEX_OS_H
#define VEX_OS_H

#include <stdio.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Prints a summary of the operating system, one "name : value" line each: system, release, machine, processors,
 * memory, swap, uptime, and the process's limits on open files, core size and locked memory. What the system does not
 * tell prints as "unknown".
 *
 * @param out  NULL for standard output.
 * @return 0, or -1 with the errno that writing left (logged).
 */
VEX_API int OSTest(FILE *out);

/**
 * The value of an environment variable.
 * @return NULL when absent, for a NULL or empty name, and always in set-id programs, where the environment belongs to
 *         somebody else. Valid until the environment changes.
 */
VEX_API const char *vex_getenv(const char *name);

VEX_END_DECLS

#endif
