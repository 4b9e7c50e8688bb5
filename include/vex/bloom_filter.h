/**
 * @file bloom_filter.h
 * @ingroup identity
 * A Bloom filter over fingerprint digests: "certainly absent" or "possibly present" without storing
 * the digests.
 *
 * Its bit positions are cut straight out of the digest, which is uniformly distributed already. The
 * bitmap can be taken out and loaded as raw bytes, so that a filter built in one place can be used
 * in another.
 *
 * @threads none inside: Matches may run in several threads while nothing changes the filter.
 */
#ifndef VEX_BLOOM_FILTER_H
#define VEX_BLOOM_FILTER_H

#include <vex/export.h>

/**
 * A fingerprint digest as the filter reads it: a little-endian bit string.
 *
 * Bytes 0 to 31 hold the digest. Bytes 32 to 34 are read together with it but never decide
 * anything.
 */
struct crfp_digest_t {
    unsigned char bytes[35]; /**< written by the caller */
};

#ifdef __cplusplus

/** A filter of a fixed size; it owns its bitmap. */
class VEX_API BloomFilter {
public:
    /**
     * Makes an empty filter.
     *
     * @param size              bytes of the bitmap, of which the low 32 bits count, and at the same
     * time the expected number of fingerprints. 0 makes a filter without bitmap: it matches
     * nothing.
     * @param maxFalsePositive  stored and reported; the filter is not sized by it.
     * @throws std::bad_alloc
     * @note Positions above the largest power of two in the bitmap's bits are never used.
     */
    BloomFilter(unsigned long size, double maxFalsePositive);
    /** Copies sizes, counts and bitmap. @throws std::bad_alloc */
    BloomFilter(const BloomFilter &other);
    /** Copies as the constructor does; this filter is unchanged when there is no memory. @throws
     * std::bad_alloc */
    BloomFilter &operator=(const BloomFilter &other);
    /** Frees the bitmap. */
    virtual ~BloomFilter();

    /** Replaces the bitmap by a new one of the same size with undefined content. @throws
     * std::bad_alloc */
    void Init();
    /** Sets the digest's seven bits and counts it, also when it was there before. */
    void Insert(const crfp_digest_t &digest);
    /** True when all seven bits are set; false without a bitmap. */
    bool Matches(const crfp_digest_t &digest) const;
    /** Clears bitmap and inserted count. */
    void Empty();

    /** The bitmap, GetBufferSize() bytes; NULL when there is none. @owner the filter; valid until
     * Init or its end. */
    unsigned char *GetBloom() const;
    /** Copies GetBufferSize() bytes into the bitmap; call SetInsertedFingerPrints to go with it.
     * NULL does nothing. */
    void SetBloom(const unsigned char *bitmap) const;

    /** The size given to the constructor. */
    unsigned long GetExpectedFingerprints() const;
    /** The rate given to the constructor. */
    double GetMaxFalsePositive() const;
    /** Bits of the bitmap. */
    unsigned long GetBitmapSize() const;
    /** Bytes of the bitmap. */
    unsigned long GetBufferSize() const;
    /** Bits per digest: 7. */
    unsigned int GetHashFunctionCount() const;
    /** Insert calls since the last Empty, or what SetInsertedFingerPrints stored. */
    unsigned long GetInsertedFingerPrints() const;
    /** Stores what GetInsertedFingerPrints tells and the estimate counts with. */
    void SetInsertedFingerPrints(unsigned long count);

    /** The chance that an absent digest matches, estimated from the counts: (1 - (1 - 1/bits)^(7
     * inserted))^7. */
    double GetFalsePositiveProbability() const;
    /** Counts the set bits; reads the whole bitmap. */
    unsigned long GetBitsSet() const;

private:
    unsigned long _calcHash(const crfp_digest_t &digest, unsigned int index) const;
    void _insert(unsigned long position);
    bool _matches(unsigned long position) const;
    void initHashMask();

    unsigned long expected_fingerprints_;
    double max_false_positive_;
    unsigned long buffer_size_;
    unsigned long bitmap_size_;
    unsigned int hash_function_count_;
    unsigned char *bitmap_;
    unsigned long inserted_fingerprints_;
    unsigned long hash_mask_;
};

#endif

#endif
