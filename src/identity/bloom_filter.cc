#include <immintrin.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include <vex/bloom_filter.h>

#include "base/endian.h"

namespace {

constexpr unsigned kPositions = 7;
constexpr unsigned kFieldBits = 36;  // position i is cut out of the digest at bit 36 * i
constexpr size_t kHugePage = 2U << 20;

/// A bitmap of undefined content. Probes hit it at random, so that large ones ask for huge pages:
/// with small ones nearly every probe would miss the address translation cache as well.
unsigned char *allocateBitmap(size_t size) {
    if (size == 0) return nullptr;
    void *memory;
    if (size < kHugePage) {
        memory = malloc(size);
    } else {
        memory = aligned_alloc(kHugePage, (size + kHugePage - 1) / kHugePage * kHugePage);
        if (memory != nullptr)
            (void)madvise(memory, size, MADV_HUGEPAGE);  // a wish; slower without
    }
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<unsigned char *>(memory);
}

uint64_t countBits(const unsigned char *bytes, size_t size) {
    uint64_t bits = 0;
    size_t i = 0;
    for (; i + 8 <= size; i += 8)
        bits += static_cast<uint64_t>(std::popcount(vex::loadLittle64(bytes + i)));
    for (; i < size; ++i) bits += static_cast<uint64_t>(std::popcount(bytes[i]));
    return bits;
}

/// countBits with the instruction that not every x86-64 has; four sums, so that they do not wait
/// for one another.
__attribute__((target("popcnt"))) uint64_t countBitsFast(const unsigned char *bytes, size_t size) {
    uint64_t sums[4] = {};
    size_t i = 0;
    for (; i + 32 <= size; i += 32)
        for (size_t lane = 0; lane < 4; ++lane)
            sums[lane] +=
                static_cast<uint64_t>(_mm_popcnt_u64(vex::loadLittle64(bytes + i + 8 * lane)));
    return sums[0] + sums[1] + sums[2] + sums[3] + countBits(bytes + i, size - i);
}

}  // namespace

// inline, or the shared library would call them through its symbol table for every probe

inline void BloomFilter::initHashMask() {
    // the largest power of two that the bits hold, minus 1
    hash_mask_ = bitmap_size_ <= 8 ? 7 : std::bit_floor(bitmap_size_) - 1;
}

// The mask keeps every position inside the bitmap.
inline unsigned long BloomFilter::_calcHash(const crfp_digest_t &digest, unsigned int index) const {
    const unsigned bit = kFieldBits * index;
    return vex::loadLittle64(digest.bytes + bit / 8) >> (bit % 8) & hash_mask_;
}

inline void BloomFilter::_insert(unsigned long position) {
    bitmap_[position / 8] =
        static_cast<unsigned char>(bitmap_[position / 8] | 1U << (position % 8));
}

inline bool BloomFilter::_matches(unsigned long position) const {
    return (bitmap_[position / 8] >> (position % 8) & 1) != 0;
}

BloomFilter::BloomFilter(unsigned long size, double maxFalsePositive)
    : expected_fingerprints_(size),
      max_false_positive_(maxFalsePositive),
      buffer_size_(static_cast<uint32_t>(size)),
      bitmap_size_(buffer_size_ * 8),
      hash_function_count_(kPositions),
      bitmap_(allocateBitmap(buffer_size_)),
      inserted_fingerprints_(0),
      hash_mask_(0) {
    Empty();
    initHashMask();
}

BloomFilter::BloomFilter(const BloomFilter &other)
    : expected_fingerprints_(other.expected_fingerprints_),
      max_false_positive_(other.max_false_positive_),
      buffer_size_(other.buffer_size_),
      bitmap_size_(other.bitmap_size_),
      hash_function_count_(other.hash_function_count_),
      bitmap_(allocateBitmap(other.buffer_size_)),
      inserted_fingerprints_(other.inserted_fingerprints_),
      hash_mask_(other.hash_mask_) {
    SetBloom(other.bitmap_);
}

BloomFilter &BloomFilter::operator=(const BloomFilter &other) {
    if (this == &other) return *this;
    BloomFilter copy(other);
    expected_fingerprints_ = copy.expected_fingerprints_;
    max_false_positive_ = copy.max_false_positive_;
    buffer_size_ = copy.buffer_size_;
    bitmap_size_ = copy.bitmap_size_;
    hash_function_count_ = copy.hash_function_count_;
    std::swap(bitmap_, copy.bitmap_);
    inserted_fingerprints_ = copy.inserted_fingerprints_;
    hash_mask_ = copy.hash_mask_;
    return *this;
}

BloomFilter::~BloomFilter() {
    free(bitmap_);
}

void BloomFilter::Init() {
    unsigned char *const fresh = allocateBitmap(bitmap_size_ / 8);
    free(bitmap_);
    bitmap_ = fresh;
}

void BloomFilter::Insert(const crfp_digest_t &digest) {
    ++inserted_fingerprints_;
    if (bitmap_ == nullptr) return;
    for (unsigned i = 0; i < kPositions; ++i) _insert(_calcHash(digest, i));
}

bool BloomFilter::Matches(const crfp_digest_t &digest) const {
    if (bitmap_ == nullptr) return false;
    // No early end: without branches the probes wait for memory together instead of one after the
    // other.
    bool all = true;
    for (unsigned i = 0; i < kPositions; ++i) all &= _matches(_calcHash(digest, i));
    return all;
}

void BloomFilter::Empty() {
    if (bitmap_ != nullptr) memset(bitmap_, 0, buffer_size_);
    inserted_fingerprints_ = 0;
}

unsigned char *BloomFilter::GetBloom() const {
    return bitmap_;
}

void BloomFilter::SetBloom(const unsigned char *bitmap) const {
    if (bitmap_ != nullptr && bitmap != nullptr) memcpy(bitmap_, bitmap, buffer_size_);
}

unsigned long BloomFilter::GetExpectedFingerprints() const {
    return expected_fingerprints_;
}
double BloomFilter::GetMaxFalsePositive() const {
    return max_false_positive_;
}
unsigned long BloomFilter::GetBitmapSize() const {
    return bitmap_size_;
}
unsigned long BloomFilter::GetBufferSize() const {
    return buffer_size_;
}
unsigned int BloomFilter::GetHashFunctionCount() const {
    return hash_function_count_;
}
unsigned long BloomFilter::GetInsertedFingerPrints() const {
    return inserted_fingerprints_;
}
void BloomFilter::SetInsertedFingerPrints(unsigned long count) {
    inserted_fingerprints_ = count;
}

double BloomFilter::GetFalsePositiveProbability() const {
    if (bitmap_size_ == 0) return 0;
    const double bits = static_cast<double>(bitmap_size_), positions = hash_function_count_;
    const double clear =
        std::pow(1 - 1 / bits, positions * static_cast<double>(inserted_fingerprints_));
    return std::pow(1 - clear, positions);
}

unsigned long BloomFilter::GetBitsSet() const {
    if (bitmap_ == nullptr) return 0;
    return __builtin_cpu_supports("popcnt") != 0 ? countBitsFast(bitmap_, buffer_size_)
                                                 : countBits(bitmap_, buffer_size_);
}
