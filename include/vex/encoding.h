/**
 * @file encoding.h
 * @ingroup text
 * Base64, hexadecimal and URL texts; UTF-8, wide characters and other character sets.
 *
 * Rooms and lengths count bytes (wide characters where a parameter is wchar_t). Failures set errno
 * and are not logged: whether a text that does not decode is an error is for the caller to say, and
 * the text may be a secret. Where a conversion of characters or of a URL text stopped is told by
 * vex_encoding_error_offset.
 *
 * @threads every function may be called from any thread; vex_encoding_error_offset is each thread's
 * own. strtoutf8_malloced reads the process's locale, which must not change meanwhile.
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
 * @param length       bytes at @p src.
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
 * @param src          terminated.
 * @param dest         receives the bytes; must not overlap @p src.
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
 * @param length       bytes at @p src.
 * @param dest         receives the text.
 * @param dest_length  room, at least 2 * length + 1.
 * @return the text's length; -1 with EINVAL for NULL, ENOBUFS when it does not fit, ERANGE beyond
 * INT_MAX. @p dest is untouched then.
 */
VEX_API int HexEncode(const void *src, unsigned length, char *dest, unsigned dest_length);

/**
 * Reads hexadecimal text of either case.
 *
 * @param src          terminated.
 * @param dest         receives the bytes.
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
 * Tells where in its input the calling thread's last failed conversion of this header stopped.
 *
 * @return the offset in bytes (in wide characters for vex_wcs_to_utf8) of the first character that
 * was not converted: the invalid one after EILSEQ or EINVAL, the first without room after ENOBUFS.
 * Of no meaning when nothing has failed since.
 */
VEX_API size_t vex_encoding_error_offset(void);

/**
 * Tells whether bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above
 * U+10FFFF.
 *
 * @return 1, also for length 0; 0 with EILSEQ when they are not, with EINVAL for NULL with another
 * length.
 * @cost 32 bytes at a time where the processor has AVX2; elsewhere ASCII sixteen bytes at a time
 * and other characters one by one.
 * @standard RFC 3629.
 */
VEX_API int vex_utf8_valid(const char *text, size_t length);

/**
 * Converts UTF-8 into wide characters. A byte that is not part of well-formed UTF-8 becomes U+DC00
 * plus its value (U+DC80 to U+DCFF), so that any file name survives the way there and back.
 *
 * @param text  terminated.
 * @param out   receives the text, terminated; NULL to learn the length.
 * @param size  room in wide characters.
 * @return the number of wide characters without the terminator; -1 with EINVAL for a NULL text,
 * ENOBUFS when it does not fit (its head stays, terminated).
 */
VEX_API ssize_t vex_utf8_to_wcs(const char *text, wchar_t *out, size_t size);

/**
 * Converts wide characters into UTF-8; U+DC80 to U+DCFF become the single bytes they stand for.
 *
 * @param text  terminated.
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

/**
 * vex_utf8_to_wcs into memory of the right size.
 *
 * @return the text; NULL with EINVAL or ENOMEM.
 * @owner the caller frees it with free(3).
 */
VEX_API wchar_t *vex_utf8_to_wcs_malloced(const char *text);

/**
 * Converts UTF-8 into ISO 8859-1.
 *
 * @param utf8  terminated.
 * @param out   receives the text, terminated.
 * @param size  room in bytes; strlen of @p utf8 plus 1 holds every result.
 * @return the length of the result; -1 with EINVAL for NULL or no room at all, EILSEQ for malformed
 * UTF-8 and for characters above U+00FF, ENOBUFS. What stands in front of that place stays,
 * terminated.
 * @standard ISO/IEC 8859-1.
 */
VEX_API ssize_t vex_utf8_to_latin1(const char *utf8, char *out, size_t size);

/**
 * Converts ISO 8859-1 into UTF-8, by the rules of vex_utf8_to_latin1; every byte has a meaning, so
 * that EILSEQ does not occur.
 *
 * @param latin1  terminated.
 * @param out     receives the text, terminated.
 * @param size    room in bytes; twice strlen of @p latin1 plus 1 holds every result.
 */
VEX_API ssize_t vex_latin1_to_utf8(const char *latin1, char *out, size_t size);

/**
 * Converts UTF-8 into ASCII, by the rules of vex_utf8_to_latin1; every character that ASCII lacks
 * becomes one '?'.
 */
VEX_API ssize_t vex_to_7bit(const char *utf8, char *out, size_t size);

/**
 * Converts between any two character sets that the C library knows.
 *
 * @param from, to  names as iconv_open(3) takes them.
 * @param in        the bytes to convert.
 * @param n         bytes at @p in, which needs no terminator.
 * @param out       receives the converted bytes, without a terminator.
 * @param size      room at @p out in bytes.
 * @return the bytes written; -1 with EINVAL for NULL or an unknown name, EILSEQ for input that is
 * invalid, ends inside a character or has no counterpart, ENOBUFS when it does not fit. @p out
 * holds the part in front of that place then.
 */
VEX_API ssize_t vex_iconv(const char *from, const char *to, const char *in, size_t n, char *out,
                          size_t size);

/**
 * Writes a text as it may stand in any place of a URL: letters, digits and "-._~" stay, every other
 * byte becomes '%' and two upper-case hexadecimal digits.
 *
 * @param src   terminated.
 * @param dest  receives the text, terminated; must not overlap @p src.
 * @param size  room in bytes; three times strlen of @p src plus 1 holds every result.
 * @return the length of the result; -1 with EINVAL for NULL or no room at all, ENOBUFS when it does
 * not fit: whole escapes of its head stay, terminated.
 * @standard RFC 3986, sections 2.1 and 2.3.
 */
VEX_API ssize_t UrlEncode(const char *src, char *dest, size_t size);

/**
 * Reads such a text back. '+' stays what it is: only forms make it a blank.
 *
 * @param src   terminated.
 * @param dest  receives the text, terminated; may be @p src.
 * @param size  room in bytes; strlen of @p src plus 1 holds every result.
 * @return the length of the result; -1 with EINVAL for NULL, for a '%' without two digits behind it
 * and for "%00", which would end the text, ENOBUFS when it does not fit. What stands in front of
 * that place stays, terminated.
 * @standard RFC 3986, section 2.1.
 */
VEX_API ssize_t UrlDecode(const char *src, char *dest, size_t size);

VEX_END_DECLS

#endif
