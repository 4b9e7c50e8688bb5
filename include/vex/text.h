/**
 * @file text.h
 * Bounded copying, escaping and number reading for 8-bit text.
 *
 * Texts are NUL-terminated and belong to the caller. A NULL argument gives errno EINVAL, one error
 * line and the failure value.
 *
 * @threads every function may be called from any thread; none keeps state.
 */
#ifndef VEX_TEXT_H
#define VEX_TEXT_H

#include <stddef.h>
#include <sys/types.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Copies a text into a buffer of limited size; the result is always terminated.
 *
 * @param dst   must not overlap @p src.
 * @param size  room in bytes, terminator included; 0 is refused with EINVAL.
 * @return the length of the copy; -1 with ENOBUFS when it had to be cut: its head stays in @p dst.
 * Logs no cut.
 */
VEX_API ssize_t vex_strcpy(char *dst, size_t size, const char *src);

/**
 * Appends a text to the one in a buffer of limited size, by the rules of vex_strcpy.
 *
 * @param size  room of the whole buffer in bytes; @p dst must be terminated inside it, else EINVAL.
 * @return the length of the joined text; -1 with ENOBUFS when it had to be cut.
 */
VEX_API ssize_t vex_strcat(char *dst, size_t size, const char *src);

/**
 * Copies a text and writes newline, tab, carriage return, '"' and '\' as the escapes \\n \\t \\r
 * \\" and \\\\.
 *
 * @param dst   must not overlap @p src; twice the length of @p src plus 1 holds every result.
 * @param size  room in bytes, terminator included.
 * @return @p dst; NULL with ENOBUFS when the result does not fit: whole escapes of its head stay,
 * terminated. Logs no cut.
 */
VEX_API char *strcpy_esc(char *dst, size_t size, const char *src);

/**
 * strtoull(3) with errno told apart and without signs, so that "-1" is no large number.
 *
 * @param end   receives the position after the last digit, or @p text when nothing was read; may be
 * NULL.
 * @param base  0, or 2 to 36.
 * @return the number with errno 0; 0 with errno 0 and @p end == @p text when there is no digit.
 * ULLONG_MAX with ERANGE when it is too large; 0 with EINVAL for a sign, a bad base or NULL. Logs
 * nothing but NULL.
 */
VEX_API unsigned long long vex_strtoull(const char *text, char **end, int base);

VEX_END_DECLS

#endif
