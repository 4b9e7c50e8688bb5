#include "support/test.h"

static crfp_digest_t randomDigest() {
    static std::mt19937 random(static_cast<unsigned>(testSeed()));
    crfp_digest_t digest;
    for (auto &byte : digest.bytes) byte = static_cast<unsigned char>(random());
    return digest;
}

/// The seven positions, bit by bit: 36-bit fields of a little-endian bit string, as far as the mask
/// reaches.
static std::vector<unsigned long> positions(const crfp_digest_t &digest, unsigned mask_bits) {
    std::vector<unsigned long> result(7, 0);
    for (unsigned i = 0; i < 7; ++i)
        for (unsigned b = 0; b < mask_bits; ++b) {
            const unsigned bit = 36 * i + b;
            result[i] |= static_cast<unsigned long>(digest.bytes[bit / 8] >> (bit % 8) & 1) << b;
        }
    return result;
}

TEST(BloomFilter, SetsExactlyTheDigestsFieldsForEverySize) {
    const std::map<unsigned long, unsigned> mask_bits{
        {1, 3}, {2, 4}, {3, 4}, {1000, 12}, {1024, 13}, {4095, 14}, {3UL << 20, 24}, {(1UL << 32) + 1000, 12}};
    for (const auto &[size, mask] : mask_bits) {
        SCOPED_TRACE(size);
        BloomFilter filter(size, 0.01);
        ASSERT_EQ(static_cast<uint32_t>(size), filter.GetBufferSize());
        std::set<unsigned long> expected;
        for (int i = 0; i < 20; ++i) {
            const crfp_digest_t digest = randomDigest();
            const auto bits = positions(digest, mask);
            EXPECT_EQ(std::all_of(bits.begin(), bits.end(), [&](auto bit) { return expected.count(bit) != 0; }),
                filter.Matches(digest));
            filter.Insert(digest);
            filter.Insert(digest);
            EXPECT_TRUE(filter.Matches(digest));
            expected.insert(bits.begin(), bits.end());
        }
        for (const unsigned long bit : expected) EXPECT_TRUE(filter.GetBloom()[bit / 8] >> (bit % 8) & 1) << bit;
        EXPECT_EQ(expected.size(), filter.GetBitsSet());
        EXPECT_EQ(40u, filter.GetInsertedFingerPrints());
        const double m = static_cast<double>(filter.GetBitmapSize());
        EXPECT_DOUBLE_EQ(std::pow(1 - std::pow(1 - 1 / m, 7.0 * 40), 7.0), filter.GetFalsePositiveProbability());
    }
}

TEST(BloomFilter, CopiesAndShippedBitmapsStandAlone) {
    const crfp_digest_t digest = randomDigest();
    BloomFilter filter(5000, 0.25);
    filter.Insert(digest);
    BloomFilter copy(filter), assigned(1, 0), shipped(5000, 0.25), none(0, 0.5);
    assigned = filter;
    shipped.SetBloom(filter.GetBloom());
    shipped.SetInsertedFingerPrints(1);
    filter.Empty();
    EXPECT_FALSE(filter.Matches(digest));
    EXPECT_EQ(0.0, static_cast<double>(filter.GetInsertedFingerPrints()) + filter.GetFalsePositiveProbability());
    for (const BloomFilter *other : {&copy, &assigned, &shipped}) {
        EXPECT_TRUE(other->Matches(digest));
        EXPECT_EQ(0.25, other->GetMaxFalsePositive());
        EXPECT_EQ(5000u, other->GetExpectedFingerprints());
        EXPECT_EQ(1u, other->GetInsertedFingerPrints());
    }
    none.Insert(digest);
    EXPECT_FALSE(none.Matches(digest));
    EXPECT_EQ(nullptr, none.GetBloom());
}
