/**
 * @file crypt_stream.h
 * @ingroup crypto
 * Crypt streams: data compressed, encrypted, both or neither, in blocks behind a magic header.
 *
 * A stream is driven like one of zlib's. The caller owns a c_stream_t, clears it to zeros, calls an
 * Init function, sets next_in, avail_in, next_out and avail_out, and calls dcpEncrypt or dcpDecrypt
 * until it returns 1; then End, which every successful Init needs. Functions for whole buffers
 * stand at the end.
 *
 * Results of the stream functions, with their texts from dcpCryptError:
 * -   1: the stream is complete: trailer written, or read and all data delivered;
 * -   0: success; from dcpEncrypt and dcpDecrypt: call again with more room or input;
 * -  -1: system error, see errno; from dcpDecrypt: malformed block header, errno EBADMSG;
 * -  -2: invalid stream or parameter: NULL, no context, one side's context given to the other;
 * -  -3: the data is damaged, or could not be compressed;
 * -  -4: out of memory;
 * -  -5: no room or no progress possible; from dcpDecrypt: the stream is cut short;
 * - -31: the key is absent or wrong.
 *
 * After a negative result a stream gives the same result until Reset or End. The stream functions
 * log only what their entries name; the buffer functions log each failure once.
 *
 * Encryption hides the data but does not authenticate it: damage to an uncompressed block goes
 * unnoticed. The format is described in docs/formats/crypt_stream.md.
 *
 * @threads one stream, one thread at a time; different streams are independent.
 */
#ifndef VEX_CRYPT_STREAM_H
#define VEX_CRYPT_STREAM_H

#include <stdint.h>

#include <vex/cipher.h>
#include <vex/export.h>

/** Flags of dcpEncryptInit. */
#define VEX_STREAM_NO_COMPRESSION 0x02 /**< do not compress */
#define VEX_STREAM_NO_ENCRYPTION 0x04  /**< do not encrypt */
#define VEX_STREAM_DEFLATE 0x40 /**< deflate instead of LZO, unless zalgorithm says otherwise */

/** Values of c_stream_t.zalgorithm. */
#define VEX_STREAM_ALGORITHM_FLAGS 0   /**< what the flags say */
#define VEX_STREAM_ALGORITHM_LZO 1     /**< LZO1X: fast */
#define VEX_STREAM_ALGORITHM_DEFLATE 2 /**< deflate: small */

/** Actions of a stream, as dcpGetCryptoAction tells them. */
#define VEX_STREAM_COMPRESS_ENCRYPT 0 /**< compressed, then encrypted */
#define VEX_STREAM_ENCRYPT 1          /**< encrypted only */
#define VEX_STREAM_COMPRESS 2         /**< compressed only */
#define VEX_STREAM_CLEAR 3            /**< neither */

/** Codes of the stream functions. */
#define VEX_STREAM_END 1                /**< the stream is complete */
#define VEX_STREAM_OK 0                 /**< call again with more room or input */
#define VEX_STREAM_SYSTEM_ERROR (-1)    /**< see errno; EBADMSG for a malformed block header */
#define VEX_STREAM_PARAMETER_ERROR (-2) /**< invalid stream or parameter */
#define VEX_STREAM_DATA_ERROR (-3)      /**< damaged, or could not be compressed */
#define VEX_STREAM_MEMORY_ERROR (-4)    /**< out of memory */
#define VEX_STREAM_BUFFER_ERROR (-5)    /**< no room, no progress, or cut short */
#define VEX_STREAM_KEY_ERROR (-31)      /**< the key is absent or wrong */

VEX_BEGIN_DECLS

/** What the library keeps for an open stream. Opaque. */
struct crypt_ctx_t;

/** A stream. Clear it to zeros before Init. */
typedef struct c_stream_t {
    /** Next input byte; the caller sets it, the library advances it. */
    const unsigned char *next_in;
    uint32_t avail_in; /**< input bytes at next_in */
    uint64_t total_in; /**< input bytes consumed; a writer's trailer takes it from here */
    /** Where output goes next; the caller sets it, the library advances it. */
    unsigned char *next_out;
    uint32_t avail_out;        /**< room at next_out in bytes */
    uint64_t total_out;        /**< bytes produced */
    void *reserved1;           /**< not used */
    void *reserved2;           /**< not used */
    struct crypt_ctx_t *state; /**< NULL while no stream is open; the library's */
    /** Set by the caller before dcpEncryptInit: LZO 0 to 16, deflate 0 to 10; 0 for the default. */
    uint16_t zlevel;
    /** Likewise: the size of a block as a power of two, 12 to 31; 0 for the default, 17. */
    uint16_t zwindow;
    uint16_t zalgorithm; /**< likewise: an algorithm from above */
} c_stream_t;

/**
 * Compresses and encrypts input into the stream.
 *
 * Once the call has consumed all input it ends the stream, trailer included. To write more than one
 * buffer holds, top the input up while avail_in is still above 0. A call stops when its output is
 * full; a block puts out 16 bytes or more (140 with the default window), so with room for R bytes
 * it takes at most R / 16 + 1 blocks: keep more input than that in the buffer until the last call.
 *
 * @return 1 when all of the stream has been delivered; 0 when it needs more room; -2 for NULL
 * pointers; -5 for no room, and for input after the end.
 * @logs one info line per deflate block, and one when LZO is first used in the process.
 */
VEX_API int dcpEncrypt(c_stream_t *stream);
/**
 * Releases the context and clears zlevel, zwindow and zalgorithm.
 * @return 0, or -2.
 */
VEX_API int dcpEncryptEnd(c_stream_t *stream);
/**
 * Reads and decrypts the stream.
 *
 * A block is delivered once all of it is there. Input behind the trailer is left alone. The number
 * of bytes announced in the trailer is compared with those delivered.
 *
 * @param stream  a reader with input and room for output.
 * @param flush   non-zero when no further input will come: a stream that is cut short then gives
 *                -5, after what could be read of it.
 * @return 1 at the end; 0 when it needs more input or room; a negative code.
 */
VEX_API int dcpDecrypt(c_stream_t *stream, int flush);
/** As dcpEncryptEnd; the copy of the key is wiped. */
VEX_API int dcpDecryptEnd(c_stream_t *stream);

/** Stores what an open stream, writer or reader, does. A reader knows it once it has read the
 * header. @return 0 or -2. */
VEX_API int dcpGetCryptoAction(c_stream_t *stream, unsigned short *action);
/** The text of a code. @note That of an unknown code stands in a buffer shared by the process. */
VEX_API const char *dcpCryptError(int code);

/**
 * Sets how LZO writers of this process tell incompressible blocks from a sample; the first call
 * alone counts.
 *
 * When the first and then the last @p sampleRatio per mille of a block, compressed at level 7, both
 * stay above @p ratio per cent of their size, the block is stored. Without this call every block is
 * tried.
 *
 * @param ratio        per cent; 100 and more switch sampling off.
 * @param sampleRatio  size of each of the two samples in per mille of the block.
 * @param lowerBound   smallest sample in bytes that decides anything.
 * @return 0 for the first call, 1 for later ones.
 */
VEX_API int adaptive_compression_init(unsigned ratio, unsigned sampleRatio, unsigned lowerBound);
/** Initialises liblzo2; the streams do it themselves. @return 0, or -3 when it refuses. */
VEX_API int lzo_compression_init(void);

/**
 * Derives a key from a text.
 *
 * @param dataKey  receives @p length bytes.
 * @param length   1 to 32.
 * @param seed     text, of which the first 255 bytes count; NULL for the built-in one.
 * @return 0, or -1 with errno and one error line.
 * @note Without a seed the key is the same everywhere: it keeps texts from being read in passing,
 * no more.
 */
VEX_API int dcpGetDecrptKeyFromSeed(char *dataKey, unsigned long length, const char *seed);
/**
 * Enciphers a text with the built-in key; applying it to its own output gives the text back.
 *
 * @param plainText   terminated; must not be NULL.
 * @param encodeText  receives as many bytes as the text has characters, which may hold zeros; not
 *                    terminated.
 * @return 0, or -1 with errno and one error line.
 */
VEX_API int dcpEncodeText(const char *plainText, char *encodeText);

VEX_END_DECLS

#ifdef __cplusplus
extern "C" {

/**
 * Opens a stream for writing.
 *
 * @param stream      cleared to zeros but for zlevel, zwindow and zalgorithm.
 * @param flags       of those above.
 * @param key         copied; it may be wiped after the call.
 * @param cipherType  one of cipher.h's; not looked at without encryption.
 * @return 0; -2 for a level, window or cipher type out of range; -3 for an unknown algorithm; -4;
 * -1 when the cipher or the random source fails. The stream is closed again then.
 * @logs an error line for an unknown algorithm.
 * @note When the work memory of LZO cannot be allocated it logs an error and returns 0, but the
 * stream is closed: the next call gives -2.
 */
VEX_API int dcpEncryptInit(c_stream_t *stream, unsigned long flags, const VexKey &key,
                           unsigned char cipherType);
/**
 * Begins a new stream with the same settings; set input and output again.
 * @return 0, -2, or -1 and -4 as dcpEncryptInit.
 */
VEX_API int dcpEncryptReset(c_stream_t *stream, const VexKey &key, unsigned char cipherType);
/**
 * Opens a stream for reading.
 *
 * @param stream      cleared to zeros.
 * @param key         copied; it may be wiped after the call. Streams in the clear do not look at
 *                    it.
 * @param cipherType  the type that the stream was written with: it is not stored in the stream. An
 *                    unknown type reads streams in the clear.
 * @return 0, -2 for NULL, or -4.
 */
VEX_API int dcpDecryptInit(c_stream_t *stream, const VexKey &key, unsigned char cipherType);
/** Begins to read a new stream; set input and output again. Without a context it is dcpDecryptInit.
 */
VEX_API int dcpDecryptReset(c_stream_t *stream, const VexKey &key, unsigned char cipherType);

/**
 * Writes a whole buffer as a stream.
 *
 * @param key         not looked at without encryption.
 * @param cipherType  one of cipher.h's.
 * @param in          @p inLength bytes; must not overlap @p out.
 * @param inLength    1 to 4 GiB - 1 bytes.
 * @param out         receives the stream.
 * @param outLength   at least inLength * 1.05 + 100 bytes.
 * @param flags       as dcpEncryptInit.
 * @return the stream's size, or -1 with errno: EINVAL for NULL and 0 (one warning), ENOBUFS for too
 * little room (not logged), ERANGE for too much input.
 */
VEX_API long dcpEncryptDataToBuffer(const VexKey &key, unsigned char cipherType,
                                    const unsigned char *in, unsigned long inLength,
                                    unsigned char *out, unsigned long outLength,
                                    unsigned long flags);
/**
 * Reads a whole stream into a buffer.
 *
 * @return the bytes written, or (unsigned)-1 with errno: EINVAL, ENOBUFS, ENOMEM, EKEYREJECTED for
 * a wrong key, EBADMSG for damaged data.
 * @note Of a stream in the clear it copies what fits and what is there, and looks at nothing but
 * the block lengths.
 */
VEX_API unsigned dcpDecryptDataToBuffer(const VexKey &key, unsigned char cipherType,
                                        const unsigned char *in, unsigned inLength,
                                        unsigned char *out, unsigned outLength);
/**
 * Reads a whole stream into a new buffer.
 *
 * @param key          the key that the stream was written with.
 * @param cipherType   the type that the stream was written with: it is not stored in the stream.
 * @param in           the whole stream.
 * @param length       input bytes; receives the bytes of the result.
 * @param reserved     not used.
 * @param initialSize  bytes to allocate at first; 0 for a guess from the input's length.
 * @return the data, to be freed with free(3); NULL with errno as dcpDecryptDataToBuffer.
 */
VEX_API unsigned char *dcpDecryptData(const VexKey &key, unsigned char cipherType,
                                      const unsigned char *in, unsigned *length, unsigned *reserved,
                                      unsigned initialSize);
}
#endif

#endif
