/**
 * @file encoding.h
 * Base64 and hexadecimal texts, UTF-8 and wide characters.
 *
 * Rooms and lengths count bytes (wide characters where a parameter is wchar_t). Failures set errno
 * and are not logged: whether a text that does not decode is an error is for the caller to say, and
 * the text may be a secret.
 *
 * @threads every function may be called from any thread; none keeps state. strtoutf8_malloced reads
 * the process's locale, which must not change meanwhile.
 */
#ifndef VEX_ENCODING_H
#define VEX_ENCODING_H

#include <stddef.h>
#include <sys/types.h>
#include <wchar.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Writes bytes as Base64 text with padding and without line breaks.
 *
 * @param src          may be NULL when @p length is 0.
 * @param dest         receives the text, terminated.
 * @param dest_length  room, at least (length + 2) / 3 * 4 + 1.
 * @return the text's length; -1 with EINVAL for NULL, ENOBUFS when it does not fit, ERANGE beyond
 * INT_MAX. @p dest is untouched then.
 * @standard RFC 4648, section 4.
 */
VEX_API int Base64Encode(const void *src, unsigned length, char *dest, unsigned dest_length);

/**
 * Reads Base64 text back, strictly: padding is required, white space and non-zero bits behind the
 * last byte are not accepted.
 *
 * @param dest_length  room, exactly the bytes that come out; no terminator is written.
 * @return the number of bytes; -1 with EINVAL for NULL and malformed text, ENOBUFS when they do not
 * fit. @p dest may hold a part then.
 * @standard RFC 4648, section 4.
 */
VEX_API int Base64Decode(const char *src, void *dest, unsigned dest_length);

/**
 * Writes bytes as lower-case hexadecimal text, terminated, high nibble first.
 *
 * @param src          may be NULL when @p length is 0.
 * @param dest_length  room, at least 2 * length + 1.
 * @return the text's length; -1 with EINVAL for NULL, ENOBUFS when it does not fit, ERANGE beyond
 * INT_MAX. @p dest is untouched then.
 */
VEX_API int HexEncode(const void *src, unsigned length, char *dest, unsigned dest_length);

/**
 * Reads hexadecimal text of either case.
 *
 * @param dest_length  room, exactly the bytes that come out; no terminator is written.
 * @return the number of bytes; -1 with EINVAL for NULL, an odd length or another character, ENOBUFS
 * when they do not fit. @p dest may hold a part after a bad character.
 */
VEX_API int HexDecode(const char *src, void *dest, unsigned dest_length);

/**
 * Brings a text into UTF-8: what already is valid UTF-8 is copied, all else is converted from the
 * character set of the process's locale.
 *
 * @return the text; NULL with EINVAL for NULL, EILSEQ when a byte has no meaning in that character
 * set, ENOMEM.
 * @owner the caller frees it with free(3).
 */
VEX_API char *strtoutf8_malloced(const char *text);

/**
 * Tells whether bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above
 * U+10FFFF.
 *
 * @return 1 or 0; 1 for length 0, 0 with EINVAL for NULL with another length.
 * @standard RFC 3629.
 */
VEX_API int vex_utf8_valid(const char *text, size_t length);

/**
 * Converts UTF-8 into wide characters. A byte that is not part of well-formed UTF-8 becomes U+DC00
 * plus its value (U+DC80 to U+DCFF), so that any file name survives the way there and back.
 *
 * @param out   receives the text, terminated; NULL to learn the length.
 * @param size  room in wide characters.
 * @return the number of wide characters without the terminator; -1 with EINVAL for a NULL text,
 * ENOBUFS when it does not fit (its head stays, terminated).
 */
VEX_API ssize_t vex_utf8_to_wcs(const char *text, wchar_t *out, size_t size);

/**
 * Converts wide characters into UTF-8; U+DC80 to U+DCFF become the single bytes they stand for.
 *
 * @param out   receives the text, terminated; NULL to learn the length.
 * @param size  room in bytes.
 * @return the number of bytes without the terminator; -1 with EINVAL for a NULL text, EILSEQ for
 * another surrogate or a value above U+10FFFF, ENOBUFS when it does not fit (its head stays,
 * terminated).
 */
VEX_API ssize_t vex_wcs_to_utf8(const wchar_t *text, char *out, size_t size);

/**
 * vex_wcs_to_utf8 into memory of the right size.
 *
 * @return the text; NULL with EINVAL, EILSEQ or ENOMEM.
 * @owner the caller frees it with free(3).
 */
VEX_API char *vex_wcs_to_utf8_malloced(const wchar_t *text);

VEX_END_DECLS

#endif
