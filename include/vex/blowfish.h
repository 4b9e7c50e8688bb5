/**
 * @file blowfish.h
 * @ingroup crypto
 * The Blowfish block cipher (B. Schneier, 1993): 8-byte blocks, 16 rounds, ECB and CBC.
 *
 * The caller owns the state; clear it to zeros before first use, and wipe it after last use, since
 * it holds what the key was expanded to. Each block is read and written as two big-endian 32-bit
 * words, so results match the published vectors on any host.
 *
 * The encoders and decoders share one length rule: they process the length rounded up to a multiple
 * of 8, with zero bytes for what is missing, and return that rounded length. Output, and with in ==
 * out the one buffer, needs room for BlowfishGetOutputLength(length) bytes. @p in and @p out may be
 * equal or overlap. Lengths go from 0 to INT_MAX - 7; pointers must not be NULL unless an entry
 * says otherwise. Nothing allocates.
 *
 * Blowfish's 64-bit blocks repeat after some gigabytes under one key: it is here for data that was
 * written with it.
 *
 * @threads one state, one thread at a time; the ECB functions only read the state.
 */
#ifndef VEX_BLOWFISH_H
#define VEX_BLOWFISH_H

#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** Values of BlowfishContext.mode. */
#define VEX_BLOWFISH_ECB 0        /**< each block by itself */
#define VEX_BLOWFISH_CBC_ENCODE 1 /**< a chain that is written */
#define VEX_BLOWFISH_CBC_DECODE 2 /**< a chain that is read */

/** An expanded key with its CBC chain. The functions below write every field. */
typedef struct BlowfishContext {
    uint32_t P[18];     /**< round keys */
    uint32_t S[4][256]; /**< key-dependent substitution boxes */
    uint32_t mode;      /**< one of the modes above; set by BlowfishInitCBC */
    uint32_t chain[2];  /**< CBC vector, left and right half, in host order */
} BlowfishContext;

/**
 * Expands a key: 521 encryptions, some 25 microseconds. Leaves mode and chain as they are.
 *
 * @param state      receives round keys and boxes.
 * @param key        @p keyLength bytes of any value.
 * @param keyLength  bytes, 1 or more; beyond 72 they change nothing.
 * @return 1, or 0 with errno EINVAL for NULL or a length of 0; nothing is logged.
 */
VEX_API int BlowfishInit(BlowfishContext *state, const unsigned char *key, size_t keyLength);
/**
 * BlowfishInit, then CBC with a zero vector.
 *
 * @param state      receives round keys, boxes, mode and a chain of zeros.
 * @param key        @p keyLength bytes of any value.
 * @param keyLength  bytes, as BlowfishInit.
 * @param direction  1 to decode, any other value to encode.
 * @return 1, or 0 with errno EINVAL as BlowfishInit.
 * @logs one error line on failure.
 */
VEX_API int BlowfishInitCBC(BlowfishContext *state, const char *key, size_t keyLength,
                            int direction);

/** Enciphers each block by itself. @return bytes written. */
VEX_API int BlowfishEncodeECB(BlowfishContext *state, const void *in, void *out, int length);
/** Deciphers each block by itself. @return bytes written. */
VEX_API int BlowfishDecodeECB(BlowfishContext *state, const void *in, void *out, int length);
/** Enciphers a chain, which the state carries from call to call. @return bytes written. */
VEX_API int BlowfishEncodeCBC(BlowfishContext *state, const void *in, void *out, int length);
/** Deciphers a chain, which the state carries from call to call. @return bytes written. */
VEX_API int BlowfishDecodeCBC(BlowfishContext *state, const void *in, void *out, int length);
/**
 * Enciphers in the state's mode, ECB or CBC encoding.
 *
 * @return bytes written, or -1 with errno EINVAL for a NULL state and for any other mode: a state
 * set up to decode a chain cannot encode.
 * @logs one error line on failure.
 */
VEX_API int BlowfishEncode(BlowfishContext *state, const void *in, void *out, int length);
/** Deciphers in the state's mode, ECB or CBC decoding; otherwise as BlowfishEncode. */
VEX_API int BlowfishDecode(BlowfishContext *state, const void *in, void *out, int length);

/** @p length rounded up to a multiple of 8. */
VEX_API int BlowfishGetOutputLength(int length);
/**
 * Self-test: a published vector in both directions, and a round trip in ECB and in CBC. Overwrites
 * the state.
 * @return 1 when all is well, else 0; 0 for NULL.
 */
VEX_API int BlowfishTest(BlowfishContext *state);

VEX_END_DECLS

#endif
