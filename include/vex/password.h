/**
 * @file password.h
 * @ingroup crypto
 * Passwords in configuration files, in two strengths.
 *
 * PasswdEncode and PasswdDecode only keep a text from being read in passing: the key is built into
 * the library. The functions with a key encrypt with AES-256-CTR; those with a key file take the
 * key from a key store (docs/formats/key_store.md) and mark the text as encrypted, so that either
 * may meet a text that needs nothing done (docs/formats/password.md). Nothing here detects a
 * changed text or a wrong key: AES-256-CTR then gives other bytes.
 *
 * Texts are NUL-terminated. @p destLength is the room at @p dest in bytes, the terminator included;
 * a result that does not fit is never cut. @p dest must not overlap the other text, and holds its
 * old content after a failure unless an entry says otherwise. Results are 0, and -1 after error
 * lines with errno: EINVAL for NULL and for rooms and lengths that are refused, ENOMEM, EIO when no
 * random bytes can be had. Functions with a key file also return the key store's codes. No message
 * holds a password or a key.
 *
 * @threads any thread; nothing keeps state. Writers of one key store take turns by a lock on its
 * directory, and readers need none.
 */
#ifndef VEX_PASSWORD_H
#define VEX_PASSWORD_H

#include <stdbool.h>

#include <vex/cipher.h>
#include <vex/export.h>

/** What is wrong with a key store, as the functions with a key file return it. */
#define VEX_KEY_STORE_READ_ERROR 1   /**< the key file cannot be read, or is no key file by size */
#define VEX_KEY_STORE_BAD_LINE 2     /**< a line has another form; errno EINVAL */
#define VEX_KEY_STORE_CRC_MISMATCH 3 /**< content and checksum file differ; errno EBADMSG */
#define VEX_KEY_STORE_BAD_INDEX 4    /**< count or index out of range; errno ERANGE */
#define VEX_KEY_STORE_NO_CHECKSUM 5  /**< the checksum file cannot be read */

/** Keys that the writers put into one store at most: texts of indexes above 9 are not readable. */
#define VEX_KEY_STORE_MOST_KEYS 10

VEX_BEGIN_DECLS

/**
 * Obscures a password: each byte XORed with a built-in key, then Base64.
 *
 * @param plain       the password.
 * @param dest        receives the Base64 text.
 * @param destLength  at least (n + 2) / 3 * 4 + 1 for n bytes.
 */
VEX_API int PasswdEncode(const char *plain, char *dest, unsigned destLength);
/**
 * Undoes PasswdEncode.
 *
 * @return -1 without a log line when @p encoded is no Base64 text (EINVAL) or the password does not
 * fit (ENOBUFS); @p dest is then the empty text.
 */
VEX_API int PasswdDecode(const char *encoded, char *dest, unsigned destLength);

/**
 * Tells whether a text is one that EncryptPasswdWithKey has made with key index 0: "X00000" and at
 * least one pair of hexadecimal digits.
 *
 * @note Texts of other key indexes are not recognised, on purpose. NULL gives false.
 */
VEX_API bool IsEncrypted(const char *text);
/**
 * Encrypts a password with the current key of a store. A text that IsEncrypted recognises is copied
 * unchanged, with a warning.
 *
 * @param keyFile     the key store.
 * @param src         at most 495 bytes.
 * @param dest        receives "X", the key's index and the hexadecimal digits.
 * @param destLength  at least 2 * n + 39 for n bytes.
 * @return 0, -1, or the key store's code.
 * @note The AES key is made of the first 32 digits of the key text, so it has 128 random bits.
 */
VEX_API int EncryptPasswdWithKey(const char *keyFile, const char *src, char *dest,
                                 unsigned destLength);
/**
 * Decrypts what EncryptPasswdWithKey has written. A text that does not begin with "X" is a password
 * in the clear: it is copied unchanged, with a warning.
 *
 * @param keyFile     the key store.
 * @param src         fewer than 1024 characters; up to 1028 when it begins with "X".
 * @param dest        receives the password.
 * @param destLength  at least the number of hexadecimal digits in @p src, about twice what the
 *                    password needs.
 * @return 0, -1, or the key store's code. -1 also for a text of another key than the current one.
 * @note A password in the clear that begins with "X" is refused.
 */
VEX_API int DecryptPasswdWithKey(const char *keyFile, const char *src, char *dest,
                                 unsigned destLength);
/**
 * Reads the text of the current key: 64 hexadecimal digits. The caller wipes it after use.
 *
 * @param key      room for 4096 characters.
 * @param keyFile  the key store.
 * @return 0 or -1.
 */
VEX_API int RetrieveAuthKey(char *key, const char *keyFile);

/**
 * Creates a key store of one random key: @p keyFile and "<keyFile>.chksum", both of mode 0600.
 *
 * @return 0 when both are stored durably; -1 with EEXIST when there is a @p keyFile, which stays as
 * it is, else what a call on the files left. No store was made then, unless only the last sync of
 * the directory failed.
 */
VEX_API int PasswdKeyStoreInit(const char *keyFile);
/**
 * Adds a random key to a store and makes it the current one; owner and mode of the file stay.
 *
 * Whatever fails or loses power, the old store or the new one is there and readable.
 *
 * @return 0 when the store is stored durably; -1 with ENOSPC when it holds VEX_KEY_STORE_MOST_KEYS
 * keys, else what a call on the files left; or the code of a store that cannot be read.
 * @note DecryptPasswdWithKey knows the current key only: decrypt stored passwords before, and
 * encrypt them again after.
 */
VEX_API int PasswdKeyStoreRotate(const char *keyFile);

VEX_END_DECLS

#ifdef __cplusplus
VEX_BEGIN_DECLS

/**
 * Encrypts a password under a random vector.
 *
 * @param key         the AES-256 key.
 * @param plain       the password.
 * @param dest        receives vector and ciphertext in hexadecimal digits.
 * @param destLength  at least 2 * (16 + n) + 1 for n bytes.
 */
VEX_API int PasswdEncrypt(const VexKey &key, const char *plain, char *dest, unsigned destLength);
/**
 * Undoes PasswdEncrypt.
 *
 * @param key         the AES-256 key.
 * @param hex         an even number of hexadecimal digits, at least 32.
 * @param dest        receives the password.
 * @param destLength  at least the number of digits, about twice what the password needs.
 */
VEX_API int PasswdDecrypt(const VexKey &key, const char *hex, char *dest, unsigned destLength);

VEX_END_DECLS
#endif

#endif
