/**
 * @file uid.h
 * @ingroup identity
 * The 16-byte unique identifier that objects of the system carry.
 *
 * Byte 0 is the version; 1 is the only one. A random UUID of RFC 4122 (version 4, standard variant)
 * counts as version 1 as it stands, whatever its byte 0 is. Byte 0 = 0 in any other identifier
 * makes it the invalid one.
 *
 * The caller owns the records. Failures are logged, one error line each, with errno EINVAL unless
 * an entry says otherwise. docs/formats/serialisation.md has the two written forms.
 *
 * @threads every function may be called from any thread; generation takes turns at the random
 * source.
 */
#ifndef VEX_UID_H
#define VEX_UID_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** An identifier: byte 0 the version, the rest random; compared and written as these bytes. */
typedef struct VexUID {
    uint8_t bytes[16]; /**< in the order of its written form */
} VexUID;

/** The size of the record in bytes: 16. */
VEX_API size_t VexUIDSize(void);
/** Makes the invalid identifier, all bytes 0. @return @p uid, or NULL for NULL. */
VEX_API VexUID *VexUIDInit(VexUID *uid);
/** Allocates an invalid identifier. @return it, or NULL with ENOMEM. @owner the caller:
 * VexUIDDelete. */
VEX_API VexUID *VexUIDNew(void);
/** Frees the identifier and nulls the caller's pointer; a pointer to NULL is accepted in silence.
 */
VEX_API void VexUIDDelete(VexUID **uid);

/**
 * Draws a new identifier.
 *
 * @param uid      receives the identifier.
 * @param version  must be 1.
 * @return @p uid; NULL with EINVAL, or EIO when no random bytes can be had: it is unchanged then.
 */
VEX_API VexUID *VexUIDGenerate(VexUID *uid, unsigned version);
/** 1 for a valid identifier, else 0: silent for the invalid one, logged for an unknown version and
 * NULL. */
VEX_API unsigned VexUIDVersionGet(const VexUID *uid);
/** 1 for a valid identifier; 0, logged, for the invalid one, an unknown version and NULL. */
VEX_API int VexUIDValidate(const VexUID *uid);
/** Copies a valid identifier. @return @p dest; NULL when @p src is not valid, @p dest is unchanged
 * then. */
VEX_API VexUID *VexUIDInitCopy(VexUID *dest, const VexUID *src);

/** Bytes of the written form: 16 in binary, 32 in text; 0 when @p uid is not valid. */
VEX_API size_t VexUIDSerializedSize(const VexUID *uid, bool binary);
/**
 * Writes the 16 bytes, or 32 lower-case hexadecimal digits in the same order without dashes.
 *
 * @param buffer  receives the bytes or digits.
 * @param size    room in bytes; text is terminated only when there are 33 or more.
 * @param uid     a valid identifier.
 * @param binary  true for the bytes, false for the digits.
 * @return 16 or 32; 0 for an identifier that is not valid, NULL or too little room.
 */
VEX_API size_t VexUIDSerialize(void *buffer, size_t size, const VexUID *uid, bool binary);
/**
 * Reads an identifier from the head of a buffer; digits may be of either case.
 *
 * @return 16 or 32, the bytes used; 0 with @p uid unchanged on failure. An unknown version fails in
 * silence.
 */
VEX_API size_t VexUIDDeserialize(VexUID *uid, const void *buffer, size_t size, bool binary);
/**
 * Reads 16 or 32 bytes from a stream and the identifier from them.
 *
 * @param uid       receives the identifier; unchanged on failure.
 * @param file      open for reading; its position is unspecified after a failure.
 * @param binary    true for the bytes, false for the digits.
 * @param consumed  receives 16 or 32; may be NULL; untouched on failure.
 * @return @p uid; NULL with ENODATA at the end of the file, the read's errno, or as
 * VexUIDDeserialize.
 */
VEX_API VexUID *VexUIDInitFromFile(VexUID *uid, FILE *file, bool binary, size_t *consumed);

/** 1 when both are the same, 0 when they differ, -1 when one is not valid. */
VEX_API int VexUIDEqual(const VexUID *a, const VexUID *b);
/** -1, 0 or 1 by unsigned comparison from byte 0 on; 2147483647 when one is not valid. */
VEX_API int VexUIDCompare(const VexUID *a, const VexUID *b);

VEX_END_DECLS

#endif
