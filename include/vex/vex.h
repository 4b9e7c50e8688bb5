/**
 * @file vex.h
 * Every public header of the library.
 */
#ifndef VEX_VEX_H
#define VEX_VEX_H

#include <vex/export.h>
#include <vex/log.h>
#include <vex/log_file.h>
#include <vex/revision.h>

#endif
