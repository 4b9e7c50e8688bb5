/**
 * @file revision.h
 * @ingroup frame
 * Version strings of the library, and the build stamps a build may override with -D.
 */
#ifndef VEX_REVISION_H
#define VEX_REVISION_H

/** Interface version; its first digit is what _VexLibInit compares with the application's. */
#define VEX_INTERFACE_VERSION "6.0.0.0"

/** Banner that names interface version and its release date. */
#define VEX_VERSION_BANNER "Corvane: libvex 6.0.0.0, July 7, 2004"

/** Product version: major.minor.release.build, decimal. */
#define VEX_PRODUCT_VERSION "19.0001.0124.1224"

#endif
