// Sealed files. All that the vault keeps about other people's data is a compressed and encrypted
// crypt stream, which "vex open" could open as well.
#ifndef VAULT_SEALER_H
#define VAULT_SEALER_H

#include "common.h"

namespace vault {

/// Who seals begins a new file where one has come to about this size.
constexpr size_t kSealedBytes = size_t{4} << 20;

/// Seals and opens files with one key; may be used by several threads at once.
class Sealer : Unique {
public:
    ~Sealer() { explicit_bzero(&key_, sizeof key_); }

    static void makeKeyFile(const std::string &path) {
        unsigned char bytes[VEX_KEY_SIZE];
        char text[kDigits + 1];
        done(RandomGetBytes(bytes, sizeof bytes) == 0);
        VexBufToSerialize(text, sizeof text, bytes, sizeof bytes);
        text[kDigits] = '\n';
        writeNewFile(path, text, sizeof text);
        explicit_bzero(bytes, sizeof bytes);
        explicit_bzero(text, sizeof text);
    }

    /// Takes the key of such a file, and a cipher by its name.
    void open(const std::string &key_file, const std::string &cipher) {
        cipher_ = VEX_CIPHER_BLOWFISH;
        while (vex_strcasecmp(cipher.c_str(), Cipher::GetCipherDescription(cipher_)) != 0)
            check(++cipher_ <= VEX_CIPHER_AES_256_CTR, "there is no cipher %s", cipher.c_str());
        char text[kDigits + 2] = "";
        unsigned char bytes[VEX_KEY_SIZE];
        const ssize_t size = FileLoadToBuffer(key_file.c_str(), text, sizeof text - 1);
        const bool good = size >= static_cast<ssize_t>(kDigits) &&
                          VexBufToDeserialize(bytes, sizeof bytes, text, kDigits) == sizeof bytes;
        if (good) key_.Assign(bytes);
        explicit_bzero(text, sizeof text);
        explicit_bzero(bytes, sizeof bytes);
        check(good, "%s is no key file: it must hold 64 hexadecimal digits", key_file.c_str());
    }

    /// Tells whether two keys are the same without telling the key.
    std::string keyCheck() const {
        unsigned char labelled[VEX_KEY_SIZE + 1 + 16] = "";
        key_.CopyToBuffer(labelled, VEX_KEY_SIZE + 1);
        vex_strcpy(reinterpret_cast<char *>(labelled) + VEX_KEY_SIZE + 1, 16, "vault key check");
        std::string text = toText(fingerprint(labelled, sizeof labelled));
        explicit_bzero(labelled, sizeof labelled);
        return text;
    }

    /// Writes a new file; returns what describe() says of it.
    std::string write(const std::string &path, const Bytes &plain) const {
        Bytes sealed(plain.size() + plain.size() / 16 + 128);
        const long size = dcpEncryptDataToBuffer(key_, cipher_, plain.data(), plain.size(),
                                                 sealed.data(), sealed.size(), 0);
        check(size > 0, "%s cannot be sealed: %m", path.c_str());
        sealed.resize(static_cast<size_t>(size));
        writeNewFile(path, sealed.data(), sealed.size());
        return std::to_string(size) + " " + toText(fingerprint(sealed.data(), sealed.size()));
    }

    Bytes read(const std::string &path) const {
        size_t size = 0;
        const std::unique_ptr<void, void (*)(void *)> sealed(FileToBuffer(path.c_str(), &size),
                                                             &free);
        done(sealed != nullptr);
        Bytes plain(kMostBytes);
        const unsigned length = dcpDecryptDataToBuffer(
            key_, cipher_, static_cast<unsigned char *>(sealed.get()), static_cast<unsigned>(size),
            plain.data(), static_cast<unsigned>(plain.size()));
        check(length != UINT_MAX, "%s is damaged: %m", path.c_str());
        plain.resize(length);
        return plain;
    }

    /// A file's size and fingerprint.
    static std::string describe(const std::string &path) {
        char text[65] = "";
        (void)SHA256FromFile_r(path.c_str(), text, sizeof text);
        return std::to_string(FileSizeGet(path.c_str())) + " " + text;
    }

private:
    static constexpr size_t kDigits = 2 * VEX_KEY_SIZE;
    static constexpr size_t kMostBytes = kSealedBytes + 65536;  // an item or chunk may end behind

    VexKey key_;
    unsigned char cipher_ = 0;
};

}  // namespace vault

#endif
