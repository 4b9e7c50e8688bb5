/**
 * @file digest.h
 * @ingroup identity
 * Fingerprints of data: MD5 digests of 16 bytes and the SHA256 family's digests of 32 bytes.
 *
 * The SHA256 family computes SHA-512/256, not SHA-256: stored fingerprints are SHA-512/256 values.
 * A digest has two written forms, its bytes and lower-case hexadecimal digits ("fingerprint
 * string", 32 or 64 characters); as a number it is unsigned and big-endian.
 *
 * Digest arguments point to 16 (MD5) or 32 (SHA256) bytes. The caller owns contexts and buffers.
 * Functions ending in _r write into the caller's buffer; those without write into one static buffer
 * each and return that. Sizes count bytes. A NULL argument gives EINVAL, one error line and the
 * failure value (NULL or 0).
 *
 * In OpenSSL's FIPS mode the MD5 functions compute nothing: Initialize, Append and Finalize warn
 * and leave the digest as it was, and the functions over a buffer give a digest of zeros.
 *
 * @threads the _r functions and contexts may be used from any thread on separate data; the
 * functions with a static buffer from one thread at a time.
 * @standard RFC 1321 (MD5), FIPS 180-4 (SHA-512/256).
 */
#ifndef VEX_DIGEST_H
#define VEX_DIGEST_H

#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** State of one MD5 computation. */
typedef struct MD5Context {
    MD5_CTX state;            /**< the library's */
    unsigned char digest[16]; /**< result, valid after MD5Finalize */
} MD5Context;

/** State of one SHA-512/256 computation. Between Initialize and Finalize it must not be copied. */
typedef struct SHA256Context {
    unsigned char digest[32]; /**< result, valid after SHA256Finalize */
    SHA512_CTX state;         /**< the library's, outside FIPS mode */
    EVP_MD_CTX *evp; /**< the library's, in FIPS mode; NULL outside it and after Finalize */
} SHA256Context;

/** The MD5 of empty data. */
extern VEX_API const unsigned char md5_empty_digest[16];
/** The SHA-512/256 of empty data. */
extern VEX_API const unsigned char sha256_empty_digest[32];

/** Begins a computation. @logs a warning in FIPS mode, as do the next two. */
VEX_API void MD5Initialize(MD5Context *context);
/** Adds @p length bytes; @p data may be NULL when that is 0. */
VEX_API void MD5Append(MD5Context *context, const void *data, uint32_t length);
/** Ends the computation and stores the digest in the context. */
VEX_API void MD5Finalize(MD5Context *context);
/**
 * Begins a computation. SHA256Finalize must follow: in FIPS mode it frees what this allocates.
 *
 * @logs one info line when FIPS mode offers no context; Append does nothing then and the digest
 * becomes zeros, and the functions over data and files give NULL with EIO.
 */
VEX_API void SHA256Initialize(SHA256Context *context);
/** Adds @p length bytes; @p data may be NULL when that is 0. */
VEX_API void SHA256Append(SHA256Context *context, const void *data, uint32_t length);
/** Ends the computation and stores the digest in the context. */
VEX_API void SHA256Finalize(SHA256Context *context);

/**
 * Prints the digest of a finished context.
 *
 * @param context  one that the Finalize function was called on.
 * @param buffer   receives the lower-case digits and a terminator.
 * @param size     at least 33 (MD5) or 65 (SHA256), else EINVAL.
 * @return @p buffer, terminated, or NULL.
 */
VEX_API char *MD5GetString_r(const MD5Context *context, char *buffer, size_t size);
/** MD5GetString_r into a static buffer. */
VEX_API char *MD5GetString(const MD5Context *context);
/** MD5GetString_r for SHA256: 65 bytes of room. */
VEX_API char *SHA256GetString_r(const SHA256Context *context, char *buffer, size_t size);

/** The fingerprint string of @p length bytes; room and result as MD5GetString_r. NULL data is
 * refused for any length. */
VEX_API char *MD5FromData_r(const void *data, uint64_t length, char *buffer, size_t size);
/** MD5FromData_r into a static buffer. */
VEX_API char *MD5FromData(const void *data, uint64_t length);
/** MD5FromData_r for SHA256: 65 bytes of room; NULL with EIO when FIPS mode offers no context. */
VEX_API char *SHA256FromData_r(const void *data, uint64_t length, char *buffer, size_t size);
/** SHA256FromData_r into a static buffer. */
VEX_API char *SHA256FromData(const void *data, uint64_t length);
/** Computes the digest itself. @return @p digest, or NULL. */
VEX_API void *MD5DigestFromData_r(const void *data, uint64_t length, void *digest);

/**
 * The fingerprint string of a file's content; room and result as SHA256GetString_r.
 *
 * @return NULL also when the file cannot be opened or read, with that errno, and with EIO as
 * SHA256FromData_r.
 * @logs one error line per failure. Reads in chunks of 32768 bytes.
 */
VEX_API char *SHA256FromFile_r(const char *path, char *buffer, size_t size);
/** SHA256FromFile_r into a static buffer. */
VEX_API char *SHA256FromFile(const char *path);
/** The same from an open descriptor's position to its end. @note Closes @p fd, also on failure. */
VEX_API char *__sha512_256FromFile(int fd, char *buffer, size_t size);

/** Bytes of a written digest: 16 in binary, 32 in text. */
VEX_API size_t MD5DigestSerializedSize(bool binary);
/** Bytes of a written digest: 32 in binary, 64 in text. */
VEX_API size_t SHA256DigestSerializedSize(bool binary);
/** Writes a digest; text is terminated only where there is more room. @return the bytes written, or
 * 0 with EINVAL. */
VEX_API size_t MD5DigestSerialize(void *buffer, size_t size, const void *digest, bool binary);
/** MD5DigestSerialize for SHA256. */
VEX_API size_t SHA256DigestSerialize(void *buffer, size_t size, const void *digest, bool binary);
/**
 * Reads a digest from the head of a buffer; digits may be of either case, what stands behind them
 * is ignored.
 *
 * @return the bytes used; 0 with EINVAL, logged, for a short buffer or a character that is no
 * digit: @p digest may hold a part then.
 */
VEX_API size_t MD5DigestDeserialize(void *digest, const void *buffer, size_t size, bool binary);
/** MD5DigestDeserialize for SHA256. */
VEX_API size_t SHA256DigestDeserialize(void *digest, const void *buffer, size_t size, bool binary);

/** Prints a digest, terminated. @return @p buffer; NULL with ENOBUFS below 33 bytes of room,
 * EINVAL for NULL. */
VEX_API char *MD5DigestToString_r(const void *digest, char *buffer, size_t size);
/** MD5DigestToString_r into a static buffer. */
VEX_API char *MD5DigestToString(const void *digest);
/** MD5DigestToString_r for SHA256: 65 bytes of room. */
VEX_API char *SHA256DigestToString_r(const void *digest, char *buffer, size_t size);
/** Reads a fingerprint string: its first 32 characters. @return @p digest; NULL with EINVAL,
 * logged. */
VEX_API unsigned char *MD5StringToDigest_r(const char *text, void *digest);
/** MD5StringToDigest_r into a static digest. */
VEX_API unsigned char *MD5StringToDigest(const char *text);
/** MD5StringToDigest_r for SHA256: the first 64 characters. */
VEX_API unsigned char *SHA256StringToDigest_r(const char *text, void *digest);
/** SHA256StringToDigest_r into a static digest. */
VEX_API unsigned char *SHA256StringToDigest(const char *text);

/** The first four bytes as a big-endian number, for hash tables. */
VEX_API uint32_t MD5DigestHash32(const void *digest);
/** MD5DigestHash32 for SHA256. */
VEX_API uint32_t SHA256DigestHash32(const void *digest);

/** Makes the smallest digest, all bytes 0x00, as a bound of ranges. @return @p digest. */
VEX_API void *MD5DigestInitMinimum(void *digest);
/** Makes the largest digest, all bytes 0xFF. @return @p digest. */
VEX_API void *MD5DigestInitMaximum(void *digest);
/** MD5DigestInitMinimum for SHA256. */
VEX_API void *SHA256DigestInitMinimum(void *digest);
/** MD5DigestInitMaximum for SHA256. */
VEX_API void *SHA256DigestInitMaximum(void *digest);
/** Adds 1; the largest digest becomes the smallest. @return @p digest. */
VEX_API void *MD5DigestIncrement(void *digest);
/** Subtracts 1; the smallest digest becomes the largest. @return @p digest. */
VEX_API void *MD5DigestDecrement(void *digest);
/** MD5DigestIncrement for SHA256. */
VEX_API void *SHA256DigestIncrement(void *digest);
/** MD5DigestDecrement for SHA256. */
VEX_API void *SHA256DigestDecrement(void *digest);

/** The MD5 of empty data. @owner the library; constant. */
VEX_API const unsigned char *MD5EmptyDigest(void);
/** The SHA-512/256 of empty data. @owner the library; constant. */
VEX_API const unsigned char *SHA256EmptyDigest(void);
/** 1 for the digest of empty data, else 0, also for NULL, which is not logged. */
VEX_API int MD5IsEmptyDigest(const void *digest);
/** MD5IsEmptyDigest for SHA256. */
VEX_API int SHA256IsEmptyDigest(const void *digest);
/** 1 for the fingerprint string of empty data in either case, else 0, also for NULL, which is not
 * logged. */
VEX_API int MD5IsEmptyFP(const char *fp);
/** MD5IsEmptyFP for SHA256. */
VEX_API int SHA256IsEmptyFP(const char *fp);

/**
 * Ends the process, through ErrorExitA with code 22, unless @p fp is a fingerprint string of the
 * right length.
 *
 * @note Upper-case digits are refused here on purpose, although they are accepted when a digest is
 * read.
 */
VEX_API void MD5ValidateAndExitOnError(const char *fp);
/** MD5ValidateAndExitOnError for SHA256. */
VEX_API void SHA256ValidateAndExitOnError(const char *fp);

VEX_END_DECLS

#endif
