// Many Blowfish blocks whose inputs are all known: several are in flight at once.
#ifndef VEX_CRYPTO_BLOWFISH_BULK_H
#define VEX_CRYPTO_BLOWFISH_BULK_H

#include <cstddef>

#include <vex/blowfish.h>

namespace vex::crypto {

/// All take @p blocks whole blocks; in and out are equal or do not overlap.
void blowfishEncryptBulk(const BlowfishContext &state, const unsigned char *in, unsigned char *out,
                         size_t blocks);
void blowfishDecryptBulk(const BlowfishContext &state, const unsigned char *in, unsigned char *out,
                         size_t blocks);
/// Deciphers a chain and moves the state's CBC vector on.
void blowfishDecryptChain(BlowfishContext *state, const unsigned char *in, unsigned char *out,
                          size_t blocks);

}  // namespace vex::crypto

#endif
