// Finds a name among the sections of a file or the keys of a section, whatever the case of its
// ASCII letters.
#ifndef VEX_CONFIG_NAME_INDEX_H
#define VEX_CONFIG_NAME_INDEX_H

#include <cstdint>
#include <string_view>

#include "config/ini_memory.h"

namespace vex::config {

/// Equal for names that differ only in the case of ASCII letters. The seed is the process's own, so
/// that nobody can write a file whose keys all collide.
uint32_t nameHash(std::string_view name);

/// True when both names are the same but for the case of ASCII letters.
bool sameName(std::string_view a, std::string_view b);

/// An open-addressing table from a name's hash to its position in a sequence that only grows.
/// Nothing is ever taken out, since deleted sections and keys keep their place. Eight bytes a cell:
/// large files are searched at the speed of the memory.
class NameIndex {
public:
    static constexpr uint32_t kNone = UINT32_MAX;

    /// The position for which @p matches(position) holds among those with that hash, or kNone.
    template <typename Matches>
    uint32_t find(uint32_t hash, Matches matches) const {
        if (cells_.empty()) return kNone;
        for (size_t at = hash & (cells_.size() - 1);; at = (at + 1) & (cells_.size() - 1)) {
            const Cell &cell = cells_[at];
            if (cell.position == kNone) return kNone;
            if (cell.hash == hash && matches(cell.position)) return cell.position;
        }
    }
    /// Lets the name at @p before be found at @p after from now on.
    void replace(uint32_t hash, uint32_t before, uint32_t after);
    /// Adds a position that find did not know; throws OutOfMemory and is then as before.
    void add(uint32_t hash, uint32_t position);

private:
    struct Cell {
        uint32_t hash = 0;
        uint32_t position = kNone;
    };
    static void place(Vector<Cell> &cells, Cell cell);
    Vector<Cell> cells_;  // a power of two, at most three quarters full
    size_t used_ = 0;
};

}  // namespace vex::config

#endif
