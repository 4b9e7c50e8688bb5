#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/cipher.h>
#include <vex/log.h>
#include <vex/random.h>

static_assert(sizeof(VexKey) == VEX_KEY_SIZE + 1, "callers pass a key's address as text");

namespace {

[[noreturn]] void giveUp() {
    vexLog(EIO, VEX_LOG_CRIT, "%s: no random bytes for a new key", "Assign");
    std::abort();
}

}  // namespace

VexKey::VexKey() {
    AssignZero();
}

VexKey::VexKey(const void *source) {
    Assign(source);
}

const VexKey &VexKey::Zero() {
    static const VexKey zero;
    return zero;
}

void VexKey::AssignZero() {
    std::memset(key_, 0, sizeof key_);
    terminator_ = 0;
}

void VexKey::Assign(const void *source) {
    terminator_ = 0;
    if (source != nullptr) {
        std::memcpy(key_, source, sizeof key_);
        return;
    }
    if (RandomGetBytes(key_, sizeof key_) != 0) giveUp();
    for (auto &byte : key_) {
        if (byte != 0) continue;
        errno = 0;
        byte = static_cast<unsigned char>(RandomRange(1, 255));
        if (errno == EIO) giveUp();
    }
}

VexKey &VexKey::NewKey(const void *source) {
    Assign(source);
    return *this;
}

bool VexKey::CopyToBuffer(void *buffer, size_t size) const {
    if (size < sizeof *this) return false;
    std::memcpy(buffer, key_, sizeof key_);
    static_cast<unsigned char *>(buffer)[sizeof key_] = 0;
    return true;
}

int VexKey::Compare(const void *other) const {
    return std::memcmp(key_, other, sizeof key_);
}
