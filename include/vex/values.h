/**
 * @file values.h
 * @ingroup text
 * Values as people write them: sizes with units, truth words, percentages and times of day, and
 * byte counts as text.
 *
 * The ini store and the option parser read their typed values with these functions. All of them
 * work on the caller's texts and buffers, know ASCII only and ignore the locale. The result alone
 * does not always tell failure from a good value (0, false and midnight are values), so callers
 * test errno or the end position. The wide twins follow the same rules, name themselves in messages
 * and count room in wide characters.
 *
 * A NULL text or buffer gives EINVAL and one error line, and leaves @p end untouched; @p end itself
 * may be NULL.
 *
 * @threads every function may be called from any thread; none keeps state.
 */
#ifndef VEX_VALUES_H
#define VEX_VALUES_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Reads a unit: one letter of "KMGTPE" in either case is 1000, 1000^2 ... 1000^6; with 'i' or 'I'
 * behind it 1024, 1024^2 ... 1024^6. One 'b' or 'B' may follow, also without a letter.
 *
 * @param suffix  text that begins with the unit, if there is one.
 * @param end     receives the position after the unit.
 * @return the multiplier, 1 when there is no unit; 0 with errno EINVAL for NULL.
 * @note "K" and "KB" are 1000 on purpose: the binary unit must be spelled "Ki" or "KiB".
 */
VEX_API uint64_t strtosizemult(const char *suffix, const char **end);

/**
 * Reads a size: a decimal number as strtoull(3) takes it, and a unit behind it.
 *
 * @param text  leading white space and a sign are accepted; a negative number wraps as it does in
 * strtoull.
 * @param end   receives the position where reading stopped; text behind the unit is the caller's to
 * judge.
 * @return the size in bytes, with errno 0. 18446744073709551615 with ERANGE when the number, or the
 * number times its unit, is larger than that. 0 with EINVAL for NULL.
 * @note A unit without a number reads as 0 and is consumed, so that @p end == @p text does not tell
 * every failure.
 * @logs one error line when the unit makes the number too large; a number too large by itself is
 * silent.
 */
VEX_API uint64_t strtosize(const char *text, const char **end);

/**
 * Reads a truth word: "yes", "y", "1", "true", "t" are true, "no", "n", "0", "false", "f" false, in
 * either case.
 *
 * @param text  the word, with anything behind it.
 * @param end   receives the position after the word, or @p text when there is none.
 * @return 1, or 0 for false and for failure; errno is left alone on success.
 * @note The text needs only to begin with a word: "tomorrow" and "10" are true. Leading blanks,
 * "on" and "off" fail.
 * @logs one error line with ERANGE when the text begins with none of the words.
 */
VEX_API int strtobool(const char *text, const char **end);

/**
 * Reads a percentage: a number in strtod(3)'s forms with '.' as its point whatever the locale, then
 * exactly one '%' with any white space around it.
 *
 * @param text   the percentage and nothing else.
 * @param value  receives the number as written, 12.5 for "12.5%", not limited to 0 to 100;
 *               untouched on failure.
 * @return 1, or 0 with errno EINVAL for anything else, NULL included. Logs nothing.
 */
VEX_API int strpercentotvalue(const char *text, double *value);

/**
 * Prints a byte count exactly, in the unit that divides it the most times: "1KiB", "1KB", "1500".
 *
 * Binary units win a tie (1024000 is "1000KiB"); 0 has no unit.
 *
 * @param buffer  receives text and terminator, right-aligned; 24 characters hold every value.
 * @param length  room in characters.
 * @param value   the byte count.
 * @return the first character of the text, in general not @p buffer; NULL with EINVAL for a NULL or
 * empty buffer, ENOBUFS when the text does not fit.
 * @note The text stands at the end of the buffer: use the returned pointer.
 * @logs one error line, except when the unit fits and only the digits do not.
 */
VEX_API char *sizetostr(char *buffer, size_t length, uint64_t value);

/**
 * Prints a byte count rounded: "1.50 KiB", "1000 bytes". Exact multiples of the unit show no
 * fraction.
 *
 * @param buffer     receives text and terminator.
 * @param length     room in characters.
 * @param value      the byte count.
 * @param precision  digits behind the point, 0 or more; the point is '.' whatever the locale.
 * @return @p buffer; NULL with EINVAL for a NULL or empty buffer or a negative precision (logged),
 * ENOBUFS when the text does not fit (silent).
 * @note A larger unit begins at 1025 of the smaller: 1024 is "1024 bytes", 1048576 is "1024 KiB".
 */
VEX_API char *sizetofloatstr(char *buffer, size_t length, uint64_t value, int precision);

/**
 * Reads a time of day, "H:M" or "H:M:S" with one or more digits each.
 *
 * @param text  the time, with anything behind it.
 * @param end   receives the position after the last number, or @p text on failure.
 * @return seconds since midnight, 0 to 86399; 0 with ERANGE on failure, EINVAL for NULL; errno is
 * left alone on success.
 * @logs one error line per failure, always with code 34.
 */
VEX_API unsigned strtotimeofday(const char *text, const char **end);

/** strtosizemult over wide text. */
VEX_API uint64_t wcstosizemult(const wchar_t *suffix, const wchar_t **end);
/** strtosize over wide text. */
VEX_API uint64_t wcstosize(const wchar_t *text, const wchar_t **end);
/** strtobool over wide text. */
VEX_API int wcstobool(const wchar_t *text, const wchar_t **end);
/** sizetostr into wide text. */
VEX_API wchar_t *sizetowcs(wchar_t *buffer, size_t length, uint64_t value);
/** sizetofloatstr into wide text. */
VEX_API wchar_t *sizetofloatwcs(wchar_t *buffer, size_t length, uint64_t value, int precision);

VEX_END_DECLS

#endif
