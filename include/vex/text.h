/**
 * @file text.h
 * @ingroup text
 * Texts: bounded copying, case, tokens, replacing, escaping and the reading of numbers.
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
#include <wchar.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Copies a text into a buffer of limited size; the result is always terminated.
 *
 * @param dst   must not overlap @p src.
 * @param size  room in bytes, terminator included; 0 is refused with EINVAL.
 * @param src   terminated.
 * @return the length of the copy; -1 with ENOBUFS when it had to be cut: its head stays in @p dst.
 * Logs no cut.
 */
VEX_API ssize_t vex_strcpy(char *dst, size_t size, const char *src);

/**
 * Appends a text to the one in a buffer of limited size, by the rules of vex_strcpy.
 *
 * @param dst   holds a terminated text; must not overlap @p src.
 * @param size  room of the whole buffer in bytes; @p dst must be terminated inside it, else EINVAL.
 * @param src   terminated.
 * @return the length of the joined text; -1 with ENOBUFS when it had to be cut.
 */
VEX_API ssize_t vex_strcat(char *dst, size_t size, const char *src);

/** vex_strcpy for wide texts: room and lengths count wide characters. */
VEX_API ssize_t vex_wcscpy(wchar_t *dst, size_t size, const wchar_t *src);

/** vex_strcat for wide texts: room and lengths count wide characters. */
VEX_API ssize_t vex_wcscat(wchar_t *dst, size_t size, const wchar_t *src);

/**
 * Turns the ASCII letters of a text into lower case, in place, whatever the locale says; all
 * other bytes stay, so that UTF-8 is safe.
 *
 * @return @p text.
 */
VEX_API char *vex_strtolower(char *text);
/** vex_strtolower towards upper case. */
VEX_API char *vex_strtoupper(char *text);

/**
 * Compares texts as strcasecmp(3) does, with ASCII letters only, whatever the locale says.
 *
 * @return below, equal to or above 0 by the first bytes that differ, taken as unsigned and in lower
 * case; INT_MIN after a NULL argument.
 */
VEX_API int vex_strcasecmp(const char *a, const char *b);
/** vex_strcasecmp of at most @p n bytes. */
VEX_API int vex_strncasecmp(const char *a, const char *b, size_t n);

/**
 * Finds a text inside another, ASCII letters of either case being equal.
 *
 * @return the first place, @p text itself for an empty @p find; NULL, with errno untouched, when
 * there is none.
 * @cost the lengths of both texts multiplied, at worst.
 */
VEX_API const char *vex_strcasestr(const char *text, const char *find);

/**
 * Takes a text apart as strtok_r(3) does: runs of separators count as one, the text is changed.
 *
 * @param text        the text in the first call, NULL in all that follow.
 * @param separators  the bytes, each of which ends a piece; may differ from call to call.
 * @param state       keeps the place between calls; its value before the first call does not
 *                    matter.
 * @return the next piece, never empty; NULL, with errno untouched, when there is none left.
 */
VEX_API char *vex_strtok(char *text, const char *separators, char **state);

/**
 * Removes white space (blank, tab, line feed, vertical tab, form feed, carriage return) from both
 * ends of a text, in place.
 *
 * @return the new start, inside @p text.
 */
VEX_API char *vex_strtrim(char *text);

/**
 * Makes a new text in which every occurrence of @p find, from left to right and without overlap,
 * is replaced.
 *
 * @param text     stays as it is.
 * @param find     must not be empty: EINVAL, logged.
 * @param replace  may be empty, which takes the occurrences out.
 * @return the text; NULL with EINVAL or ENOMEM, logged.
 * @owner the caller frees it with free(3).
 */
VEX_API char *vex_str_replace(const char *text, const char *find, const char *replace);

/**
 * Copies a text and writes newline, tab, carriage return, '"' and '\' as the escapes \\n \\t \\r
 * \\" and \\\\.
 *
 * @param dst   must not overlap @p src; twice the length of @p src plus 1 holds every result.
 * @param size  room in bytes, terminator included.
 * @param src   terminated.
 * @return @p dst; NULL with ENOBUFS when the result does not fit: whole escapes of its head stay,
 * terminated. Logs no cut.
 */
VEX_API char *strcpy_esc(char *dst, size_t size, const char *src);

/**
 * strtoull(3) with errno told apart and without signs, so that "-1" is no large number.
 *
 * @param text  leading white space is skipped.
 * @param end   receives the position after the last digit, or @p text when nothing was read; may be
 *              NULL.
 * @param base  0, or 2 to 36.
 * @return the number with errno 0; 0 with errno 0 and @p end == @p text when there is no digit.
 * ULLONG_MAX with ERANGE when it is too large; 0 with EINVAL for a sign, a bad base or NULL. Logs
 * nothing but NULL.
 */
VEX_API unsigned long long vex_strtoull(const char *text, char **end, int base);

VEX_END_DECLS

#ifdef __cplusplus
#include <string>
#include <vector>

/**
 * Takes a text apart without changing it, by the rules of vex_strtok.
 *
 * @param text        stays as it is.
 * @param separators  the bytes, each of which ends a piece.
 * @param out         receives the pieces in order; what it held is dropped.
 * @return 0; -1 with EINVAL or ENOMEM, logged, @p out as it was.
 */
VEX_API int vex_str_split(const char *text, const char *separators, std::vector<std::string> &out);
#endif

#endif
