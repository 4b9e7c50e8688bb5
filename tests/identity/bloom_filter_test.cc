#include <bitset>

#include <vex/bloom_filter.h>

#include "support/test.h"

namespace {

crfp_digest_t randomDigest(std::mt19937 &random) {
    crfp_digest_t digest;
    for (auto &byte : digest.bytes) byte = static_cast<unsigned char>(random());
    return digest;
}

/// The seven positions, bit by bit: 36-bit fields of a little-endian bit string, as far as the mask
/// reaches.
std::vector<unsigned long> positions(const crfp_digest_t &digest, unsigned mask_bits) {
    std::vector<unsigned long> result(7, 0);
    for (unsigned i = 0; i < 7; ++i)
        for (unsigned b = 0; b < mask_bits; ++b) {
            const unsigned bit = 36 * i + b;
            result[i] |= static_cast<unsigned long>(digest.bytes[bit / 8] >> (bit % 8) & 1) << b;
        }
    return result;
}

TEST(BloomFilter, SetsExactlyTheDigestsFieldsForEverySize) {
    static const struct {
        unsigned long size;
        unsigned mask_bits;
    } kRows[] = {{1, 3}, {2, 4}, {3, 4}, {1000, 12}, {1024, 13}, {4095, 14}, {3UL << 20, 24}, {(1UL << 32) + 1000, 12}};
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.size);
        BloomFilter filter(row.size, 0.01);
        ASSERT_EQ(static_cast<uint32_t>(row.size), filter.GetBufferSize());
        std::set<unsigned long> expected;
        for (int i = 0; i < 20; ++i) {
            const crfp_digest_t digest = randomDigest(random);
            const auto bits = positions(digest, row.mask_bits);
            bool known = true;
            for (const unsigned long bit : bits) known = known && expected.count(bit) != 0;
            EXPECT_EQ(known, filter.Matches(digest));
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
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    const crfp_digest_t digest = randomDigest(random);
    BloomFilter filter(5000, 0.25);
    filter.Insert(digest);
    const BloomFilter copy(filter);
    BloomFilter assigned(1, 0), shipped(5000, 0);
    assigned = filter;
    shipped.SetBloom(filter.GetBloom());
    shipped.SetInsertedFingerPrints(1);
    filter.Empty();
    EXPECT_FALSE(filter.Matches(digest));
    EXPECT_EQ(0u, filter.GetInsertedFingerPrints());
    EXPECT_EQ(0.0, filter.GetFalsePositiveProbability());
    for (const BloomFilter *other : {&copy, static_cast<const BloomFilter *>(&assigned)}) {
        EXPECT_TRUE(other->Matches(digest));
        EXPECT_EQ(0.25, other->GetMaxFalsePositive());
        EXPECT_EQ(5000u, other->GetExpectedFingerprints());
        EXPECT_EQ(1u, other->GetInsertedFingerPrints());
    }
    EXPECT_TRUE(shipped.Matches(digest));
    BloomFilter none(0, 0.5);
    none.Insert(digest);
    EXPECT_FALSE(none.Matches(digest));
    EXPECT_EQ(nullptr, none.GetBloom());
    EXPECT_EQ(1u, none.GetInsertedFingerPrints());
}

}  // namespace
