/**
 * @file random.h
 * @ingroup text
 * Cryptographically strong random bytes and numbers.
 *
 * The bytes come from OpenSSL's generator, which seeds itself from the kernel and anew in a child
 * after fork(2).
 *
 * @threads every function may be called from any thread: calls take turns on one process-wide
 * mutex, which is held across fork(2), so that the child can draw as well.
 */
#ifndef VEX_RANDOM_H
#define VEX_RANDOM_H

#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/**
 * Fills a buffer with random bytes.
 *
 * @param buffer  room for @p n bytes; may be NULL when that is 0.
 * @param n       bytes.
 * @return 0; -1 with EINVAL for NULL, EIO when the generator fails: the buffer is all zeros then,
 * never half-filled.
 * @logs one error line per failure.
 */
VEX_API int RandomGetBytes(void *buffer, size_t n);

/**
 * Draws a number uniformly, without the bias of a remainder.
 *
 * @param low   smallest number.
 * @param high  largest number, itself included; the two are swapped when they stand the other way
 * round.
 * @return the number; the smaller bound with errno EIO when the generator fails.
 * @logs one error line when the generator fails.
 */
VEX_API int RandomRange(int low, int high);

/** Draws 32 random bits; 0 with errno EIO, logged, when the generator fails. */
VEX_API uint32_t RandomUint32(void);
/** Draws 64 random bits; 0 with errno EIO, logged, when the generator fails. */
VEX_API uint64_t RandomUint64(void);

VEX_END_DECLS

#endif
