/**
 * @file export.h
 * @ingroup frame
 * Markers that every public header uses: linkage, visibility and compiler checks.
 */
#ifndef VEX_EXPORT_H
#define VEX_EXPORT_H

#ifdef __cplusplus
/** Opens a group of declarations with C linkage, so that other languages can call them. */
#define VEX_BEGIN_DECLS extern "C" {
/** Closes such a group. */
#define VEX_END_DECLS }
#else
#define VEX_BEGIN_DECLS
#define VEX_END_DECLS
#endif

/** Marks what the shared library exports; everything else is hidden. */
#define VEX_API __attribute__((visibility("default")))

/** Lets the compiler check printf-like calls: @p n is the format's position, @p m the first
 * argument's (0 for a va_list). */
#define VEX_PRINTF(n, m) __attribute__((format(printf, n, m)))

/** Marks functions that never return. */
#define VEX_NORETURN __attribute__((noreturn))

#endif
