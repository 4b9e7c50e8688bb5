#include <openssl/crypto.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/encoding.h>
#include <vex/password.h>

#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

constexpr size_t kStackRoom = 1024;
constexpr unsigned char kKey[8] = {0x9d, 0x27, 0xe1, 0x5b, 0x84, 0x3c, 0xf6, 0x4a};

/// XORs in place with the built-in key. The result may hold zero bytes: it has a length, no
/// terminator.
void scramble(char *bytes, size_t length) {
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(static_cast<unsigned char>(bytes[i]) ^ kKey[i % sizeof kKey]);
}

}  // namespace

int PasswdEncode(const char *plain, char *dest, unsigned destLength) {
    if (plain == nullptr || dest == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const size_t length = strlen(plain);
    if (destLength < (length + 2) / 3 * 4 + 1) return VEX_FAIL(EINVAL, -1, "destination too small");
    char on_stack[kStackRoom];
    vex::UniqueMalloc<char> on_heap;
    char *copy = on_stack;
    if (length >= sizeof on_stack) {
        on_heap.reset(static_cast<char *>(malloc(length)));
        if (!on_heap) return VEX_FAIL(ENOMEM, -1, "could not allocate memory");
        copy = on_heap.get();
    }
    memcpy(copy, plain, length);
    scramble(copy, length);
    const int written = Base64Encode(copy, static_cast<unsigned>(length), dest, destLength);
    OPENSSL_cleanse(copy, length);
    return written < 0 ? VEX_FAIL(errno, -1, "failed to encode") : 0;
}

int PasswdDecode(const char *encoded, char *dest, unsigned destLength) {
    if (encoded == nullptr || dest == nullptr || destLength == 0)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const int length = Base64Decode(encoded, dest, destLength - 1);
    dest[length < 0 ? 0 : length] = '\0';
    if (length < 0) return -1;
    scramble(dest, static_cast<size_t>(length));
    return 0;
}
