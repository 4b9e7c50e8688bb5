/**
 * @file process.h
 * The running process.
 */
#ifndef VEX_PROCESS_H
#define VEX_PROCESS_H

#include <vex/export.h>

VEX_BEGIN_DECLS

/** The last part of the path that the process was started as; never NULL, never freed. Any thread. */
VEX_API const char *VexProcessName(void);

VEX_END_DECLS

#endif
