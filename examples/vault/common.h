// What every file of the vault uses: failures, fingerprints, and sealed files. All that the vault
// keeps about other people's data is a crypt stream, which "vex open" could open as well.
#ifndef VAULT_COMMON_H
#define VAULT_COMMON_H

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <vex/vex.h>

namespace vault {

using Digest = std::array<unsigned char, 32>;  ///< a SHA-512/256 fingerprint
using Bytes = std::vector<unsigned char>;
using U64 = unsigned long long;  ///< as printf takes it

/// Ends a command. Its log line, which standard error shows too, was written where it was thrown.
struct Failure : std::exception {};
/// Unless the condition holds, logs one line, in which "%m" prints errno, and throws.
[[gnu::format(printf, 2, 3)]] void check(bool good, const char *format, ...);
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

/// A descriptor that is closed at the end of its scope.
struct Fd {
    explicit Fd(int number) : fd(number) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { close(fd); }
    int fd;
};

Digest fingerprint(const void *data, size_t size);
std::string toText(const Digest &digest);
std::string sizeText(uint64_t bytes);  ///< "1.5 MiB"
std::string parentOf(const std::string &path);

/// Writes a new file of mode 0600 and waits until its content is on the disk; its name lasts once
/// the directory is synced.
void writeNewFile(const std::string &path, const void *data, size_t size);

/// The content of a sealed file.
struct Plain {
    std::unique_ptr<unsigned char, decltype(&std::free)> data{nullptr, &std::free};
    size_t size = 0;
};

/// Seals and opens files with one key; may be used by several threads at once.
class Sealer {
public:
    Sealer() = default;
    Sealer(const Sealer &) = delete;
    Sealer &operator=(const Sealer &) = delete;
    ~Sealer();

    static void makeKeyFile(const std::string &path);
    /// Takes the key of such a file, and a cipher by its name.
    void open(const std::string &key_file, const std::string &cipher);
    /// Tells whether two keys are the same without telling the key.
    std::string keyCheck() const;

    void write(const std::string &path, const Bytes &plain) const;
    Plain read(const std::string &path) const;

private:
    VexKey key_;
    unsigned char cipher_ = 0;
};

}  // namespace vault

#endif
