#ifndef VAULT_CHUNKER_H
#define VAULT_CHUNKER_H

#include "common.h"

namespace vault {

/// Cuts data at places that the data itself decides: behind an insertion the chunks are the same as
/// before. A gear hash runs over the bytes; a chunk ends where it falls below a limit, which is
/// stricter before the average size and looser behind it, so that sizes stay close.
class Chunker {
public:
    /// @param average  bytes of a chunk on average, a power of two.
    explicit Chunker(size_t average)
        : average_(average), strict_(UINT64_MAX / average / 4), loose_(UINT64_MAX / average * 4) {
        // any fixed random table serves; this one needs no page of numbers
        for (size_t i = 0; i < gear_.size(); ++i) {
            const auto byte = static_cast<unsigned char>(i);
            memcpy(&gear_[i], fingerprint(&byte, 1).data(), sizeof gear_[i]);
        }
    }

    /// Bytes that cut() must see, unless the data ends before.
    size_t most() const { return 4 * average_; }

    /// The length of the first chunk of @p data; all of it when it is shorter than a chunk.
    size_t cut(const unsigned char *data, size_t size) const {
        const size_t least = average_ / 4;
        if (size <= least) return size;
        const size_t end = std::min(size, most()), middle = std::min(end, average_);
        uint64_t hash = 0;  // its high bits depend on the last 64 bytes
        size_t i = least - 64;
        for (; i < least; ++i) hash = (hash << 1) + gear_[data[i]];
        for (; i < middle; ++i)
            if ((hash = (hash << 1) + gear_[data[i]]) < strict_) return i + 1;
        for (; i < end; ++i)
            if ((hash = (hash << 1) + gear_[data[i]]) < loose_) return i + 1;
        return end;
    }

private:
    size_t average_;
    uint64_t strict_, loose_;
    std::array<uint64_t, 256> gear_;
};

}  // namespace vault

#endif
