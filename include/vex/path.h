/**
 * @file path.h
 * Path texts: their form on this platform.
 */
#ifndef VEX_PATH_H
#define VEX_PATH_H

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Brings a path into this platform's form, in place: backslashes become '/', runs of '/' become
 * one, and a trailing
 * '/' goes unless it is the root. The result is never longer.
 *
 * @return @p path; NULL with errno EINVAL, logged, for NULL.
 * @threads any thread; keeps no state.
 */
VEX_API char *vex_path_native(char *path);

VEX_END_DECLS

#endif
