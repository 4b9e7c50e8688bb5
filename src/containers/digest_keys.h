// Records that begin with a digest, hashed and compared in place: a tree whose caller gave
// VexHashTreeHashDigest and VexHashTreeCompareDigest does not call them.
#ifndef VEX_CONTAINERS_DIGEST_KEYS_H
#define VEX_CONTAINERS_DIGEST_KEYS_H

#include <emmintrin.h>

#include "containers/tree_node.h"

namespace vex::tree {

/// Both digests may lie at any address.
inline bool areEqualDigests(const void *a, const void *b) {
    const auto half = [](const void *digest, int index) {
        return _mm_loadu_si128(static_cast<const __m128i *>(digest) + index);
    };
    const __m128i same = _mm_and_si128(_mm_cmpeq_epi8(half(a, 0), half(b, 0)),
                                       _mm_cmpeq_epi8(half(a, 1), half(b, 1)));
    return _mm_movemask_epi8(same) == 0xffff;
}

/// As memcmp, but -1, 0 or 1.
inline int compareDigests(const void *a, const void *b) {
    if (areEqualDigests(a, b)) return 0;
    // not auto, which would forget that a Word may lie at any address
    const Word *x = static_cast<const Word *>(a), *y = static_cast<const Word *>(b);
    for (; *x == *y; ++x, ++y) {
    }  // mostly the first words differ
    return __builtin_bswap64(*x) < __builtin_bswap64(*y) ? -1 : 1;
}

/// For trees whose mask is not 0.
struct DigestKeys {
    explicit DigestKeys(const VexHashTree *tree) : mask(tree->digestMask) {}
    uint64_t mask;
    uint64_t bucket(uint64_t hash) const { return hash & mask; }
    /// Not the word that comparisons look at first: it is the same in much of a bucket.
    static uint64_t hash(const void *data) { return static_cast<const Word *>(data)[1]; }
    int operator()(Node *node, const void *key) const { return compareDigests(dataOf(node), key); }
    /// Copies the record out, when the caller wants it. Its digest is the key's, which is in
    /// registers already.
    void give(const VexHashTree *tree, Node *node, const void *key, void *out) const {
        if (out == nullptr) return;
        const Wide *const digest = static_cast<const Wide *>(key);  // not auto, as above
        const Wide low = digest[0];  // both before @p out is written, which may be the key
        const Wide high = digest[1];
        static_cast<Wide *>(out)[0] = low;
        static_cast<Wide *>(out)[1] = high;
        const char *const record = static_cast<const char *>(dataOf(node));
        const size_t size = tree->nodeDataSize;
        if (size <= 48)
            copyWide(out, record, size - 16);
        else
            copyRecord(static_cast<char *>(out) + VexHashTreeDigestSize,
                       record + VexHashTreeDigestSize, size - VexHashTreeDigestSize);
    }
};

}  // namespace vex::tree

#endif
