#ifndef VEX_CRYPTO_BLOWFISH_TABLES_H
#define VEX_CRYPTO_BLOWFISH_TABLES_H

#include <cstdint>

namespace vex::crypto {

extern const uint32_t kPiP[18];
extern const uint32_t kPiS[4][256];

}  // namespace vex::crypto

#endif
