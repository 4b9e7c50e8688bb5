// Creating a key store and adding keys. No single rename can replace two files, so the checksum
// file is replaced first and names both checksums, the coming one and that of the file still in
// place: whichever key file a crash leaves, it is readable.
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include <vex/io.h>
#include <vex/password.h>
#include <vex/random.h>

#include "base/directory_of.h"
#include "base/eintr.h"
#include "base/errno_guard.h"
#include "base/lock_directory.h"
#include "base/unique_fd.h"
#include "base/unique_ptr.h"
#include "crypto/key_store.h"
#include "log/report.h"

namespace vex::crypto {
namespace {

constexpr mode_t kMode = 0600;

/// Owner and mode that a replaced file passes on.
struct Access {
    uid_t uid = geteuid();
    gid_t gid = getegid();
    mode_t mode = kMode;
};

VEX_PRINTF(2, 3) void append(KeyFileText *text, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length =
        vsnprintf(text->bytes + text->size, sizeof text->bytes - text->size, format, args);
    va_end(args);
    text->size += static_cast<size_t>(length);  // the largest store fits
}

void render(const KeyStore &store, KeyFileText *text) {
    append(text, "version=1\ncount=%u\nindex=%u\n", store.count, store.index);
    for (unsigned key = 0; key < store.count; ++key)
        for (unsigned word = 0; word < kKeyWords; ++word)
            append(text, "key%u_%u=%u\n", key, word, store.keys[key][word]);
}

/// Keeps other writers out while it is open.
UniqueFd lockOut(const char *who, const char *key_file) {
    const std::string directory = directoryToLock(key_file);
    UniqueFd fd = lockDirectory(directory);
    if (!fd)
        return VEX_FAIL_AS(who, errno, errno, UniqueFd(), "could not lock directory %s: %m",
                           directory.c_str());
    return fd;
}

int writeTemporary(const char *who, const char *path, std::string_view text, const Access &access) {
    (void)::unlink(path);  // a crash may have left one; where this fails, open tells
    UniqueFd fd(
        retryOnEintr([&] { return ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode); }));
    if (!fd) return VEX_FAIL_AS(who, errno, errno, -1, "could not create %s: %m", path);
    const bool other_owner = access.uid != geteuid() || access.gid != getegid();
    if ((other_owner && ::fchown(fd.get(), access.uid, access.gid) != 0) ||
        ::fchmod(fd.get(), access.mode) != 0)
        return VEX_FAIL_AS(who, errno, errno, -1, "could not set owner and mode of %s: %m", path);
    const auto size = static_cast<ssize_t>(text.size());
    const ssize_t written = safe_write(fd.get(), text.data(), size);
    if (written < 0) return -1;
    if (written != size) return VEX_FAIL_AS(who, EIO, EIO, -1, "could not write %s: %m", path);
    if (safe_fsync(fd.get()) != 0 || fd.close() != 0)
        return VEX_FAIL_AS(who, errno, errno, -1, "could not store %s: %m", path);
    return 0;
}

/// Puts a file in the place of @p path, durably, or leaves what is there. A symbolic link is
/// followed, not replaced.
int replaceFile(const char *who, const std::string &path, std::string_view text,
                const Access &access) {
    const UniqueMalloc<char> real(::realpath(path.c_str(), nullptr));
    if (!real && errno != ENOENT)
        return VEX_FAIL_AS(who, errno, errno, -1, "could not look at %s: %m", path.c_str());
    const std::string target = real ? std::string(real.get()) : path;
    const std::string temporary = target + ".tmp", directory(directoryOf(target));
    if (writeTemporary(who, temporary.c_str(), text, access) == 0 &&
        rename_dirfsync(temporary.c_str(), target.c_str(), directory.c_str(), 0) == 0)
        return 0;
    const ErrnoGuard errno_guard;
    (void)::unlink(temporary.c_str());  // the failure has been reported
    return -1;
}

/// @p old_crc is that of the key file still in place, null where there is none.
int writeStore(const char *who, const char *key_file, const KeyStore &store, const Access &access,
               const uint32_t *old_crc) {
    KeyFileText keys, checksums;
    render(store, &keys);
    append(&checksums, "crc=%u\n", checksumOf(keys.view()));
    if (old_crc != nullptr) append(&checksums, "crc=%u\n", *old_crc);
    const std::string checksum_file = checksumFileOf(key_file);
    if (replaceFile(who, checksum_file, checksums.view(), access) != 0) return -1;
    return replaceFile(who, key_file, keys.view(), access);
}

/// Adds a random key and makes it the current one.
int addKey(KeyStore *store) {
    if (RandomGetBytes(store->keys[store->count], sizeof store->keys[0]) != 0) return -1;
    store->index = store->count++;
    return 0;
}

/// Removes the checksum file of a store whose key file did not come to be, however the scope ends.
struct UnlessCreated {
    const char *key_file;
    std::string checksum_file = checksumFileOf(key_file);
    ~UnlessCreated() {
        const ErrnoGuard errno_guard;
        struct stat status {};
        if (::lstat(key_file, &status) != 0 && errno == ENOENT)
            (void)::unlink(checksum_file.c_str());  // the failure has been reported
    }
};

int initStore(const char *who, const char *key_file) {
    const UniqueFd lock = lockOut(who, key_file);
    if (!lock) return -1;
    struct stat status {};
    if (::lstat(key_file, &status) == 0) errno = EEXIST;
    if (errno != ENOENT)
        return VEX_FAIL_AS(who, errno, errno, -1, "will not create %s: %m", key_file);
    const UnlessCreated cleanup{key_file};
    KeyStore store;
    if (addKey(&store) != 0) return -1;
    return writeStore(who, key_file, store, Access(), nullptr);
}

int rotateStore(const char *who, const char *key_file) {
    const UniqueFd lock = lockOut(who, key_file);
    if (!lock) return -1;
    KeyStore store;
    uint32_t crc = 0;
    if (const int code = readKeyStore(key_file, &store, &crc); code != 0) return code;
    if (store.count >= VEX_KEY_STORE_MOST_KEYS)
        return VEX_FAIL_AS(who, ENOSPC, ENOSPC, -1, "%s holds %u keys, no more can be added",
                           key_file, store.count);
    struct stat status {};
    if (::stat(key_file, &status) != 0)
        return VEX_FAIL_AS(who, errno, errno, -1, "could not look at %s: %m", key_file);
    if (addKey(&store) != 0) return -1;
    const Access access{status.st_uid, status.st_gid, status.st_mode & 0777};
    return writeStore(who, key_file, store, access, &crc);
}

}  // namespace
}  // namespace vex::crypto

int PasswdKeyStoreInit(const char *keyFile) {
    if (keyFile == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1,
                      [=] { return vex::crypto::initStore("PasswdKeyStoreInit", keyFile); });
}

int PasswdKeyStoreRotate(const char *keyFile) {
    if (keyFile == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1,
                      [=] { return vex::crypto::rotateStore("PasswdKeyStoreRotate", keyFile); });
}
