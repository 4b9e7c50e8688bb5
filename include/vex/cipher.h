/**
 * @file cipher.h
 * @ingroup crypto
 * Symmetric keys and ciphers behind one streaming interface; C++ only.
 *
 * A cipher object is made by Cipher::NewCipher, set up with Init or InitSession for one direction,
 * fed with Update or Process any number of times, finished with Final (or Process with final set),
 * then released with Free and delete. Output needs room for the input rounded up to a multiple of
 * GetBlockSize() when the padding size is above 1, else for the input's length. Failures are -1 (0
 * from Init and InitSession, NULL from NewCipher) with errno and one error line.
 *
 * @threads one object, one thread at a time; different objects are independent. Keys are plain
 * values.
 */
#ifndef VEX_CIPHER_H
#define VEX_CIPHER_H

#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>

/** Cipher types, as Cipher::NewCipher and the crypt streams take them. */
#define VEX_CIPHER_BLOWFISH 0    /**< 8-byte blocks; for data that was written with it */
#define VEX_CIPHER_AES_256_CFB 1 /**< cipher feedback, 128 bits */
#define VEX_CIPHER_AES_256_OFB 2 /**< output feedback */
#define VEX_CIPHER_AES_256_CTR 3 /**< counter; the one to take for new data */

/** Bytes of a key. */
#define VEX_KEY_SIZE 32

#ifdef __cplusplus

struct BlowfishContext;
struct evp_cipher_st;
struct evp_cipher_ctx_st;

/** A key of 32 bytes and a terminator that is always 0. It does not wipe itself: use
 * OPENSSL_cleanse. */
class VEX_API VexKey {
public:
    /** Makes the zero key. */
    VexKey();
    /** Makes the key that Assign(@p source) makes. */
    explicit VexKey(const void *source);

    /** A shared key of zeros. */
    static const VexKey &Zero();
    /** Makes this the zero key. */
    void AssignZero();
    /**
     * Takes 32 bytes from @p source; with NULL it makes a random key that holds no zero byte.
     * @note Aborts the process after a critical log line when the random source fails: nobody must
     * go on with a key that could be guessed.
     */
    void Assign(const void *source);
    /** Assign; the key itself. */
    VexKey &NewKey(const void *source);
    /** Copies key and terminator, 33 bytes, to @p buffer; false, with nothing written, when @p size
     * is below 33. */
    bool CopyToBuffer(void *buffer, size_t size) const;
    /** Compares with the 32 bytes at @p other as memcmp does: the time taken tells where they
     * differ. */
    int Compare(const void *other) const;

private:
    unsigned char key_[VEX_KEY_SIZE];
    unsigned char terminator_;
};

/** What all ciphers share. */
class VEX_API Cipher {
public:
    Cipher(const Cipher &) = delete;
    Cipher &operator=(const Cipher &) = delete;
    virtual ~Cipher();

    /** Bytes of a block. */
    virtual int GetBlockSize() const;
    /** Final pads to a multiple of this many bytes. */
    virtual int GetPaddingSize() const;
    /** Input bytes held back until a block is whole. */
    virtual int GetAcUsed() const;
    /** Init for data that chains from block to block. @return as Init. */
    virtual int InitSession(int opMode, const VexKey &key, const unsigned char *iv);
    /**
     * Sets the direction and the key.
     *
     * @param opMode  0 to encrypt, any other value to decrypt.
     * @param key     copied into the working state; it may be wiped after the call.
     * @param iv      16 bytes, NULL for zeros; Blowfish ignores it.
     * @return 1, or 0 on failure.
     */
    virtual int Init(int opMode, const VexKey &key, const unsigned char *iv) = 0;
    /**
     * Processes @p length bytes; @p in and @p out may be equal.
     * @return bytes written, fewer than @p length when some are held back; -1 for NULL or a
     * negative length, whatever the other arguments.
     */
    virtual int Update(const void *in, int length, void *out) = 0;
    /**
     * Processes what was held back, padded with zeros.
     *
     * @param out      room for one block.
     * @param padding  receives how many zeros were added; may be NULL.
     * @return bytes written to @p out, 0 when nothing was held back.
     */
    virtual int Final(void *out, unsigned *padding) = 0;
    /** Releases the working state; Init may follow. */
    virtual void Free() = 0;

    /** The type code, one of the four above. */
    int GetType() const;
    /** 0 when it encrypts. */
    int GetOpMode() const;
    /** True when streams store an 8-byte check instead of the vector. */
    bool UseIv8() const;
    /** Bytes that a stream stores ahead of its data: 8, or a block where the vector itself is
     * stored. */
    int GetHeaderSize() const;
    /**
     * Fills in a vector: 4 random bytes twice when UseIv8(), by which a reader recognises the key;
     * else GetBlockSize() random bytes.
     * @return 0, or -1 when the random source fails.
     */
    int makeIv(unsigned char *iv);
    /** GetCipherDescription of its type. */
    const char *GetDescription() const;

    /**
     * Update, then Final when @p final is set.
     * @return the bytes written by both, or -1.
     * @logs a line of its own after the failing step's.
     */
    int Process(const void *in, int length, bool final, void *out, unsigned *padding);
    /** Process: the direction is Init's. */
    int Encrypt(const void *in, int length, bool final, void *out, unsigned *padding);
    /** Process: the direction is Init's. */
    int Decrypt(const void *in, int length, bool final, void *out, unsigned *padding);

    /** A new cipher, to be deleted by the caller; NULL with errno EINVAL for an unknown type,
     * ENOMEM. */
    static Cipher *NewCipher(int type);
    /** "Blowfish", "AES-256-CFB", "AES-256-OFB", "AES-256-CTR" or "Unknown"; constant. */
    static const char *GetCipherDescription(int type);

protected:
    /** For the ciphers below: what GetType and UseIv8 will tell. */
    Cipher(int type, bool useIv8);

    int32_t id_;     /**< number of this object among all of the process */
    int32_t opMode_; /**< 0 encrypts, any other value decrypts; set by Init */
    int32_t type_;   /**< type code */
    bool useIv8_;    /**< what UseIv8 tells */
};

/** Blowfish: ECB after Init, CBC with a zero vector after InitSession. */
class VEX_API BlowfishCipher : public Cipher {
public:
    BlowfishCipher();
    ~BlowfishCipher() override;

    int GetBlockSize() const override;
    int GetPaddingSize() const override;
    int GetAcUsed() const override;
    int InitSession(int opMode, const VexKey &key, const unsigned char *iv) override;
    int Init(int opMode, const VexKey &key, const unsigned char *iv) override;
    int Update(const void *in, int length, void *out) override;
    int Final(void *out, unsigned *padding) override;
    void Free() override;
    /** Processes @p length bytes at once, by the rules of BlowfishEncode and BlowfishDecode. */
    int UpdateAligned(const unsigned char *in, int length, unsigned char *out);

private:
    bool renewState();
    int updateHeld(const unsigned char *in, int length, unsigned char *out);

    BlowfishContext *state_;
    unsigned char held_[8];
    int32_t held_count_;
};

/** AES-256 in one of OpenSSL's stream modes. */
class VEX_API AESCipher : public Cipher {
public:
    /**
     * Makes a cipher of one mode; Cipher::NewCipher knows the four that the formats use.
     *
     * @param cipher  OpenSSL's description of the mode; not owned.
     * @param type    the type code that GetType tells.
     * @param useIv8  what UseIv8 tells.
     */
    AESCipher(int type, const evp_cipher_st *cipher, bool useIv8);
    ~AESCipher() override;

    int Init(int opMode, const VexKey &key, const unsigned char *iv) override;
    int Update(const void *in, int length, void *out) override;
    int Final(void *out, unsigned *padding) override;
    void Free() override;

private:
    const evp_cipher_st *cipher_;
    evp_cipher_ctx_st *context_;
};

#endif

#endif
