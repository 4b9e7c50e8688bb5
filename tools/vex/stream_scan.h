// What can be told of a sealed file without its key: its header, its blocks and its trailer.
#ifndef VEX_TOOL_STREAM_SCAN_H
#define VEX_TOOL_STREAM_SCAN_H

#include <cstdint>

namespace tool {

struct StreamScan {
    /// How far the file is what it should be.
    enum class State {
        kUnreadable,  ///< error tells why
        kEmpty,
        kForeign,  ///< does not begin with a magic header
        kOther,    ///< a magic header of something else than a crypt stream
        kDamaged,  ///< see damage and damage_offset
        kComplete,
    };

    State state = State::kUnreadable;
    int error = 0;      ///< errno
    uint64_t size = 0;  ///< of the file
    int magic = 0;      ///< result of the magic header's reader
    uint64_t window = 0;
    static constexpr int kUnknownPrefix = -1;
    int prefix = 0;  ///< bytes between the magic header and the first block
    uint64_t blocks = 0, payload = 0, padding = 0;
    uint32_t least_payload = 0, most_payload = 0;
    bool has_total = false;
    uint64_t total = 0;  ///< bytes of data, as the trailer tells them
    const char *damage = nullptr;
    uint64_t damage_offset = 0;

    bool encrypted() const;
    bool compressed() const;
};

/// Reads the headers of a regular file and seeks over all else.
StreamScan scanStream(int fd);

}  // namespace tool

#endif
