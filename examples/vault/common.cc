#include "common.h"

#include <fcntl.h>
#include <limits.h>
#include <string.h>

#include <algorithm>
#include <cstdarg>

namespace vault {
namespace {

constexpr size_t kDigits = 2 * VEX_KEY_SIZE;

}  // namespace

void check(bool good, const char *format, ...) {
    if (good) return;
    char text[3 * PATH_MAX];  // two paths and words
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    ErrorA(-1, "%s", text);
    throw Failure();
}

Digest fingerprint(const void *data, size_t size) {
    SHA256Context context;
    SHA256Initialize(&context);
    SHA256Append(&context, data, static_cast<uint32_t>(size));
    SHA256Finalize(&context);
    Digest digest;
    std::copy_n(context.digest, digest.size(), digest.begin());
    return digest;
}

std::string toText(const Digest &digest) {
    char text[65];
    return SHA256DigestToString_r(digest.data(), text, sizeof text);
}

std::string sizeText(uint64_t bytes) {
    char text[32];
    return sizetofloatstr(text, sizeof text, bytes, 1);
}

std::string parentOf(const std::string &path) {
    return std::filesystem::path(path).parent_path();
}

void writeNewFile(const std::string &path, const void *data, size_t size) {
    const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    const auto count = static_cast<ssize_t>(size);
    check(file.fd >= 0 && safe_write(file.fd, data, count) == count && safe_fsync(file.fd) == 0,
          "%s cannot be written: %m", path.c_str());
}

Sealer::~Sealer() {
    explicit_bzero(&key_, sizeof key_);
}

void Sealer::makeKeyFile(const std::string &path) {
    unsigned char bytes[VEX_KEY_SIZE];
    char text[kDigits + 1];
    done(RandomGetBytes(bytes, sizeof bytes) == 0);
    VexBufToSerialize(text, sizeof text, bytes, sizeof bytes);
    text[kDigits] = '\n';
    writeNewFile(path, text, sizeof text);
    explicit_bzero(bytes, sizeof bytes);
    explicit_bzero(text, sizeof text);
}

void Sealer::open(const std::string &key_file, const std::string &cipher) {
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

std::string Sealer::keyCheck() const {
    unsigned char labelled[VEX_KEY_SIZE + 1 + 16] = "";
    key_.CopyToBuffer(labelled, VEX_KEY_SIZE + 1);
    vex_strcpy(reinterpret_cast<char *>(labelled) + VEX_KEY_SIZE + 1, 16, "vault key check");
    std::string text = toText(fingerprint(labelled, sizeof labelled));
    explicit_bzero(labelled, sizeof labelled);
    return text;
}

void Sealer::write(const std::string &path, const Bytes &plain) const {
    const size_t room = plain.size() + plain.size() / 16 + 128;
    const std::unique_ptr<unsigned char[]> sealed(new unsigned char[room]);
    const long size =
        dcpEncryptDataToBuffer(key_, cipher_, plain.data(), plain.size(), sealed.get(), room, 0);
    check(size > 0, "%s cannot be sealed: %m", path.c_str());
    writeNewFile(path, sealed.get(), static_cast<size_t>(size));
}

Plain Sealer::read(const std::string &path) const {
    size_t size = 0;
    const std::unique_ptr<void, decltype(&std::free)> sealed(FileToBuffer(path.c_str(), &size),
                                                             &std::free);
    done(sealed != nullptr);
    auto length = static_cast<unsigned>(size);
    unsigned reserved = 0;
    Plain plain;
    plain.data.reset(dcpDecryptData(key_, cipher_, static_cast<unsigned char *>(sealed.get()),
                                    &length, &reserved, 0));
    plain.size = length;
    check(plain.data != nullptr, "%s is damaged: %m", path.c_str());
    return plain;
}

}  // namespace vault
