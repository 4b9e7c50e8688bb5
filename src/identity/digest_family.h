// What the two digest families have in common, and in what they differ.
#ifndef VEX_IDENTITY_DIGEST_FAMILY_H
#define VEX_IDENTITY_DIGEST_FAMILY_H

#include <cstddef>

#include <vex/digest.h>

namespace vex::identity {

struct Md5 {
    using Context = MD5Context;
    static constexpr size_t kSize = 16;
    static constexpr size_t kTextSize = 2 * kSize;
    static constexpr const char *kName = "md5";
    static constexpr const char *kEmptyText = "d41d8cd98f00b204e9800998ecf8427e";
    static constexpr bool kQuotesInput = false;  // in the message about a bad digit
};

struct Sha256 {
    using Context = SHA256Context;
    static constexpr size_t kSize = 32;
    static constexpr size_t kTextSize = 2 * kSize;
    static constexpr const char *kName = "sha256";
    static constexpr const char *kEmptyText =
        "c672b8d1ef56ed28ab87c3622c5114069bdd3ad7b8f9737498d0c01ecef0967a";
    static constexpr bool kQuotesInput = true;
};

}  // namespace vex::identity

#endif
