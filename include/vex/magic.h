/**
 * @file magic.h
 * @ingroup crypto
 * The 14-byte header that opens every file and stream in the library's own formats.
 *
 * Big-endian on any host: "VEX ", a 16-bit set of flags, a 64-bit value of the writer's choosing
 * (crypt streams store the size of their window there). The readers return the header's flags, or
 * -  0: the data does not begin with "VEX ", or a parameter was refused (errno set, one error
 * line);
 * - -1: fewer than 14 bytes could be read, with errno, ENODATA when there simply were no more;
 *   nothing is logged;
 * - -2: the flags are 0: the header is damaged.
 *
 * They store the 64-bit value through @p value, unless that is NULL, only when they return flags.
 *
 * @threads any thread and reentrant, except vexMagicDesc.
 */
#ifndef VEX_MAGIC_H
#define VEX_MAGIC_H

#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>

/** Bytes of a magic header. */
#define VEX_MAGIC_SIZE 14

/** Flags of a magic header. */
#define VEX_MAGIC_SIMPLE 0x0001      /**< plain archive: no cipher, no compression */
#define VEX_MAGIC_ENCRYPTED 0x0002   /**< encrypted with one of the library's ciphers */
#define VEX_MAGIC_PLUGIN 0x0004      /**< encrypted by an external plug-in */
#define VEX_MAGIC_SKIPJACK 0x0008    /**< encrypted with SkipJack */
#define VEX_MAGIC_DEFLATE 0x0010     /**< compressed with deflate */
#define VEX_MAGIC_LZO 0x0020         /**< compressed with LZO1X */
#define VEX_MAGIC_CACHE 0x0040       /**< cache data file */
#define VEX_MAGIC_KEY_RING 0x0080    /**< public key ring */
#define VEX_MAGIC_RSA 0x0100         /**< RSA encrypted */
#define VEX_MAGIC_KEY_CHECK 0x0200   /**< the data opens with a block by which a wrong key shows */
#define VEX_MAGIC_STREAMABLE 0x0400  /**< streamable layout, version 1 */
#define VEX_MAGIC_BLOCK_LIST 0x0800  /**< block list */
#define VEX_MAGIC_KEY_256 0x1000     /**< the key is 256 bits long */
#define VEX_MAGIC_SPOOLER_LOG 0x2000 /**< spooler log */
#define VEX_MAGIC_STREAMABLE_V2 0x4000 /**< streamable layout, version 2 */

VEX_BEGIN_DECLS

/**
 * Builds a header in memory.
 *
 * @param flags   the low 16 bits count.
 * @param buffer  receives the 14 bytes.
 * @param size    room at @p buffer in bytes.
 * @param value   stored big-endian behind the flags.
 * @return 14, or -1 with errno EINVAL for NULL or a size below 14; nothing is logged.
 */
VEX_API int vexMagicMake(int flags, void *buffer, int size, uint64_t value);
/** Writes a header to a descriptor. @return 14, or -1 with the errno of write. */
VEX_API int vexMagicWrite(int flags, int fd, uint64_t value);
/** Writes a header to a stream. @return 14, or -1 with errno: EBADF for NULL, else what fwrite
 * left. */
VEX_API int vexMagicFwrite(int flags, FILE *stream, uint64_t value);

/**
 * Reads the header of a file, or of a buffer when @p path is NULL.
 *
 * @param path    the file; NULL reads @p buffer.
 * @param buffer  not looked at with a path.
 * @param size    bytes at @p buffer.
 * @param value   receives the 64-bit value; may be NULL.
 * @return as above; without a path 0 with errno ENODATA for less than 14 bytes, EINVAL for a NULL
 * buffer.
 */
VEX_API int vexMagicDecode(const char *path, const void *buffer, int size, uint64_t *value);
/**
 * Reads the header at the beginning of a file; the position is left behind the header.
 *
 * @note Descriptor 0 counts as invalid (0 with EBADF): callers use it for "none". vexMagicRead2
 * accepts it.
 */
VEX_API int vexMagicRead(int fd, uint64_t *value);
/**
 * Reads a header from the current position, which pipes allow too.
 *
 * @param fd      open for reading, 0 included.
 * @param value   receives the 64-bit value; may be NULL.
 * @param rewind  non-zero moves the position back to where it was.
 * @return as above; but -2, with an error line, when 14 bytes cannot be read or the position not
 * restored.
 */
VEX_API int vexMagicRead2(int fd, uint64_t *value, int rewind);
/** Reads the header at @p buffer, which must hold 14 bytes. */
VEX_API int vexMagicFromBuffer(const void *buffer, uint64_t *value);
/** Reads the header at the beginning of a stream; 0 with EBADF for NULL. */
VEX_API int vexMagicFread(FILE *stream, uint64_t *value);
/**
 * Tells whether the data behind a header is encrypted and compressed.
 *
 * @param header      the bytes that the stream begins with.
 * @param size        bytes at @p header.
 * @param encrypted   receives 1 or 0, only when flags are returned; may be NULL.
 * @param compressed  likewise.
 * @return the flags; 0 and -2 as above; -1 with errno ENODATA for less than 14 bytes, EINVAL for
 * NULL.
 * @logs one error line for the results with -1.
 */
VEX_API int vexMagicGetCryptSettings(const void *header, unsigned size, int *encrypted,
                                     int *compressed);
/**
 * Describes a reader's result for people.
 *
 * @param result      what a reader returned; for -1 the text tells the current errno.
 * @param cipherType  the cipher to name for encrypted data; the low 8 bits count.
 * @return a text that stays valid until the next call.
 * @threads shares one buffer: one call at a time.
 */
VEX_API const char *vexMagicDesc(int result, int cipherType);

VEX_END_DECLS

#endif
