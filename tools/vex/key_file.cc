#include "key_file.h"

#include <fcntl.h>
#include <openssl/crypto.h>

#include <cerrno>
#include <cstring>

#include "base/eintr.h"
#include "base/unique_fd.h"
#include "command.h"

namespace tool {
namespace {

constexpr ssize_t kDigits = 2 * VEX_KEY_SIZE;

/// The key in a file's content, which ends in a NUL; false when it has neither form.
bool decode(char *content, ssize_t size, unsigned char *bytes) {
    if (size == VEX_KEY_SIZE) {
        std::memcpy(bytes, content, VEX_KEY_SIZE);
        return true;
    }
    if (size > kDigits && content[size - 1] == '\n') --size;
    if (size > kDigits && content[size - 1] == '\r') --size;
    content[size] = '\0';
    return size == kDigits && HexDecode(content, bytes, VEX_KEY_SIZE) == VEX_KEY_SIZE;
}

}  // namespace

WipedKey::~WipedKey() {
    OPENSSL_cleanse(&key, sizeof key);
}

bool readKeyFile(const char *path, VexKey *key) {
    const vex::UniqueFd fd(vex::retryOnEintr([&] { return open(path, O_RDONLY | O_CLOEXEC); }));
    // one byte more than the longest form has, and a terminator
    char content[kDigits + 4];
    const ssize_t size = fd ? safe_read(fd.get(), content, sizeof content - 1) : -1;
    if (size < 0) {
        fail("%s: the key file cannot be read: %m; name one that \"vex keygen\" made", path);
        return false;
    }
    unsigned char bytes[VEX_KEY_SIZE];
    const bool good = decode(content, size, bytes);
    if (good) {
        key->Assign(bytes);
    } else {
        fail(
            "%s: not a key file: it must hold 64 hexadecimal digits or exactly 32 bytes; "
            "\"vex keygen\" makes one",
            path);
    }
    OPENSSL_cleanse(content, sizeof content);
    OPENSSL_cleanse(bytes, sizeof bytes);
    return good;
}

}  // namespace tool
