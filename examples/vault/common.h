// What every part of vault uses: failures, descriptors, fingerprints, values in bytes, progress.
#ifndef VAULT_COMMON_H
#define VAULT_COMMON_H

#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vex/vex.h>

namespace vault {

using Digest = std::array<unsigned char, 32>;  ///< a SHA-512/256 fingerprint
using Bytes = std::vector<unsigned char>;
using U64 = unsigned long long;  ///< as printf takes it

/// Ends a command. Its log line, which standard error shows too, was written where it was thrown.
struct Failure : std::exception {};

/// Unless the condition holds, logs one line, in which "%m" prints errno, and throws.
[[gnu::format(printf, 2, 3)]] inline void check(bool good, const char *format, ...) {
    if (good) return;
    char text[3 * PATH_MAX];  // two paths and words
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    ErrorA(-1, "%s", text);
    throw Failure();
}

/// The same for what the library has reported already.
inline void done(bool good) {
    if (!good) throw Failure();
}

/// Runs a piece of work; false when it failed.
template <typename Work>
bool succeeds(Work work) {
    try {
        return work(), true;
    } catch (const Failure &) {
        return false;
    } catch (const std::exception &problem) {  // memory, threads
        ErrorA(-1, "%s", problem.what());
        return false;
    }
}

/// Base of what owns something, and so must not be copied.
struct Unique {
    Unique() = default;
    Unique(const Unique &) = delete;
    Unique &operator=(const Unique &) = delete;
};

/// A descriptor that is closed at the end of its scope.
struct Fd : Unique {
    explicit Fd(int number) : fd(number) {}
    ~Fd() { close(fd); }
    int fd;
};

inline Digest fingerprint(const void *data, size_t size) {
    SHA256Context context;
    SHA256Initialize(&context);
    SHA256Append(&context, data, static_cast<uint32_t>(size));
    SHA256Finalize(&context);
    Digest digest;
    std::copy_n(context.digest, digest.size(), digest.begin());
    return digest;
}

inline std::string toText(const Digest &digest) {
    char text[65];
    return SHA256DigestToString_r(digest.data(), text, sizeof text);
}

/// "1.5 MiB"
inline std::string sizeText(uint64_t bytes) {
    char text[32];
    return sizetofloatstr(text, sizeof text, bytes, 1);
}

inline std::string parentOf(const std::string &path) {
    return std::filesystem::path(path).parent_path();
}

/// Writes a new file of mode 0600 and waits until its content is on the disk; its name lasts once
/// the directory is synced. A failure leaves none.
inline void writeNewFile(const std::string &path, const void *data, size_t size) {
    const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    const auto count = static_cast<ssize_t>(size);
    const bool whole =
        file.fd >= 0 && safe_write(file.fd, data, count) == count && safe_fsync(file.fd) == 0;
    if (file.fd >= 0 && !whole) unlink(path.c_str());
    check(whole, "%s cannot be written: %m", path.c_str());
}

// Append a value, numbers big-endian.

inline void put32(Bytes *bytes, uint32_t value) {
    bytes->resize(bytes->size() + sizeof value);
    VexUint32Serialize(&*bytes->end() - sizeof value, sizeof value, value, true);
}

inline void put64(Bytes *bytes, uint64_t value) {
    bytes->resize(bytes->size() + sizeof value);
    VexUint64Serialize(&*bytes->end() - sizeof value, sizeof value, value, true);
}

inline void putDigest(Bytes *bytes, const Digest &digest) {
    bytes->insert(bytes->end(), digest.begin(), digest.end());
}

inline void putText(Bytes *bytes, const std::string &text) {
    put32(bytes, static_cast<uint32_t>(text.size()));
    bytes->insert(bytes->end(), text.begin(), text.end());
}

/// Takes values off again; fails where the bytes end too early.
struct Cursor {
    const unsigned char *next = nullptr;
    size_t left = 0;

    const unsigned char *take(size_t size) {
        check(size <= left, "a list or container is cut short");
        left -= size;
        return std::exchange(next, next + size);
    }
    uint32_t take32() {
        uint32_t value = 0;
        VexUint32InitDeserialize(&value, take(sizeof value), sizeof value, true, nullptr);
        return value;
    }
    uint64_t take64() {
        uint64_t value = 0;
        VexUint64InitDeserialize(&value, take(sizeof value), sizeof value, true, nullptr);
        return value;
    }
    Digest takeDigest() {
        Digest digest;
        std::copy_n(take(digest.size()), digest.size(), digest.begin());
        return digest;
    }
    std::string takeText() {
        const size_t size = take32();
        const unsigned char *const bytes = take(size);
        return {bytes, bytes + size};
    }
};

/// One line on a terminal that tells how far a command is; nothing elsewhere.
struct Progress : Unique {
    explicit Progress(const char *what) : verb(what) {}
    ~Progress() {
        if (shown != 0) fputs("\r\033[K", stderr);
    }

    void add(uint64_t more_files, uint64_t more_bytes) {
        static const bool terminal = isatty(STDERR_FILENO) == 1;
        constexpr uint64_t kInterval = 200000;  // microseconds between two looks of the line
        files += more_files;
        bytes += more_bytes;
        if (!terminal || gethrtime() < std::max(start, shown) + kInterval) return;
        shown = gethrtime();
        fprintf(stderr, "\r\033[K%s %llu files, %s, %.0f MB/s", verb, static_cast<U64>(files),
                sizeText(bytes).c_str(), megabytesPerSecond());
    }
    double megabytesPerSecond() const {
        return static_cast<double>(bytes) / static_cast<double>(gethrtime() - start + 1);
    }

    const char *verb;
    uint64_t start = gethrtime(), shown = 0, files = 0, bytes = 0;
};

}  // namespace vault

#endif
