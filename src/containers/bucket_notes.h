// A byte for each bucket, in one block before the bucket pointers. An eighth of their size and
// dense, the bytes stay in cache where neither pointers nor nodes do, and answer most look-ups of
// absent keys and most questions whether a bucket is empty.
//
// Each node of the bucket has set two of the eight bits, which five bits of its hash above those
// that picked the bucket choose: a key is absent unless both are set. Two bits pass fewer absent
// keys than one as long as a bucket holds one or two records. Bits stay set until the bucket is
// empty: one too many costs a look-up time, never its result.
#ifndef VEX_CONTAINERS_BUCKET_NOTES_H
#define VEX_CONTAINERS_BUCKET_NOTES_H

#include <array>
#include <bit>
#include <cstdint>

#include <vex/hash_tree.h>

namespace vex::tree {

using Note = uint8_t;

/// Smaller tables lie in the caches as they are. Their notes never rule a record out, so that the
/// comparison alone decides and only the bits that pick a bucket count of a hash.
inline constexpr uint32_t kLeastNotedBits = 12;

/// The note of an empty bucket.
inline Note emptyNote(uint32_t bits) {
    return bits >= kLeastNotedBits ? Note{0} : Note{0xff};
}

/// A table, because shifting by a variable count would cost a look-up more than all of the rest.
inline constexpr auto kPairs = [] {
    std::array<Note, 32> pairs{};
    for (unsigned i = 0; i < pairs.size(); ++i)
        pairs[i] = std::rotl(static_cast<Note>(1U | 2U << (i >> 3)), static_cast<int>(i & 7));
    return pairs;
}();
/// The bits of records with this hash, from its low 32 bits.
inline Note noteBits(uint64_t hash, uint32_t bits) {
    return kPairs[static_cast<uint32_t>(hash) >> bits & 31];
}
/// The note of a bucket: the last is that of bucket 0, so that no look-up needs their number.
inline Note *noteOf(VexHashTreeNode **buckets, uint64_t bucket) {
    return reinterpret_cast<Note *>(buckets) + ~bucket;
}

}  // namespace vex::tree

#endif
