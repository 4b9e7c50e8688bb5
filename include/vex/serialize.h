/**
 * @file serialize.h
 * @ingroup identity
 * Integers and raw bytes in files and buffers, in a binary and a text form.
 *
 * The @p binary argument of each call chooses: binary is the full width, most significant byte
 * first; text is decimal digits without sign, padding or separator for integers, and lower-case
 * hexadecimal for raw bytes. Buffers, sizes and counts are in bytes. docs/formats/serialisation.md
 * has both forms with examples.
 *
 * SerializedSize functions return the bytes that the form of a value takes.
 *
 * Serialize functions return the bytes written, the terminator not counted; text is terminated only
 * where the buffer has room for that, so that a buffer of exactly the digits is enough. On failure
 * they return 0 with errno EINVAL for a NULL buffer (logged) and ENOBUFS for a short one, whose
 * first byte is zeroed in text form.
 *
 * InitDeserialize functions read a value from the head of a buffer. Text is read up to its first
 * non-digit, and never further than 31 bytes. They return @p value and store the bytes used in @p
 * consumed, which may be NULL. On failure they log one error line and return NULL; the value is 0
 * and @p consumed untouched then. errno is EINVAL for NULL, an empty buffer, text that does not
 * begin with a digit and numbers of 2^64 and more, ENOBUFS for a binary buffer shorter than the
 * width, ERANGE for a number that the type cannot hold.
 *
 * InitFromFile functions read the same forms from a stream: the width, or up to 32 digits, after
 * which the first other character is still in the stream. They fail like InitDeserialize, and with
 * ENODATA at the end of the file or what the read left; the stream's position is unspecified then.
 *
 * @threads every function may be called from any thread; none keeps state.
 */
#ifndef VEX_SERIALIZE_H
#define VEX_SERIALIZE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** 1 in binary, 1 to 3 in text. */
VEX_API size_t VexUint8SerializedSize(uint8_t value, bool binary);
/** Writes 1 byte or up to 3 digits. @logs a NULL buffer and a short binary buffer; not a short text
 * buffer. */
VEX_API size_t VexUint8Serialize(void *buffer, size_t size, uint8_t value, bool binary);
/** Reads 1 byte or digits. */
VEX_API uint8_t *VexUint8InitDeserialize(uint8_t *value, const void *buffer, size_t size,
                                         bool binary, size_t *consumed);
/** Reads 1 byte or digits. */
VEX_API uint8_t *VexUint8InitFromFile(uint8_t *value, FILE *file, bool binary, size_t *consumed);

/** 2 in binary, the number of digits in text, although there is no text form. */
VEX_API size_t VexUint16SerializedSize(uint16_t value, bool binary);
/**
 * Writes 2 bytes.
 *
 * @note There is no text form on purpose: text is refused with EINVAL, logged, here and in
 * VexUint16InitDeserialize.
 * @logs everything but a short buffer.
 */
VEX_API size_t VexUint16Serialize(void *buffer, size_t size, uint16_t value, bool binary);
/** Reads 2 bytes. */
VEX_API uint16_t *VexUint16InitDeserialize(uint16_t *value, const void *buffer, size_t size,
                                           bool binary, size_t *consumed);

/** 4 in binary, 1 to 10 in text. */
VEX_API size_t VexUint32SerializedSize(uint32_t value, bool binary);
/** Writes 4 bytes or up to 10 digits. @logs a NULL buffer and a short text buffer; not a short
 * binary buffer. */
VEX_API size_t VexUint32Serialize(void *buffer, size_t size, uint32_t value, bool binary);
/** Reads 4 bytes or digits. @note A number beyond 32 bits is reported with the words of the 8-bit
 * form. */
VEX_API uint32_t *VexUint32InitDeserialize(uint32_t *value, const void *buffer, size_t size,
                                           bool binary, size_t *consumed);
/** Reads 4 bytes or digits. */
VEX_API uint32_t *VexUint32InitFromFile(uint32_t *value, FILE *file, bool binary, size_t *consumed);

/** 8 in binary, 1 to 20 in text. */
VEX_API size_t VexUint64SerializedSize(uint64_t value, bool binary);
/** Writes 8 bytes or up to 20 digits. @logs a NULL buffer and a short text buffer; not a short
 * binary buffer. */
VEX_API size_t VexUint64Serialize(void *buffer, size_t size, uint64_t value, bool binary);
/** Reads 8 bytes or digits. */
VEX_API uint64_t *VexUint64InitDeserialize(uint64_t *value, const void *buffer, size_t size,
                                           bool binary, size_t *consumed);
/** Reads 8 bytes or digits. */
VEX_API uint64_t *VexUint64InitFromFile(uint64_t *value, FILE *file, bool binary, size_t *consumed);

/**
 * Writes bytes as lower-case hexadecimal digits, high nibble first.
 *
 * @param out      receives the digits.
 * @param outSize  room, at least 2 * @p inSize; a terminator is added when there is more.
 * @param in       the bytes; must not overlap @p out.
 * @param inSize   bytes, at least 1.
 * @return 2 * @p inSize; 0 with EINVAL, logged, for NULL, an empty input or too little room.
 */
VEX_API size_t VexBufToSerialize(char *out, size_t outSize, const void *in, size_t inSize);

/**
 * Reads hexadecimal digits of either case back; an odd last character is ignored, whatever it is.
 *
 * @param out      receives the bytes.
 * @param outSize  room, at least @p inSize / 2.
 * @param in       the digits.
 * @param inSize   characters, at least 2; needs no terminator.
 * @return @p inSize / 2; 0 with EINVAL, logged, for NULL, a short input, too little room or a
 * character that is no digit: bytes before that place may have been written.
 */
VEX_API size_t VexBufToDeserialize(void *out, size_t outSize, const char *in, size_t inSize);

VEX_END_DECLS

#endif
