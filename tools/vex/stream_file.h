// Crypt streams from file to file, in constant memory and of any length.
#ifndef VEX_TOOL_STREAM_FILE_H
#define VEX_TOOL_STREAM_FILE_H

#include <cstdint>

#include <vex/cipher.h>

namespace tool {

class InputFile;
class OutputFile;

/// The most window bits for which a writer's memory stays small; the format allows 31.
inline constexpr uint16_t kLeastWindowBits = 12, kMostWindowBits = 22, kDefaultWindowBits = 17;

/// The type of a cipher by its name, "aes-256-ctr", or -1.
int cipherByName(const char *name);

struct SealSettings {
    unsigned long flags = 0;   ///< of dcpEncryptInit
    unsigned char cipher = 0;  ///< VEX_CIPHER_...
    uint16_t level = 0;        ///< 0 for the default
    uint16_t window_bits = 0;  ///< 0 for the default
};

/// Both report a failure and return false then; committing the output is left to the caller.
bool sealFile(InputFile *in, OutputFile *out, const VexKey &key, const SealSettings &settings);
/// @p key may be NULL, which serves for streams that are not encrypted.
bool openFile(InputFile *in, OutputFile *out, const VexKey *key, unsigned char cipher);

}  // namespace tool

#endif
