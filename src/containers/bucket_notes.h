// A byte for each bucket, in one block before the bucket pointers. An eighth of their size and
// dense, the bytes stay in cache where neither pointers nor nodes do, and answer most look-ups of
// absent keys and most questions whether a bucket is empty.
//
// Each node of the bucket has set two of the eight bits, which bits 27 to 31 of its hash choose: a
// key is absent unless both are set. Two bits pass fewer absent keys than one as long as a bucket
// holds one or two records. Bits stay set until the bucket is empty: one too many costs a look-up
// time, never its result.
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

/// The bits that a record sets, by the highest byte of its hash's low 32 bits: a table, because two
/// shifts by variable counts cost more, and by a whole byte, because a look-up by digest then reads
/// the index from the key.
inline constexpr auto kPairs = [] {
    std::array<Note, 256> pairs{};
    for (unsigned byte = 0; byte < pairs.size(); ++byte) {
        const unsigned apart = byte >> 6, first = byte >> 3 & 7;
        pairs[byte] = std::rotl(static_cast<Note>(1U | 2U << apart), static_cast<int>(first));
    }
    return pairs;
}();
inline Note noteBits(uint64_t hash) {
    return kPairs[hash >> 24 & 0xff];
}
/// The note of a bucket: the last is that of bucket 0, so that no look-up needs their number.
inline Note *noteOf(VexHashTreeNode **buckets, uint64_t bucket) {
    return reinterpret_cast<Note *>(buckets) + ~bucket;
}

}  // namespace vex::tree

#endif
