// crypto seal|open KEYFILE <IN >OUT: compresses and encrypts standard input (deflate, AES-256-CTR),
// or gives it back. KEYFILE holds the key's 32 bytes; seal makes it when it is missing.
#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include <vex/crypt_stream.h>
#include <vex/frame.h>
#include <vex/io.h>
#include <vex/log.h>
#include <vex/random.h>

namespace {

constexpr size_t kBuffer = 1 << 20;

/// Reads the key file, which @p create makes; O_EXCL keeps an existing key from being lost.
bool loadKey(const char *path, bool create, VexKey *key) {
    unsigned char bytes[VEX_KEY_SIZE];
    bool good = false;
    int fd = create ? open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600) : -1;
    if (fd >= 0) {
        good = RandomGetBytes(bytes, sizeof bytes) == 0 &&
               safe_write(fd, bytes, sizeof bytes) == sizeof bytes && safe_fsync(fd) == 0;
    } else {
        fd = open(path, O_RDONLY | O_CLOEXEC);
        good = fd >= 0 && safe_read(fd, bytes, sizeof bytes) == sizeof bytes;
    }
    if (fd >= 0) close(fd);
    if (good) key->Assign(bytes);
    if (!good) ErrorA(-1, "%s gives no key of %zu bytes", path, sizeof bytes);
    OPENSSL_cleanse(bytes, sizeof bytes);
    return good;
}

/// All of standard input; false when it cannot be read or takes 4 GiB and more.
bool readInput(std::vector<unsigned char> *data) {
    for (size_t filled = 0;; filled = data->size()) {
        data->resize(filled + kBuffer);
        const ssize_t got = safe_read(STDIN_FILENO, data->data() + filled, kBuffer);
        data->resize(filled + static_cast<size_t>(got > 0 ? got : 0));
        if (got < static_cast<ssize_t>(kBuffer)) return got >= 0 && data->size() <= UINT32_MAX;
    }
}

/// Drives the stream to its end and writes what comes out. All input is there from the start: a
/// writer that has consumed its input ends the stream, so piecewise input takes more care (see
/// dcpEncrypt).
int pump(c_stream_t *stream, bool seal) {
    std::vector<unsigned char> out(kBuffer);
    int code = VEX_STREAM_OK;
    while (code == VEX_STREAM_OK) {
        stream->next_out = out.data();
        stream->avail_out = kBuffer;
        code = seal ? dcpEncrypt(stream) : dcpDecrypt(stream, 1);
        const auto made = static_cast<ssize_t>(kBuffer - stream->avail_out);
        if (safe_write(STDOUT_FILENO, out.data(), made) != made) return VEX_STREAM_SYSTEM_ERROR;
    }
    return code;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("crypto");
    const bool seal = argc == 3 && strcmp(argv[1], "seal") == 0;
    if (argc != 3 || (!seal && strcmp(argv[1], "open") != 0)) {
        std::fprintf(stderr, "usage: %s seal|open KEYFILE <IN >OUT\n", argv[0]);
        return 2;
    }
    VexKey key;
    std::vector<unsigned char> input;
    if (!loadKey(argv[2], seal, &key) || !readInput(&input)) return 1;
    c_stream_t stream = {};
    int code = seal ? dcpEncryptInit(&stream, VEX_STREAM_DEFLATE, key, VEX_CIPHER_AES_256_CTR)
                    : dcpDecryptInit(&stream, key, VEX_CIPHER_AES_256_CTR);
    if (code == VEX_STREAM_OK) {
        stream.next_in = input.data();
        stream.avail_in = static_cast<uint32_t>(input.size());
        code = pump(&stream, seal);
        (void)(seal ? dcpEncryptEnd(&stream) : dcpDecryptEnd(&stream));
    }
    if (code != VEX_STREAM_END) ErrorA(-1, "%s: %s", argv[1], dcpCryptError(code));
    OPENSSL_cleanse(&key, sizeof key);
    return code == VEX_STREAM_END ? 0 : 1;
}
