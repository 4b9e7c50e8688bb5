#include "config/name_index.h"

#include <sys/auxv.h>

#include <cstring>

namespace vex::config {
namespace {

constexpr uint64_t kOnes = 0x0101010101010101u;

/// Lower-cases the ASCII letters of eight bytes at once: the sums carry into a byte's top bit when
/// the byte is at least 'A' or above 'Z', and the two differ for capital letters only.
constexpr uint64_t lowerEight(uint64_t bytes) {
    const uint64_t seven_bits = bytes & (0x7f * kOnes);
    const uint64_t above = seven_bits + (0x7f - 'Z') * kOnes;
    const uint64_t reached = seven_bits + (0x80 - 'A') * kOnes;
    const uint64_t capitals = ~bytes & (above ^ reached) & (0x80 * kOnes);
    return bytes | (capitals >> 2);
}
static_assert(lowerEight(0x5b5a41407b7a61c1u) == 0x5b7a61407b7a61c1u);

uint64_t loadEight(const char *from) {
    uint64_t word = 0;
    std::memcpy(&word, from, sizeof word);
    return word;
}

/// Up to seven bytes in one word, without reading beyond them.
uint64_t loadTail(const char *from, size_t n) {
    uint64_t word = 0;
    for (size_t i = 0; i < n; ++i)
        word |= static_cast<uint64_t>(static_cast<unsigned char>(from[i])) << (8 * i);
    return word;
}

uint64_t mix(uint64_t a, uint64_t b) {
    const auto product = static_cast<unsigned __int128>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t processSeed() {
    // the kernel hands every process 16 random bytes
    static const uint64_t seed = [] {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel passes addresses in integers
        const auto *bytes = reinterpret_cast<const char *>(getauxval(AT_RANDOM));
        return bytes != nullptr ? loadEight(bytes) : kOnes;
    }();
    return seed;
}

constexpr uint64_t kMultiplier = 0x9e3779b97f4a7c15u;

}  // namespace

uint32_t nameHash(std::string_view name) {
    uint64_t hash = processSeed() ^ (name.size() * kMultiplier);
    const char *p = name.data();
    size_t left = name.size();
    for (; left > 8; p += 8, left -= 8) hash = mix(hash ^ lowerEight(loadEight(p)), kMultiplier);
    if (left > 0) {
        // a long name's last eight bytes overlap those before: one load instead of a byte loop
        const uint64_t tail = name.size() >= 8 ? loadEight(p + left - 8) : loadTail(p, left);
        hash = mix(hash ^ lowerEight(tail), kMultiplier);
    }
    return static_cast<uint32_t>(hash ^ (hash >> 32));
}

bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    if (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0) return true;
    size_t at = 0;
    for (; at + 8 <= a.size(); at += 8)
        if (lowerEight(loadEight(a.data() + at)) != lowerEight(loadEight(b.data() + at)))
            return false;
    const size_t left = a.size() - at;
    return lowerEight(loadTail(a.data() + at, left)) == lowerEight(loadTail(b.data() + at, left));
}

void NameIndex::place(Vector<Cell> &cells, Cell cell) {
    size_t at = cell.hash & (cells.size() - 1);
    while (cells[at].position != kNone) at = (at + 1) & (cells.size() - 1);
    cells[at] = cell;
}

void NameIndex::replace(uint32_t hash, uint32_t before, uint32_t after) {
    size_t at = hash & (cells_.size() - 1);
    while (cells_[at].position != before) at = (at + 1) & (cells_.size() - 1);
    cells_[at].position = after;
}

void NameIndex::add(uint32_t hash, uint32_t position) {
    if (4 * (used_ + 1) > 3 * cells_.size()) {
        Vector<Cell> larger(cells_.empty() ? 16 : cells_.size() * 2);
        for (const Cell &cell : cells_)
            if (cell.position != kNone) place(larger, cell);
        cells_.swap(larger);
    }
    place(cells_, {hash, position});
    ++used_;
}

}  // namespace vex::config
