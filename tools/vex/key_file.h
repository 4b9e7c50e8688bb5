// Key files: 32 bytes, as 64 hexadecimal digits or raw.
#ifndef VEX_TOOL_KEY_FILE_H
#define VEX_TOOL_KEY_FILE_H

#include <vex/cipher.h>

namespace tool {

/// Reads a key; false when that was reported. The caller wipes it (WipedKey).
bool readKeyFile(const char *path, VexKey *key);

/// A key that does not outlive its scope in memory.
struct WipedKey {
    WipedKey() = default;
    WipedKey(const WipedKey &) = delete;
    WipedKey &operator=(const WipedKey &) = delete;
    ~WipedKey();

    VexKey key;
};

}  // namespace tool

#endif
